// What a piece of code prints.
#pragma once

#include <cstdio>
#include <functional>
#include <string>

#include "tests/support/process/child_process.h"

namespace test_support {

// Runs `body` and returns what this process wrote to standard output meanwhile.
inline std::string printedBy(const std::function<void()>& body) {
    // Standard output leads to the stream while it exists.
    class Diversion {
    public:
        explicit Diversion(const CollectedStream& target) : before_(dup(STDOUT_FILENO)) {
            std::fflush(stdout);
            dup2(target.fd(), STDOUT_FILENO);
        }
        ~Diversion() {
            std::fflush(stdout);
            dup2(before_.get(), STDOUT_FILENO);
        }
        Diversion(const Diversion&) = delete;
        Diversion& operator=(const Diversion&) = delete;

    private:
        UniqueFd before_;
    };
    const CollectedStream target;
    {
        const Diversion diversion(target);
        body();
    }
    return target.text();
}

}  // namespace test_support
