// Listing the directories, backup files and update files of a stick.
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <optional>

#include "service/heap.h"
#include "transfer/contract.h"
#include "transfer/tf_mngr.h"

namespace {

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

// Kept: a single-bit test, so a block device and a socket count as directories.
bool isDirectory(const struct stat64& status) {
    return (status.st_mode & S_IFDIR) != 0;
}

// What the entries of `directory` carry as their location: its path relative to the stick's root.
std::string locationOf(const std::string& directory, const std::string& mntId) {
    const std::string prefix = TfMngr::relativePath(directory + "/", mntId);
    return prefix.empty() ? "/" : TfMngr::parentPath(prefix);
}

FileEntry makeEntry(const char* name, const struct stat64& status, const std::string& location) {
    return {isDirectory(status) ? FileEntry::kDirectory : FileEntry::kOther, name, status.st_size,
            location};
}

// Reads the visible entries of one directory, each with its path and status. Entries that cannot
// be stat'ed are skipped.
class VisibleEntries {
public:
    // A directory that cannot be opened has no entries.
    explicit VisibleEntries(const std::string& directory)
        : stream_(opendir(directory.c_str())),
          entryPath_(directory + "/"),
          prefix_(entryPath_.size()) {}

    bool next() {
        while (const struct dirent64* entry = stream_ ? readdir64(stream_.get()) : nullptr) {
            if (entry->d_name[0] == '.') {
                continue;
            }
            entryPath_.resize(prefix_);
            entryPath_ += entry->d_name;
            if (stat64(entryPath_.c_str(), &entryStatus_) == 0) {
                return true;
            }
        }
        return false;
    }

    const std::string& path() const { return entryPath_; }
    const char* name() const { return entryPath_.c_str() + prefix_; }
    const struct stat64& status() const { return entryStatus_; }

    // The directory that is being read; nothing when it is unknown.
    std::optional<DirectoryId> directoryId() const {
        struct stat64 self {};
        if (!stream_ || fstat64(dirfd(stream_.get()), &self) != 0) {
            return std::nullopt;
        }
        return DirectoryId(self.st_dev, self.st_ino);
    }

private:
    Directory stream_;
    std::string entryPath_;
    std::size_t prefix_;
    struct stat64 entryStatus_ {};
};

// Empties a list, and gives the memory of a long one back.
void discard(std::vector<FileEntry>& list) {
    const bool isLong = list.size() > kLongList;
    list = std::vector<FileEntry>();  // `{}` would keep its capacity
    if (isLong) {
        releaseHeap();
    }
}

}  // namespace

const std::vector<FileEntry>& TfMngr::getRestoreFilesList(const std::string& mntId,
                                                          const std::string& dirPath) {
    discard(entries_);
    scanLevel(mntId, dirPath, Level::DirectoriesThenFiles);
    return entries_;
}

std::vector<FileEntry> TfMngr::scanDirectories(const std::string& mntId,
                                               const std::string& dirPath) {
    scanLevel(mntId, dirPath, Level::Directories);
    return entries_;
}

std::vector<FileEntry> TfMngr::scanFiles(const std::string& mntId, const std::string& dirPath) {
    scanLevel(mntId, dirPath, Level::Files);
    return entries_;
}

void TfMngr::scanLevel(const std::string& mntId, const std::string& dirPath, Level level) {
    const std::string directory = pathOrMountPath(mntId, dirPath);
    if (!exists(mountPath(mntId)) || !exists(directory)) {
        return;
    }
    const std::string location = locationOf(directory, mntId);
    // Files go straight to their place; directories, of which there are few, are put before them.
    const auto begin = static_cast<std::ptrdiff_t>(entries_.size());
    std::vector<FileEntry> directories;
    for (VisibleEntries visible(directory); visible.next();) {
        const bool isDir = isDirectory(visible.status());
        if (isDir && level != Level::Files) {
            directories.push_back(makeEntry(visible.name(), visible.status(), location));
        } else if (!isDir && level != Level::Directories) {
            entries_.push_back(makeEntry(visible.name(), visible.status(), location));
        }
    }
    entries_.insert(entries_.begin() + begin, std::make_move_iterator(directories.begin()),
                    std::make_move_iterator(directories.end()));
}

std::vector<FileEntry> TfMngr::getBackupFilesList(const std::string& mntId,
                                                  const std::string& dirPath) {
    std::vector<FileEntry> found = listPackages(mntId, dirPath, kBackupMarker);
    releaseBackupController();
    return found;
}

std::vector<FileEntry> TfMngr::getUpdateFilesList(const std::string& mntId,
                                                  const std::string& dirPath) {
    getDeviceName();  // Kept: read and discarded
    std::vector<FileEntry> found = listPackages(mntId, dirPath, kUpdateMarker);
    releaseUpdateController();
    return found;
}

std::vector<FileEntry> TfMngr::listPackages(const std::string& mntId, const std::string& dirPath,
                                            const std::string& marker) {
    discard(entries_);
    const std::string directory = pathOrMountPath(mntId, dirPath);
    if (!exists(mountPath(mntId)) || !exists(directory)) {
        return {};
    }
    std::vector<FileEntry> found = scanTree(mntId, directory, marker);
    entries_.clear();
    return found;
}

std::vector<FileEntry> TfMngr::scanTree(const std::string& mntId, const std::string& directory,
                                        const std::string& marker) {
    std::vector<DirectoryId> enclosing;
    scanTreeLevel(mntId, directory, marker, enclosing);
    return entries_;
}

// NOLINTNEXTLINE(misc-no-recursion): at most as deep as a path can be long
void TfMngr::scanTreeLevel(const std::string& mntId, const std::string& directory,
                           const std::string& marker, std::vector<DirectoryId>& enclosing) {
    VisibleEntries visible(directory);
    // A symbolic link may lead back into a directory that is being read: do not follow it round.
    const std::optional<DirectoryId> self = visible.directoryId();
    if (self) {
        if (std::find(enclosing.begin(), enclosing.end(), *self) != enclosing.end()) {
            return;
        }
        enclosing.push_back(*self);
    }
    while (visible.next()) {
        if (isDirectory(visible.status())) {
            scanTreeLevel(mntId, visible.path(), marker, enclosing);
        }
        // Kept: a directory is then looked at like a file.
        if (!hasMarker(visible.path(), marker) || !checkTransferFile(visible.path(), marker)) {
            continue;
        }
        entries_.push_back(
            makeEntry(visible.name(), visible.status(), locationOf(directory, mntId)));
        // Kept: the limit ends this level only; each enclosing one goes on to its own next append.
        if (entries_.size() >= kTreeListLimit) {
            break;
        }
    }
    if (self) {
        enclosing.pop_back();
    }
}
