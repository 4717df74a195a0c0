// The modem's unsolicited lines as they are, for listeners of the hub that ask for them (HOST_TAKE_LINES). The daemon
// makes events of those that it knows; a program that stands in for a terminal wants the text.
#ifndef VLK_REPORT_LINES_H
#define VLK_REPORT_LINES_H

#include <string_view>

/// True for a line that the modem sends by itself, provided that it is no part of an answer. Pure.
bool is_report_line(std::string_view line);

/// Leaves out of a list of command names those that the daemon would take for reports: their handlers would find
/// nothing in them and trace that. Copies the rest to room, which is as large as answer, and returns it. Pure.
std::string_view without_report_names(std::string_view answer, char *room);

/// Sends the reports in a delivery that is no answer to the listeners. For the thread that reads the modem, one at a
/// time. Costs a load while nobody listens.
void report_lines_delivery(std::string_view delivery);

#endif
