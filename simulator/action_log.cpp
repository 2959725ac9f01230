// The simulator's account of what it does.
#include "simulator/action_log.h"

#include <glib.h>

#include <cstdio>

std::string printable(const std::string& text) {
    g_autofree char* shown = g_strescape(text.c_str(), "\"");
    return shown;
}

void logAction(const std::string& action, const std::string& outcome) {
    g_autoptr(GDateTime) time = g_date_time_new_now_local();
    g_autofree char* clock = g_date_time_format(time, "%F %T");
    std::printf("%s.%03d  %s: %s\n", clock, g_date_time_get_microsecond(time) / 1000,
                printable(action).c_str(), printable(outcome).c_str());
    std::fflush(stdout);
}
