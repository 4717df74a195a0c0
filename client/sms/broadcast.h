// Texts of supplementary services (+CUSD) and cell broadcasts (+CBM), which share their data coding scheme. Any thread.
#ifndef VLK_SMS_BROADCAST_H
#define VLK_SMS_BROADCAST_H

#include "pdu.h"

namespace sms
{
/// The text of a +CUSD report as UTF-8. value: as the modem sent it, at most 512 bytes count; scheme: the report's
/// third field, -1 without it. Modems send packed septets or UCS-2 in hexadecimal digits, or the text itself: what
/// cannot be read as septets or UCS-2 is taken as text. Bytes that are not UTF-8 become U+FFFD.
std::string ussd_text(std::string_view value, int scheme);

struct broadcast {
    uint16_t serial = 0;  ///< changes with the content
    uint16_t channel = 0; ///< what it is about: the message identifier
    uint8_t page = 1;     ///< 1 to pages
    uint8_t pages = 1;
    std::string text; ///< UTF-8; hexadecimal digits of 8-bit data
};

/// Reads one page of a cell broadcast from hexadecimal digits.
refusal decode_broadcast(std::string_view hex, broadcast &to);
} // namespace sms

#endif
