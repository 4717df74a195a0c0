// Which lines of the modem listeners get as they are.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "host_place.h"
#include "hub.h"
#include "report_lines.h"

namespace
{
using std::string;
using testing::ElementsAre;

TEST(ReportLines, TellsReportsFromAnswers)
{
    struct row {
        const char *fault;
        const char *line;
        bool is_report;
    };
    const row rows[] = {
        {"an announcement is kept back", "+CMTI: \"SM\",1", true},
        {"one that the daemon does not know", "+XYZ: 1", true},
        {"a call", "RING", true},
        {"a late final result", "OK", false},
        {"a late error", "+CME ERROR: 10", false},
        {"a late PDU", "0791", false},
    };
    for (const row &r : rows)
        EXPECT_EQ(is_report_line(r.line), r.is_report) << r.fault;
}

TEST(ReportLines, NamesOfReportsAreLeftOutOfAListOfNames)
{
    char room[100];
    EXPECT_EQ(without_report_names("\r\n+CREG\r\n\r\n&F\r\n^HCSQ\r\n+CSQ\r\n+CRING\r\n\r\nOK\r\n", room),
              "\r\n\r\n&F\r\n+CSQ\r\n\r\nOK\r\n");
    EXPECT_EQ(without_report_names("+CREG: 1\r\nRING", room), "+CREG: 1\r\nRING");
    EXPECT_EQ(without_report_names("^HCSQ", room), "");
}

class Listening : public testing::Test
{
protected:
    host_place place;

    static int connect_to_hub(int32_t what)
    {
        const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        sockaddr_un address{AF_UNIX, {}};
        EXPECT_EQ(host_path(&host_settings().paths, "hub", address.sun_path, sizeof address.sun_path), 0);
        EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        const timeval patience{10, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        host_packet packet{};
        packet.kind = HOST_SUBSCRIBE;
        packet.value1 = what;
        EXPECT_EQ(send(fd, &packet, sizeof packet, 0), ssize_t{sizeof packet});
        EXPECT_EQ(recv(fd, &packet, sizeof packet, 0), ssize_t{sizeof packet});
        EXPECT_EQ(packet.kind, uint32_t{HOST_SUBSCRIBED});
        return fd;
    }

    /// The lines up to the one that ends with END.
    static std::vector<string> lines_of(int fd)
    {
        std::vector<string> lines;
        struct {
            host_packet header;
            char data[HOST_DATA_MAX];
        } packet;
        while (recv(fd, &packet, sizeof packet, 0) > 0) {
            EXPECT_EQ(packet.header.kind, uint32_t{HOST_REPORT_LINE});
            lines.emplace_back(packet.data, packet.header.length);
            if (lines.back().ends_with("END"))
                break;
        }
        return lines;
    }
};

TEST_F(Listening, LinesGoToThoseWhoAskForThemAndAnswersToTheProcessThatAsked)
{
    ASSERT_EQ(hub_open(), 0);
    report_lines_delivery("+CMTI: \"SM\",0\r\n");
    const int all = connect_to_hub(HOST_TAKE_ALL);
    EXPECT_FALSE(hub_takes_lines());
    const int lines = connect_to_hub(HOST_TAKE_LINES);
    EXPECT_TRUE(hub_takes_lines());

    report_lines_delivery("\r\n+CMTI: \"SM\",1\r\n\r\n+CMT: ,24\n0004\r\n+CBM: 88\r\n00\r\nunfinished");
    report_lines_delivery("\r\n0791\r\n\r\nRING\r\n\r\nOK\r\n");
    report_lines_delivery("\r\n+CREG: 1\r\n\r\n+END\r\n");
    EXPECT_THAT(lines_of(lines), ElementsAre("+CMTI: \"SM\",1", "+CMT: ,24\r\n0004", "+CBM: 88\r\n00", "RING",
                                             "+CREG: 1", "+END"));
    char byte;
    EXPECT_EQ(recv(all, &byte, 1, MSG_DONTWAIT), -1) << "who takes all events gets lines";

    EXPECT_FALSE(hub_takes_answers());
    const int answers = connect_to_hub(HOST_TAKE_ANSWERS);
    EXPECT_TRUE(hub_takes_answers());
    for (const pid_t process : {getppid(), pid_t{-1}, getpid()}) {
        host_packet packet{};
        packet.kind = HOST_ANSWER_TEXT;
        packet.module = process;
        hub_post(packet, nullptr);
    }
    host_packet got{};
    EXPECT_EQ(recv(answers, &got, sizeof got, 0), ssize_t{sizeof got});
    EXPECT_EQ(got.module, getpid());
    for (const int fd : {answers, lines, all})
        EXPECT_EQ(recv(fd, &got, sizeof got, MSG_DONTWAIT), -1);
    for (const int fd : {answers, lines, all})
        close(fd);
    for (int tries = 0; tries < 5000 && hub_takes_answers(); ++tries)
        usleep(1000);
    EXPECT_FALSE(hub_takes_answers());
}
} // namespace
