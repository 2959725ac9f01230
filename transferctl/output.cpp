// Standard output and standard error of the commands.
#include "transferctl/output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>

#include "transferctl/failure.h"
#include "transferctl/shown_text.h"

namespace transferctl {
namespace {

constexpr std::size_t kUsualWidth = 80;

}  // namespace

void print(const std::string& safeText) {
    const bool written =
        std::fwrite(safeText.data(), 1, safeText.size(), stdout) == safeText.size();
    if (!written || std::fflush(stdout) != 0) {
        throw Failure(ExitStatus::kRefused, "cannot write to standard output");
    }
}

void print(const Table& table) {
    print(isatty(STDOUT_FILENO) != 0 ? table.aligned() : table.tabbed());
}

void note(const std::string& text) {
    const std::string line = "transferctl: " + shownSafely(text) + "\n";
    std::fputs(line.c_str(), stderr);
}

bool notesGoToTerminal() {
    return isatty(STDERR_FILENO) != 0;
}

std::size_t terminalWidth() {
    winsize size{};
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): there is no other interface
    const bool told = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return told ? size.ws_col : kUsualWidth;
}

}  // namespace transferctl
