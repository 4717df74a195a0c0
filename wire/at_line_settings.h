// How a serial device is set: what VLK_AT_SPEED and VLK_AT_FLOW may say.
#ifndef VLK_AT_LINE_SETTINGS_H
#define VLK_AT_LINE_SETTINGS_H

#include <cstdint>

#include <termios.h>

enum class at_flow {
    OWN, ///< as the port is set
    NONE,
    RTSCTS, ///< by signal lines
    XONXOFF ///< by characters
};

struct at_line_settings {
    uint32_t speed = 0; ///< bits per second, one of at_speeds; 0: the port's own
    at_flow flow = at_flow::OWN;
};

struct at_speed {
    uint32_t bits; ///< per second
    speed_t code;  ///< of termios
};

inline constexpr at_speed at_speeds[] = {
    {1200, B1200},       {2400, B2400},       {4800, B4800},       {9600, B9600},       {19200, B19200},
    {38400, B38400},     {57600, B57600},     {115200, B115200},   {230400, B230400},   {460800, B460800},
    {500000, B500000},   {576000, B576000},   {921600, B921600},   {1000000, B1000000}, {1152000, B1152000},
    {1500000, B1500000}, {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000}, {3500000, B3500000},
    {4000000, B4000000}};

#endif
