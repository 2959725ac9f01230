// Measures what the service costs, beside the floor that it cannot get below.
#include <glib.h>

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "simulator/sandbox/inside_sandbox.h"
#include "tests/bench/rows.h"
#include "tests/bench/services.h"

namespace {

using bench::Row;

constexpr int kRefused = 125;
constexpr int kMisused = 2;

struct Group {
    const char* name;
    std::vector<Row> (*measure)(int rounds);
};
constexpr Group kGroups[] = {{"listings", bench::measureListings},
                             {"calls", bench::measureCalls},
                             {"start", bench::measureStart},
                             {"memory", bench::measureMemory}};

int measure(const gchar* const* wanted, int rounds) {
    bench::allowFloorService();
    std::vector<Row> rows;
    for (const Group& group : kGroups) {
        if (wanted == nullptr || g_strv_contains(wanted, group.name) != FALSE) {
            std::fprintf(stderr, "Measuring %s\n", group.name);
            for (Row& row : group.measure(rounds)) {
                rows.push_back(std::move(row));
            }
        }
    }
    bench::print(rows);
    return rows.empty() ? kMisused : 0;
}

}  // namespace

int main(int argc, char** argv) {
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
    const std::string reason = test_support::whyOutsideSandbox();
    if (!reason.empty()) {
        std::fprintf(stderr, "benchmarks: run inside the sandbox only: %s\n", reason.c_str());
        return kRefused;
    }
    try {
        return measure(groups, rounds);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "benchmarks: %s\n", failure.what());
        return 1;
    }
}
