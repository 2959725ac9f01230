// A mount table written by hand, in place of the system's.
#pragma once

#include <string>

namespace test_support {

// What the process under test finds as /etc/mtab for as long as it lives; then the sandbox's own
// table is back. Mounts nothing. Throws std::system_error when the table cannot be replaced.
class HandMadeMountTable {
public:
    enum class Form { kFile, kMissing, kDirectory };

    explicit HandMadeMountTable(const std::string& text);
    explicit HandMadeMountTable(Form form);
    ~HandMadeMountTable();
    HandMadeMountTable(const HandMadeMountTable&) = delete;
    HandMadeMountTable& operator=(const HandMadeMountTable&) = delete;
};

// One line of a mount table.
std::string mountLine(const std::string& source, const std::string& directory,
                      const std::string& type = "vfat");

}  // namespace test_support
