// Small file helpers; a failure to write throws std::system_error and so fails the test.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace test_support {

// The bytes of a file; empty when it cannot be read.
std::string readFile(const std::string& path);

// Its lines, without the line ends.
std::vector<std::string> readLines(const std::string& path);

// Replaces the file in one step: a reader sees the old or the new bytes, never a part.
void writeFile(const std::string& path, std::string_view bytes);

// Creates a directory and its missing parents.
void makeDirectories(const std::string& path);

// Whether something of that name exists; a link counts even when its target is missing.
bool exists(const std::string& path);

// Takes what is at a path out of the way while it exists; then it is back. Its owner may put
// something else there. Throws std::system_error when that cannot be moved.
class ReplacedFile {
public:
    explicit ReplacedFile(const std::string& path);
    ReplacedFile(const std::string& path, std::string_view bytes);
    ~ReplacedFile();
    ReplacedFile(const ReplacedFile&) = delete;
    ReplacedFile& operator=(const ReplacedFile&) = delete;

private:
    std::string path_;
    std::string kept_;
};

// A fresh directory, removed with all that it holds when its owner ends.
class TemporaryDirectory {
public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& path() const { return path_; }
    std::string path(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

}  // namespace test_support
