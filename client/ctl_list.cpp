// vlkctl list: the daemons on this machine.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <glob.h>
#include <sys/stat.h>

#include "ctl_commands.h"
#include "ctl_output.h"
#include "daemon_folders.h"

using nlohmann::ordered_json;
using std::string;
using std::string_view;
using std::vector;

namespace
{
constexpr string_view FOLDER_NAME = "vlk";

/// NAME for "/run/vlk-NAME".
string modem_of(const string &path)
{
    const string_view name = string_view(path).substr(path.find_last_of('/') + 1);
    const string head = string(FOLDER_NAME) + "-";
    return name.starts_with(head) ? string(name.substr(head.size())) : string();
}

void add_folder(const string &path, vector<daemon_folder> &folders)
{
    struct stat state = {};
    const bool known = std::ranges::find(folders, path, &daemon_folder::path) != folders.end();
    if (!known && stat(path.c_str(), &state) == 0 && S_ISDIR(state.st_mode))
        folders.push_back({modem_of(path), path});
}

void add_folders_below(const string &parent, vector<daemon_folder> &folders)
{
    add_folder(parent + "/" + string(FOLDER_NAME), folders);
    glob_t found = {};
    if (glob((parent + "/" + string(FOLDER_NAME) + "-*").c_str(), 0, nullptr, &found) == 0)
        for (size_t n = 0; n < found.gl_pathc; n++)
            add_folder(found.gl_pathv[n], folders);
    globfree(&found);
}

struct listed_daemon {
    daemon_folder folder;
    int result; // of asking for its status
    vlk_status status;
};

string state_of(const listed_daemon &daemon)
{
    switch (daemon.result) {
    case VLK_OK:
        return vlk_modem_text(daemon.status.modem);
    case VLK_DENIED:
        return "not for you";
    case VLK_NOT_RUNNING:
        return "not running";
    default:
        return "another version";
    }
}

string padded(const string &text, size_t width)
{
    return text + string(text.size() < width ? width - text.size() : 1, ' ');
}

string table_of(const vector<listed_daemon> &daemons)
{
    string table =
        padded("MODEM", 16) + padded("STATE", 16) + padded("PID", 9) + padded("DEVICE", 20) + "FOLDER";
    for (const listed_daemon &one : daemons) {
        const string &name = one.folder.modem;
        table += "\n" + padded(name.empty() ? "-" : name, 16) + padded(state_of(one), 16) +
                 padded(one.result == VLK_OK ? std::to_string(one.status.pid) : "-", 9) +
                 padded(one.result == VLK_OK ? one.status.device : "-", 20) + one.folder.path;
    }
    return table;
}

ordered_json json_of(const vector<listed_daemon> &daemons)
{
    ordered_json list = ordered_json::array();
    for (const listed_daemon &one : daemons) {
        const bool running = one.result == VLK_OK;
        list.push_back({{"modem", one.folder.modem},
                        {"running", running},
                        {"state", state_of(one)},
                        {"pid", running ? ordered_json(one.status.pid) : ordered_json(nullptr)},
                        {"device", text_or_null(one.status.device)},
                        {"runtime_dir", one.folder.path}});
    }
    return {{"daemons", list}};
}
} // namespace

vector<daemon_folder> daemon_folders()
{
    vector<daemon_folder> folders;
    if (const char *const chosen = std::getenv("VLK_RUNTIME_DIR"); chosen != nullptr && *chosen != '\0')
        add_folder(chosen, folders);
    if (const char *const session = std::getenv("XDG_RUNTIME_DIR"); session != nullptr && *session != '\0')
        add_folders_below(session, folders);
    add_folders_below("/run", folders);
    return folders;
}

string folder_of_modem(const string &name)
{
    const vector<daemon_folder> folders = daemon_folders();
    const auto found = std::ranges::find(folders, name, &daemon_folder::modem);
    return name.empty() || found == folders.end() ? string() : found->path;
}

int run_list(const common_options &common)
{
    vector<listed_daemon> daemons;
    for (const daemon_folder &folder : daemon_folders()) {
        const vlk_place place = {folder.path.c_str()};
        listed_daemon one = {folder, VLK_OK, {}};
        one.result = vlk_get_status(&place, &one.status);
        daemons.push_back(one);
    }
    if (common.json)
        return print_json(json_of(daemons)) ? EXIT_DONE : EXIT_OTHER;
    if (daemons.empty()) {
        print_error("no daemon has a runtime folder on this machine: start vorlink");
        return EXIT_NOT_RUNNING;
    }
    return print_line(table_of(daemons)) ? EXIT_DONE : EXIT_OTHER;
}
