// A mount table written by hand, in place of the system's.
#include "tests/support/device/mount_table.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "tests/support/files/files.h"
#include "tests/support/process/unique_fd.h"

namespace test_support {
namespace {

constexpr const char* kTable = "/etc/mtab";
constexpr const char* kKept = "/etc/mtab.kept";

}  // namespace

HandMadeMountTable::HandMadeMountTable(Form form) {
    if (std::rename(kTable, kKept) != 0) {
        throwErrno(kTable);
    }
    if (form == Form::kFile) {
        writeFile(kTable, "");
    } else if (form == Form::kDirectory) {
        makeDirectories(kTable);
    }
}

HandMadeMountTable::HandMadeMountTable(const std::string& text) : HandMadeMountTable(Form::kFile) {
    writeFile(kTable, text);
}

HandMadeMountTable::~HandMadeMountTable() {
    std::error_code ignored;
    std::filesystem::remove(kTable, ignored);
    std::filesystem::rename(kKept, kTable, ignored);
}

std::string mountLine(const std::string& source, const std::string& directory,
                      const std::string& type) {
    return source + " " + directory + " " + type + " rw,relatime 0 0\n";
}

}  // namespace test_support
