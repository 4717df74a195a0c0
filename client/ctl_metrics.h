// The daemon's status in the text format of Prometheus.
#ifndef VLK_CTL_METRICS_H
#define VLK_CTL_METRICS_H

#include <string>

/// From the status text (lines of a name, a blank and a value); an empty one says that the daemon is down.
std::string metrics_of(const std::string &status);

#endif
