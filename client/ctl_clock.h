// The time of day as vlkctl shows it.
#ifndef VLK_CTL_CLOCK_H
#define VLK_CTL_CLOCK_H

#include <string>

/// Local time, "15:04:05.123".
std::string time_text();
/// Date, time and zone, "2026-01-31T15:04:05.123+0100".
std::string time_json();

#endif
