// How vlkctl shows short messages.
#ifndef VLK_SMS_VIEW_H
#define VLK_SMS_VIEW_H

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "sms/broadcast.h"
#include "sms/joiner.h"
#include "sms_store.h"

/// UTF-8 as a person may see it: control characters and those that turn the direction of writing are escaped, but not
/// line feeds; on a terminal that does not show UTF-8, everything that is not ASCII is escaped.
std::string visible_text(std::string_view utf8);

/// A message with a heading, the text below it. stored: where it is in the modem's store, and its mark there; nullptr
/// when it is not there. What a delivery report is about is looked up in what was sent.
std::string message_text(const sms::message &message, const sms::stored *stored);
nlohmann::ordered_json message_json(const sms::message &message, const sms::stored *stored);

/// A PDU that could not be read. stored: nullptr when it is not in the modem's store.
std::string unreadable_text(std::string_view pdu, const char *why, const sms::stored *stored);
nlohmann::ordered_json unreadable_json(std::string_view pdu, const char *why, const sms::stored *stored);

std::string broadcast_text(const sms::broadcast &page);
nlohmann::ordered_json broadcast_json(const sms::broadcast &page);

/// Writes to standard output at once what visible_text has made safe. False, with an error on
/// standard error, when nobody can read it any more.
bool print_text(std::string_view text);

#endif
