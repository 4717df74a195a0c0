#include "sent_log.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using std::string;
using std::string_view;

namespace
{
constexpr off_t MAX_BYTES = off_t{64} * 1024;
constexpr size_t SAME_DIGITS = 7; // a number may come back with another prefix

using file = std::unique_ptr<FILE, decltype(&std::fclose)>;

/// Empty without a home folder.
string state_folder()
{
    const char *state = std::getenv("XDG_STATE_HOME");
    if (state != nullptr && state[0] == '/')
        return state;
    const char *home = std::getenv("HOME");
    return home != nullptr && home[0] == '/' ? string(home) + "/.local/state" : "";
}

string log_path()
{
    const string folder = state_folder();
    return folder.empty() ? "" : folder + "/vlkctl/sent";
}

void make_folders(const string &path)
{
    for (size_t at = path.find('/', 1); at != string::npos; at = path.find('/', at + 1))
        mkdir(path.substr(0, at).c_str(), 0700); // one that is missing shows when the file is opened
}

file open_log(const string &path, int flags)
{
    const int descriptor = open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, 0600);
    FILE *opened = descriptor < 0 ? nullptr : fdopen(descriptor, (flags & O_APPEND) != 0 ? "a" : "r");
    if (opened == nullptr && descriptor >= 0)
        close(descriptor);
    return {opened, std::fclose};
}

string_view last_digits(string_view number)
{
    return number.substr(number.size() - std::min(number.size(), SAME_DIGITS));
}
} // namespace

bool remember_sent(const sent_part &part)
{
    const string path = log_path();
    errno = ENOENT;
    if (path.empty())
        return false;
    make_folders(path);
    struct stat state;
    if (stat(path.c_str(), &state) == 0 && state.st_size > MAX_BYTES)
        rename(path.c_str(), (path + ".old").c_str());
    const file log = open_log(path, O_WRONLY | O_CREAT | O_APPEND);
    return log != nullptr && std::fprintf(log.get(), "%lld %u %s %d %d\n", static_cast<long long>(part.time),
                                          part.reference, part.number.c_str(), part.part, part.parts) > 0;
}

std::optional<sent_part> find_sent(uint8_t reference, const string &number)
{
    std::optional<sent_part> latest;
    for (const char *suffix : {".old", ""}) {
        const file log = open_log(log_path() + suffix, O_RDONLY);
        char line[128];
        while (log != nullptr && std::fgets(line, sizeof line, log.get()) != nullptr) {
            long long time = 0;
            unsigned found = 0;
            char to[32];
            int part = 0;
            int parts = 0;
            if (std::sscanf(line, "%lld %u %31s %d %d", &time, &found, to, &part, &parts) == 5 &&
                found == reference && last_digits(to) == last_digits(number))
                latest = sent_part{reference, to, part, parts, time};
        }
    }
    return latest;
}
