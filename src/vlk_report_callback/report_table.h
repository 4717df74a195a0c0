// The table of unsolicited result codes. In a header, because other tables are built from it at compile time.
#ifndef REPORT_TABLE_H
#define REPORT_TABLE_H

#include <algorithm>
#include <array>
#include <string_view>

#include "custom/ovel/ovel_common_vlk_report_callback.h"
#include "report_callbacks.h"
#include "vlk_report_prefixes.h"
#include "vlk_report_table.h"
#include "vlk_reports.h"

#define REPORT_ROW(id, prefix, handler) {id, prefix, handler},
/// The rows in the order in which they are searched, and the row that ends them.
inline constexpr std::array<vlk_report_row, VLK_REPORT_ROWS + 1> vlk_report_table = {
    {VLK_REPORT_ROWS_IN_ORDER(REPORT_ROW){123, nullptr, nullptr}}};
#undef REPORT_ROW

namespace report_table_check
{

/// The pairs of rows of which the earlier may hide the later, because nothing is lost by it.
constexpr bool may_hide(std::string_view earlier, std::string_view later)
{
    return (earlier == "RING" && later == "IRING") || (earlier == "^SIMREFRESH" && later == "^SIMREFRESH");
}

/// A row whose prefix occurs in a later row's prefix takes every line of the later row.
constexpr bool later_rows_are_reached()
{
    for (std::size_t later = 1; later < VLK_REPORT_ROWS; ++later) {
        const std::string_view prefix = vlk_report_table[later].prefix;
        for (std::size_t earlier = 0; earlier < later; ++earlier) {
            const std::string_view hiding = vlk_report_table[earlier].prefix;
            if (prefix.find(hiding) != std::string_view::npos && !may_hide(hiding, prefix))
                return false;
        }
    }
    return true;
}

constexpr bool ends_the_table(const vlk_report_row &row)
{
    return row.prefix == nullptr;
}

static_assert(VLK_REPORT_ROWS == 78);
static_assert(std::none_of(vlk_report_table.begin(), vlk_report_table.end() - 1, ends_the_table));
static_assert(ends_the_table(vlk_report_table.back()) && vlk_report_table.back().id == 123 &&
              vlk_report_table.back().callback == nullptr);
static_assert(later_rows_are_reached());

} // namespace report_table_check

#endif
