// The modem link: registration on the AT channel, the only way to send bytes to the modem, the SIM card-state texts.
#ifndef VLK_REGISTER_H
#define VLK_REGISTER_H

#include <array>
#include <cstdint>

/// The SIM card-state texts.
inline constexpr std::array<const char *, 3> vlk_card_state_texts = {"^CPINNTY:READY", "^CPINNTY:SIM PUK",
                                                                     "^CARDLOCKNTY:SIM LOCKED"};

/// Registers on the AT channel. Returns 1 once bytes can be sent, 0 until then; the caller repeats it. Main thread.
int vlk_register_nas();

/// Takes modem text from the AT proxy; the channel is not read. Returns 0 when it was queued, 1 when it was
/// refused. Called by the AT proxy, on one thread at a time.
int vlk_get_data_from_nas(uint32_t channel, const char *data, uint32_t length);

/// Sends length bytes of a terminated text as they are. Returns 1 when the AT proxy accepted them, 0 when not, or
/// when the text is null or empty. Any thread.
int vlk_send_to_nas(const char *text, uint16_t length);

/// Finds a SIM card-state text anywhere in the line and runs its handler. Returns 0 when there is one, -1 when not
/// or for a null line.
int vlk_match_card_state(const char *line);

#endif
