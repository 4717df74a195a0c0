#include "modem_state.h"

#include <cstdio>
#include <cstring>
#include <mutex>

#include "futex_word.h"
#include "service_notify.h"

namespace
{
std::mutex report_mutex;
modem_report report;
} // namespace

void modem_state_set(host_modem_state state, const char *reason)
{
    const std::scoped_lock lock(report_mutex);
    if (state == report.state && report.since_ms != 0 && strcmp(reason, report.reason) == 0)
        return;
    if (state != report.state || report.since_ms == 0)
        report.since_ms = monotonic_ms();
    report.state = state;
    snprintf(report.reason, sizeof report.reason, "%s", reason);
    service_tell(report);
}

void modem_debt_set(const char *owes)
{
    const std::scoped_lock lock(report_mutex);
    if (report.owes[0] == '\0' && owes[0] != '\0')
        report.owes_since_ms = monotonic_ms();
    snprintf(report.owes, sizeof report.owes, "%s", owes);
}

modem_report modem_state_get()
{
    const std::scoped_lock lock(report_mutex);
    return report;
}
