// Measures what the service costs, beside the floor that it cannot get below.
#include <glib.h>

#include <cstdio>
#include <vector>

#include "tests/bench/rows.h"
#include "tests/bench/services.h"
#include "tests/support/process/sandbox.h"

namespace {

constexpr int kMisused = 2;

struct Group {
    const char* name;
    std::vector<bench::Row> (*measure)(int rounds);
};
constexpr Group kGroups[] = {{"listings", bench::measureListings},
                             {"calls", bench::measureCalls},
                             {"start", bench::measureStart},
                             {"memory", bench::measureMemory}};

void measure(const gchar* const* wanted, int rounds) {
    bench::allowFloorService();
    bench::printHead();
    for (const Group& group : kGroups) {
        if (wanted == nullptr || g_strv_contains(wanted, group.name) != FALSE) {
            bench::print(group.measure(rounds));
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    test_support::enterSandbox(argc, argv);
    gint rounds = 15;
    g_auto(GStrv) groups = nullptr;
    const GOptionEntry entries[] = {
        {"rounds", 'r', G_OPTION_FLAG_NONE, G_OPTION_ARG_INT, &rounds, "Rounds of each row", "N"},
        {G_OPTION_REMAINING, 0, G_OPTION_FLAG_NONE, G_OPTION_ARG_STRING_ARRAY, &groups, nullptr,
         "[listings] [calls] [start] [memory]"},
        {}};
    g_autoptr(GOptionContext) options = g_option_context_new(nullptr);
    g_option_context_add_main_entries(options, entries, nullptr);
    g_autoptr(GError) error = nullptr;
    if (g_option_context_parse(options, &argc, &argv, &error) == FALSE || rounds < 1) {
        std::fprintf(stderr, "benchmarks: %s\n", error ? error->message : "too few rounds");
        return kMisused;
    }
    measure(groups, rounds);
    return 0;
}
