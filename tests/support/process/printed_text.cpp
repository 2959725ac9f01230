// What a piece of code prints.
#include "tests/support/process/printed_text.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>

#include "tests/support/process/errno_error.h"
#include "tests/support/process/unique_fd.h"

namespace test_support {
namespace {

struct CloseFile {
    void operator()(FILE* file) const { static_cast<void>(std::fclose(file)); }
};
using File = std::unique_ptr<FILE, CloseFile>;

// Standard output leads to `target` while it exists.
class Diversion {
public:
    explicit Diversion(FILE* target) : before_(dup(STDOUT_FILENO)) {
        static_cast<void>(std::fflush(stdout));
        if (!before_ || dup2(fileno(target), STDOUT_FILENO) < 0) {
            throwErrno("standard output");
        }
    }
    ~Diversion() {
        static_cast<void>(std::fflush(stdout));
        dup2(before_.get(), STDOUT_FILENO);
    }
    Diversion(const Diversion&) = delete;
    Diversion& operator=(const Diversion&) = delete;

private:
    UniqueFd before_;
};

}  // namespace

std::string printedBy(const std::function<void()>& body) {
    const File target(std::tmpfile());
    if (!target) {
        throwErrno("a file for what is printed");
    }
    {
        const Diversion diversion(target.get());
        body();
    }
    std::string text;
    std::rewind(target.get());
    for (int c = std::fgetc(target.get()); c != EOF; c = std::fgetc(target.get())) {
        text += static_cast<char>(c);
    }
    return text;
}

}  // namespace test_support
