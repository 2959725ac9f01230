// Files and folders below the state folder.
#include "simulator/state_folder.h"

#include <fcntl.h>
#include <glib.h>
#include <stdlib.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "simulator/device_error.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kStagingPrefix = ".incoming-";

}  // namespace

std::string readStateFile(const fs::path& path) {
    g_autoptr(GError) error = nullptr;
    g_autofree char* bytes = nullptr;
    gsize count = 0;
    if (g_file_get_contents(path.c_str(), &bytes, &count, &error) == FALSE) {
        failWith(error);
    }
    return {bytes, count};
}

void writeStateFile(const fs::path& path, const std::string& bytes) {
    g_autoptr(GError) error = nullptr;
    fs::create_directories(path.parent_path());
    if (g_file_set_contents(path.c_str(), bytes.data(), static_cast<gssize>(bytes.size()),
                            &error) == FALSE) {
        failWith(error);
    }
}

StagingFolder::StagingFolder(const fs::path& state)
    : path_((state / (std::string(kStagingPrefix) + "XXXXXX")).string()) {
    if (mkdtemp(path_.data()) == nullptr) {
        throw fs::filesystem_error("mkdtemp", path_,
                                   std::error_code(errno, std::generic_category()));
    }
}

StagingFolder::~StagingFolder() {
    std::error_code ignored;  // the next start clears what is left
    fs::remove_all(path_, ignored);
}

void clearStaging(const fs::path& state) {
    for (const auto& entry : fs::directory_iterator(state)) {
        if (entry.path().filename().string().rfind(kStagingPrefix, 0) == 0) {
            fs::remove_all(entry.path());
        }
    }
}

void exchangeFolders(const fs::path& left, const fs::path& right) {
    if (renameat2(AT_FDCWD, left.c_str(), AT_FDCWD, right.c_str(), RENAME_EXCHANGE) != 0) {
        throw fs::filesystem_error("exchange", left, right,
                                   std::error_code(errno, std::generic_category()));
    }
}
