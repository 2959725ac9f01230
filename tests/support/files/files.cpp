// Small file helpers.
#include "tests/support/files/files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "tests/support/process/unique_fd.h"

namespace test_support {
namespace {

int replacedFiles = 0;  // a file may be replaced again while it is

}  // namespace

std::string readFile(const std::string& path) {
    // Through the stream and not its buffer: a read that fails, as of a process that has just gone,
    // ends the text instead of throwing.
    const std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

std::vector<std::string> readLines(const std::string& path) {
    std::istringstream text(readFile(path));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line);
    }
    return lines;
}

void writeFile(const std::string& path, std::string_view bytes) {
    // Not in `path`'s name space of listed files for longer than the rename takes: hidden.
    const std::filesystem::path target(path);
    const std::string fresh = target.parent_path() / ".being-written";
    std::ofstream file(fresh, std::ios::binary | std::ios::trunc);
    file << bytes;
    file.close();
    if (!file || std::rename(fresh.c_str(), path.c_str()) != 0) {
        throwErrno(path);
    }
}

void makeDirectories(const std::string& path) {
    std::filesystem::create_directories(path);
}

bool exists(const std::string& path) {
    struct stat64 status {};
    return lstat64(path.c_str(), &status) == 0;
}

ReplacedFile::ReplacedFile(const std::string& path)
    : path_(path), kept_(path + ".kept" + std::to_string(++replacedFiles)) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    if (std::rename(path.c_str(), kept_.c_str()) != 0 && errno != ENOENT) {
        throwErrno(path);
    }
}

ReplacedFile::ReplacedFile(const std::string& path, std::string_view bytes) : ReplacedFile(path) {
    writeFile(path, bytes);
}

ReplacedFile::~ReplacedFile() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
    std::filesystem::rename(kept_, path_, ignored);
}

TemporaryDirectory::TemporaryDirectory() : path_("/tmp/test-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) {
        throwErrno(path_);
    }
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace test_support
