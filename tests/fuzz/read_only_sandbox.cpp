// Where hostile paths do no harm.
#include "tests/fuzz/read_only_sandbox.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/files/paths.h"
#include "tests/support/process/sandbox.h"

namespace fuzz {

void enterReadOnlySandbox(int argc, char** argv) {
    std::vector<std::string> options = {"--read-only"};
    if (const char* const output = std::getenv("MORVANE_FUZZ_OUTPUT"); output != nullptr) {
        options.insert(options.end(), {"--keep", output});
    }
    test_support::enterSandbox(argc, argv, options);
    // Whoever was in a sandbox already may be in one of the other sort.
    for (const std::string& folder :
         {test_support::sourcePath("."), test_support::buildPath("."), std::string("/usr")}) {
        if (access(folder.c_str(), W_OK) == 0 || errno != EROFS) {
            std::fprintf(stderr, "fuzz: %s can be written\n", folder.c_str());
            std::exit(2);
        }
    }
}

}  // namespace fuzz
