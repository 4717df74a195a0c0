// The look for texts gives what a walk of the lists with a substring search gives.
#include "vorlink/engine/line_texts.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "vlk_register.h"
#include "vlk_report_callback/report_table.h"

namespace
{

/// Texts that are looked for, cut and run together with each other and with bytes of all kinds.
std::string random_line(std::mt19937 &random)
{
    const auto up_to = [&random](std::size_t most) {
        return static_cast<std::size_t>(random()) % (most + 1);
    };
    std::string line;
    for (std::size_t pieces = up_to(4); pieces > 0; --pieces) {
        const std::size_t kind = up_to(9);
        const std::string text = kind == 0   ? vlk_card_state_texts[up_to(2)]
                                 : kind == 1 ? MESSAGE_HEADS[up_to(3)]
                                             : vlk_report_table[up_to(VLK_REPORT_ROWS - 1)].prefix;
        const std::size_t from = up_to(3) == 0 ? up_to(2) : 0;
        line += text.substr(from, up_to(3) == 0 ? up_to(6) : text.npos);
        for (std::size_t bytes = up_to(3); bytes > 0; --bytes)
            line += up_to(1) == 0 ? "^+RCXI:, "[up_to(8)] : static_cast<char>(random());
    }
    return line;
}

} // namespace

TEST(LineTexts, AreThoseThatAWalkOfTheListsFinds)
{
    std::mt19937 random(20260101);
    int reports = 0;
    int silent = 0;
    for (int round = 0; round < 200000; ++round) {
        const std::string text = random_line(random);
        // A block that ends where the line ends: reading behind it is seen by AddressSanitizer.
        const std::vector<char> line(text.c_str(),
                                     text.c_str() + text.size() + 1); // a NUL may stand inside, too
        const auto occurs = [&](const char *each) { return strstr(line.data(), each) != nullptr; };
        const auto row = std::ranges::find_if(vlk_report_table, [&](const auto &each) {
            return each.prefix == nullptr || occurs(each.prefix);
        });
        const line_texts found = look_for_texts(line.data(), text.size());
        ASSERT_EQ(found.report, row->prefix != nullptr ? row : nullptr) << "round " << round << ": " << text;
        ASSERT_EQ(found.message_head, std::ranges::any_of(MESSAGE_HEADS, occurs)) << round << ": " << text;
        ASSERT_EQ(found.card_state, std::ranges::any_of(vlk_card_state_texts, occurs))
            << round << ": " << text;
        ++(found.report != nullptr ? reports : silent);
    }
    EXPECT_GT(reports, 50000);
    EXPECT_GT(silent, 20000);
}
