// The simulator's account of what it does.
#include "simulator/action_log.h"

#include <glib.h>

#include <cstdio>

std::string printable(const std::string& text) {
    std::string shown;
    const char* const end = text.data() + text.size();
    for (const char* at = text.data(); at < end;) {
        const gunichar character = g_utf8_get_char_validated(at, end - at);
        if (character < static_cast<gunichar>(-2) && g_unichar_isprint(character) != FALSE) {
            const char* const next = g_utf8_next_char(at);
            shown.append(at, next);
            at = next;
        } else {
            g_autofree char* escape = g_strdup_printf("\\x%02x", static_cast<guchar>(*at));
            shown += escape;
            ++at;
        }
    }
    return shown;
}

void logAction(const std::string& action, const std::string& outcome) {
    g_autoptr(GDateTime) time = g_date_time_new_now_local();
    g_autofree char* clock = g_date_time_format(time, "%F %T");
    std::printf("%s.%03d  %s: %s\n", clock, g_date_time_get_microsecond(time) / 1000,
                printable(action).c_str(), printable(outcome).c_str());
    std::fflush(stdout);
}
