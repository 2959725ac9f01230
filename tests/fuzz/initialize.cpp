// Refuses to fuzz where hostile paths could do harm.
#include <unistd.h>

#include <cerrno>

#include "simulator/sandbox/inside_sandbox.h"
#include "tests/fuzz/target.h"
#include "tests/support/files/paths.h"

namespace {

constexpr int kUnsafe = 2;

[[noreturn]] void refuse(const std::string& reason) {
    std::fprintf(stderr, "fuzz: %s; see simulator/sandbox/sandbox --read-only\n", reason.c_str());
    std::exit(kUnsafe);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    const std::string reason = test_support::whyOutsideSandbox();
    if (!reason.empty()) {
        refuse(reason);
    }
    for (const std::string& directory :
         {test_support::sourcePath("."), test_support::buildPath("."), std::string("/usr"),
          std::string("/.etc")}) {
        if (access(directory.c_str(), W_OK) == 0 || errno != EROFS) {
            refuse(directory + " can be written");
        }
    }
    return 0;
}
