// What vlkctl does with the process's own standard streams and with Ctrl-C.
#ifndef VLK_CTL_TERMINAL_H
#define VLK_CTL_TERMINAL_H

#include <optional>
#include <string>

/// Opens those of the descriptors 0 to 2 that are closed, so that no socket takes their place: what is written to a
/// closed standard output fails as it should.
void keep_standard_streams();

/// One line of standard input without its line end; none at its end. prompt is shown on standard error when a person
/// types. The second form does not show what is typed, and puts the terminal back also at Ctrl-C.
std::optional<std::string> read_line(const char *prompt);
std::optional<std::string> read_secret(const char *prompt);

/// From here on the first Ctrl-C or SIGTERM only makes interrupted() true and ends system calls that wait. A second one
/// ends the program.
void catch_interrupts();
bool interrupted();

/// Sleeps until the descriptor is readable, the time is up or an interrupt comes. True: readable.
bool wait_readable(int descriptor, int milliseconds);

/// Columns of the terminal behind standard output, 80 when unknown.
int terminal_width();

#endif
