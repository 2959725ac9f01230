// A note of the last job that this user has started, and in which life of the service.
#include "transferctl/job_note.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <system_error>
#include <utility>

namespace transferctl {
namespace {

constexpr const char* kGroup = "Job";
constexpr const char* kFile = "last-job";
constexpr const char* kNewFile = "last-job.new";
constexpr mode_t kPrivateFolder = 0700;
constexpr mode_t kPrivateFile = 0600;
constexpr mode_t kOthers = 077;
constexpr std::size_t kLongestNote = 8192;  // a path of the longest kind, escaped, and the rest

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }

private:
    int fd_;
};

[[noreturn]] void fail(int error, const std::string& what) {
    throw std::system_error(error, std::generic_category(), what);
}

// The folder as a descriptor, made when it is missing. A link, or a folder that others own or may
// enter, is refused: somebody else may have put it there.
int openFolder(const std::string& folder) {
    if (mkdir(folder.c_str(), kPrivateFolder) != 0 && errno != EEXIST) {
        fail(errno, folder);
    }
    Descriptor fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (fd.get() < 0 || fstat(fd.get(), &status) != 0) {
        fail(errno, folder);
    }
    if (status.st_uid != geteuid() || (status.st_mode & kOthers) != 0) {
        fail(EPERM, folder + " is not private to you");
    }
    return fd.release();
}

std::optional<JobNote> readIn(int folder) {
    const Descriptor fd(openat(folder, kFile, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (fd.get() < 0) {
        if (errno == ENOENT) {
            return std::nullopt;
        }
        fail(errno, kFile);
    }
    std::string text(kLongestNote, '\0');
    const ssize_t length = read(fd.get(), text.data(), text.size());
    if (length < 0) {
        fail(errno, kFile);
    }
    text.resize(static_cast<std::size_t>(length));
    return decodeNote(text);
}

std::string valueOf(GKeyFile* file, const char* key) {
    g_autofree gchar* value = g_key_file_get_string(file, kGroup, key, nullptr);
    return value != nullptr ? value : "";
}

}  // namespace

std::string encodeNote(const JobNote& note) {
    g_autoptr(GKeyFile) file = g_key_file_new();
    g_key_file_set_string(file, kGroup, "Owner", note.life.owner.c_str());
    g_key_file_set_string(file, kGroup, "Bus", note.life.bus.c_str());
    g_key_file_set_string(file, kGroup, "Boot", note.life.boot.c_str());
    g_key_file_set_string(file, kGroup, "Job", note.job.c_str());
    g_key_file_set_string(file, kGroup, "File", note.file.c_str());
    g_autofree gchar* text = g_key_file_to_data(file, nullptr, nullptr);
    return text;
}

std::optional<JobNote> decodeNote(const std::string& text) {
    g_autoptr(GKeyFile) file = g_key_file_new();
    if (g_key_file_load_from_data(file, text.data(), text.size(), G_KEY_FILE_NONE, nullptr) ==
        FALSE) {
        return std::nullopt;
    }
    JobNote note{{valueOf(file, "Owner"), valueOf(file, "Bus"), valueOf(file, "Boot")},
                 valueOf(file, "Job"),
                 valueOf(file, "File")};
    return note.life.owner.empty() ? std::nullopt : std::make_optional(std::move(note));
}

std::string currentBoot() {
    std::string boot;
    std::getline(std::ifstream("/proc/sys/kernel/random/boot_id"), boot);
    return boot;
}

std::string noteFolder() {
    const char* const runtime = g_getenv("XDG_RUNTIME_DIR");
    if (runtime != nullptr && runtime[0] == '/') {
        return std::string(runtime) + "/transferctl";
    }
    return geteuid() == 0 ? "/run/transferctl" : "/tmp/transferctl-" + std::to_string(geteuid());
}

JobNoteFile::JobNoteFile(const std::string& folder) {
    Descriptor fd(openFolder(folder));
    if (flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
        fail(errno, folder);
    }
    folder_ = fd.release();
}

JobNoteFile::~JobNoteFile() {
    close(folder_);
}

std::optional<JobNote> JobNoteFile::read() const {
    return readIn(folder_);
}

void JobNoteFile::write(const JobNote& note) const {
    const std::string text = encodeNote(note);
    unlinkat(folder_, kNewFile, 0);  // left by a process that was killed while writing
    const Descriptor fd(openat(folder_, kNewFile,
                               O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kPrivateFile));
    if (fd.get() < 0) {
        fail(errno, kNewFile);
    }
    const ssize_t written = ::write(fd.get(), text.data(), text.size());
    if (written != static_cast<ssize_t>(text.size())) {
        fail(written < 0 ? errno : ENOSPC, kNewFile);
    }
    if (renameat(folder_, kNewFile, folder_, kFile) != 0) {
        fail(errno, kFile);
    }
}

void JobNoteFile::remove() const {
    if (unlinkat(folder_, kFile, 0) != 0 && errno != ENOENT) {
        fail(errno, kFile);
    }
}

std::optional<JobNote> readJobNote(const std::string& folder) {
    const Descriptor fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (fd.get() < 0 || fstat(fd.get(), &status) != 0 || status.st_uid != geteuid()) {
        return std::nullopt;
    }
    try {
        return readIn(fd.get());
    } catch (const std::system_error&) {
        return std::nullopt;
    }
}

}  // namespace transferctl
