// The modem's settings that several programs would change for each other, kept apart for each port. Pure.
#ifndef VLK_PORT_SETTINGS_H
#define VLK_PORT_SETTINGS_H

#include <map>
#include <string>
#include <string_view>
#include <vector>

enum class port_sharing {
    OWN,      ///< kept and answered by the port; the modem never hears of it
    RAISED,   ///< the modem reports what any program wants; the port hides what its own did not ask for
    IN_FRONT, ///< kept, and set again in front of each command that depends on it, on the same line
};

/// One row of the table; whatever is not in it goes to the modem as it is.
struct port_setting {
    const char *name;
    port_sharing sharing;
    const char *start; ///< OWN: its value after opening
    const char *range; ///< OWN: the answer to NAME=?
    size_t values;     ///< RAISED: how many of the answer's first values are the program's own
};

/// The row of an extended command's name ("+CMEE", upper case), nullptr for none.
const port_setting *find_port_setting(std::string_view name);

/// The values of one port. All are forgotten when the next program opens it.
class port_settings
{
public:
    void reset() { values.clear(); }

    /// What the program set, else the start value, which is empty for settings that the modem keeps.
    std::string value(const port_setting &setting) const;
    bool is_set(std::string_view name) const { return values.contains(name); }
    void set(const port_setting &setting, std::string_view value) { values[setting.name] = value; }

    /// The number at this position of a setting's value, `otherwise` when the setting has none.
    int number(std::string_view name, int otherwise, size_t position = 0) const;

    /// The command line that a command of this name is asked with: settings that it depends on stand in front.
    std::string with_front(std::string_view name, std::string_view command) const;

    /// The answer to NAME? with this program's values in place of the modem's.
    std::string own_view(const port_setting &setting, std::string_view line) const;

    /// How this program sees an unsolicited line; empty: not at all.
    std::string report_view(std::string_view line) const;

private:
    std::map<std::string, std::string, std::less<>> values;
};

/// Whether a line of the answer comes from a setting that stands in front of the command.
bool is_from_front(std::string_view line);

/// What to set so that the modem reports at least `wanted` and no less than now: both are values between commas.
/// Empty when it does already. current: the modem's answer to NAME?.
std::string raised_values(const port_setting &setting, std::string_view current, std::string_view wanted);

/// Pieces between commas outside quotation marks.
std::vector<std::string> split_values(std::string_view text);

/// "+CME ERROR: 10" as +CMEE says: 0 ERROR, 1 as it is, 2 in words. Any other final result stays as it is.
std::string cme_view(std::string_view final_result, int cmee);

#endif
