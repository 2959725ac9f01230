// Refuses to fuzz where hostile paths could do harm.
#include <unistd.h>

#include <cerrno>

#include "simulator/sandbox/inside_sandbox.h"
#include "tests/fuzz/target.h"
#include "tests/support/files/paths.h"

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    std::string reason = test_support::whyOutsideSandbox();
    for (const std::string& directory :
         {test_support::sourcePath("."), test_support::buildPath("."), std::string("/usr"),
          std::string("/.etc")}) {
        if (reason.empty() && (access(directory.c_str(), W_OK) == 0 || errno != EROFS)) {
            reason = directory + " can be written";
        }
    }
    if (!reason.empty()) {
        std::fprintf(stderr, "fuzz: %s; see simulator/sandbox/sandbox --read-only\n",
                     reason.c_str());
        std::exit(2);
    }
    return 0;
}
