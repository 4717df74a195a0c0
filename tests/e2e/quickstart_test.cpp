// quickstart, with the programs of this build: Ctrl-C at any moment leaves neither a process nor a file behind.
#include "system.h"

#include <filesystem>
#include <fstream>

namespace
{
namespace fs = std::filesystem;

/// A source tree as far as quickstart looks at it, whose set-up and build have nothing to do.
struct built_tree {
    std::string folder;

    built_tree()
    {
        char name[] = "/tmp/vlk-quickstart-test-XXXXXX";
        folder = mkdtemp(name);
        for (const char *below : {"/tree/scripts", "/tree/build/release/client", "/tree/build/release/sim",
                                  "/tree/build/release/src", "/bin", "/tmp"})
            fs::create_directories(folder + below);
        fs::copy_file(QUICKSTART, folder + "/tree/quickstart");
        fs::create_symlink(VLKCTL, folder + "/tree/build/release/client/vlkctl");
        fs::create_symlink(MODEMSIM, folder + "/tree/build/release/sim/modemsim");
        fs::create_symlink(VORLINK, folder + "/tree/build/release/src/vorlink");
        for (const char *program : {"/tree/scripts/setup", "/bin/cmake"}) {
            std::ofstream(folder + program) << "#!/bin/sh\nexec sleep 0.1\n";
            fs::permissions(folder + program, fs::perms::owner_all);
        }
    }
    ~built_tree() { fs::remove_all(folder); }
    built_tree(const built_tree &) = delete;
    built_tree &operator=(const built_tree &) = delete;

    std::unique_ptr<process> start() const
    {
        return std::make_unique<process>(
            std::vector<std::string>{"/usr/bin/setsid", folder + "/tree/quickstart"},
            environment{{"TMPDIR", folder + "/tmp"}, {"PATH", folder + "/bin:" + getenv("PATH")}});
    }
    bool is_clean() const { return fs::is_empty(folder + "/tmp"); }
};

/// Processes of a session that still run.
int left_in(pid_t session)
{
    int left = 0;
    for (const auto &entry : fs::directory_iterator("/proc")) {
        std::ifstream file(entry.path() / "stat");
        std::string text;
        std::getline(file, text);
        char state = 0;
        int parent = 0;
        int group = 0;
        int of = 0;
        const size_t end = text.rfind(')');
        if (end != std::string::npos &&
            sscanf(text.c_str() + end + 1, " %c %d %d %d", &state, &parent, &group, &of) == 4 &&
            of == session && state != 'Z')
            left++;
    }
    return left;
}
} // namespace

TEST(Quickstart, EndsCleanOnCtrlCAtAnyMoment)
{
    const built_tree tree;
    for (int wait_ms : {0, 5, 20, 50, 100, 150, 200, 230, 260, 300, 350, 400, 500, 700, 1000, 1500}) {
        SCOPED_TRACE(wait_ms);
        const auto shell = tree.start();
        usleep(static_cast<useconds_t>(wait_ms) * 1000); // anywhere: no state is meant
        ::kill(-shell->pid, SIGINT);                     // fails before setsid has run
        shell->kill(SIGINT);
        EXPECT_NE(shell->wait(), -1) << shell->out << shell->err;
        EXPECT_TRUE(wait_until([&] { return left_in(shell->pid) == 0; }, 3000)) << left_in(shell->pid);
        EXPECT_TRUE(tree.is_clean());
    }
}

TEST(Quickstart, SaysWhatIsWrongWithADeviceBeforeItBuilds)
{
    const built_tree tree;
    for (const auto &[device, cause] :
         {std::pair("/dev/nonexistent", "does not exist"), {"/etc/passwd", "no serial device"}}) {
        process shell({tree.folder + "/tree/quickstart", device});
        EXPECT_EQ(shell.wait(), 1);
        EXPECT_NE(shell.err.find(cause), std::string::npos) << shell.err;
        EXPECT_EQ(shell.out, "") << "nothing was set up or built";
    }
}

TEST(Quickstart, ShowsTheCommandsAndEndsWithoutAnError)
{
    const built_tree tree;
    const auto shell = tree.start();
    EXPECT_EQ(shell->wait(60), 0) << shell->out << shell->err;
    for (const char *text :
         {"registered, home network", "Your balance is", "+CPOL: 1", "+CMGS: 12", "EVT_SIGNAL_QUALITY"})
        EXPECT_NE(shell->out.find(text), std::string::npos) << text << shell->out;
    EXPECT_TRUE(tree.is_clean());
}
