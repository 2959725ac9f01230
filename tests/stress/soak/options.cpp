// How long the load lasts and how heavy it is.
#include "tests/stress/soak/options.h"

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

namespace soak {
namespace {

[[noreturn]] void misused() {
    std::fputs("usage: soak [--minutes N] [--clients N] [--job-every SECONDS] [--seed N]\n",
               stderr);
    std::exit(2);
}

}  // namespace

Options readOptions(int argc, char** argv) {
    Options options;
    const std::map<std::string, unsigned*> known{{"--minutes", &options.minutes},
                                                 {"--clients", &options.clients},
                                                 {"--job-every", &options.jobEvery},
                                                 {"--seed", &options.seed}};
    for (int i = 1; i < argc; i += 2) {
        const auto option = known.find(argv[i]);
        char* end = nullptr;
        const unsigned long value = i + 1 < argc ? std::strtoul(argv[i + 1], &end, 10) : 0;
        if (option == known.end() || end == nullptr || *end != '\0' || end == argv[i + 1]) {
            misused();
        }
        *option->second = static_cast<unsigned>(value);
    }
    return options;
}

}  // namespace soak
