// The system calls of the code under test: counted, acted between, or made to fail.
#include "tests/unit/watched_calls.h"

#include <dirent.h>
#include <mntent.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <utility>

namespace test_support {
namespace {

thread_local WatchedCalls* activeCalls = nullptr;

}  // namespace

WatchedCalls::WatchedCalls(Before before) : before_(std::move(before)) {
    activeCalls = this;
}

WatchedCalls::~WatchedCalls() {
    activeCalls = nullptr;
}

std::size_t WatchedCalls::count(const std::string& name,
                                const std::optional<std::string>& path) const {
    return static_cast<std::size_t>(
        std::count_if(calls_.begin(), calls_.end(), [&](const WatchedCall& call) {
            return call.name == name && (!path || call.path == *path);
        }));
}

int WatchedCalls::watch(const WatchedCall& call) {
    calls_.push_back(call);
    if (!before_) {
        return 0;
    }
    activeCalls = nullptr;
    const int error = before_(call, calls_.size() - 1);
    activeCalls = this;
    return error;
}

int WatchedCalls::enter(const char* name, const char* path) {
    const int before = errno;
    const int error = activeCalls != nullptr ? activeCalls->watch({name, path}) : 0;
    errno = error != 0 ? error : before;
    return error;
}

void WatchedCalls::replaceAnswer(struct statfs64* fileSystem) {
    if (activeCalls != nullptr && activeCalls->fileSystem_) {
        *fileSystem = *activeCalls->fileSystem_;
    }
}

}  // namespace test_support

// The names are the linker's: __wrap_X takes the calls of X, __real_X is the true one.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,readability-identifier-naming)
using test_support::WatchedCalls;

extern "C" {

DIR* __real_opendir(const char* path);
struct dirent64* __real_readdir64(DIR* directory);
int __real_closedir(DIR* directory);
int __real_stat64(const char* path, struct stat64* status);
int __real_fstat64(int fd, struct stat64* status);
int __real_statfs64(const char* path, struct statfs64* fileSystem);
FILE* __real_setmntent(const char* path, const char* mode);
struct mntent* __real_getmntent_r(FILE* table, struct mntent* entry, char* texts, int size);
int __real_endmntent(FILE* table);
int __real_fcntl64(int fd, int command, ...);
int __real_mkdir(const char* path, mode_t mode);
int __real_semget(key_t key, int count, int flags);
pid_t __real_fork();
pid_t __real_setsid();
int __real_chdir(const char* path);

DIR* __wrap_opendir(const char* path) {
    return WatchedCalls::enter("opendir", path) == 0 ? __real_opendir(path) : nullptr;
}

struct dirent64* __wrap_readdir64(DIR* directory) {
    return WatchedCalls::enter("readdir64") == 0 ? __real_readdir64(directory) : nullptr;
}

int __wrap_closedir(DIR* directory) {
    WatchedCalls::enter("closedir");
    return __real_closedir(directory);
}

int __wrap_stat64(const char* path, struct stat64* status) {
    return WatchedCalls::enter("stat64", path) == 0 ? __real_stat64(path, status) : -1;
}

int __wrap_fstat64(int fd, struct stat64* status) {
    return WatchedCalls::enter("fstat64") == 0 ? __real_fstat64(fd, status) : -1;
}

int __wrap_statfs64(const char* path, struct statfs64* fileSystem) {
    if (WatchedCalls::enter("statfs64", path) != 0 || __real_statfs64(path, fileSystem) != 0) {
        return -1;
    }
    WatchedCalls::replaceAnswer(fileSystem);
    return 0;
}

FILE* __wrap_setmntent(const char* path, const char* mode) {
    return WatchedCalls::enter("setmntent", path) == 0 ? __real_setmntent(path, mode) : nullptr;
}

struct mntent* __wrap_getmntent_r(FILE* table, struct mntent* entry, char* texts, int size) {
    return WatchedCalls::enter("getmntent_r") == 0 ? __real_getmntent_r(table, entry, texts, size)
                                                   : nullptr;
}

int __wrap_endmntent(FILE* table) {
    WatchedCalls::enter("endmntent");
    return __real_endmntent(table);
}

int __wrap_fcntl64(int fd, int command, ...) {
    va_list list;
    va_start(list, command);
    void* const argument = va_arg(list, void*);
    va_end(list);
    const int error = WatchedCalls::enter("fcntl64", std::to_string(command).c_str());
    return error == 0 ? __real_fcntl64(fd, command, argument) : -1;
}

int __wrap_mkdir(const char* path, mode_t mode) {
    return WatchedCalls::enter("mkdir", path) == 0 ? __real_mkdir(path, mode) : -1;
}

int __wrap_semget(key_t key, int count, int flags) {
    return WatchedCalls::enter("semget") == 0 ? __real_semget(key, count, flags) : -1;
}

pid_t __wrap_fork() {
    return WatchedCalls::enter("fork") == 0 ? __real_fork() : -1;
}

pid_t __wrap_setsid() {
    return WatchedCalls::enter("setsid") == 0 ? __real_setsid() : -1;
}

int __wrap_chdir(const char* path) {
    return WatchedCalls::enter("chdir", path) == 0 ? __real_chdir(path) : -1;
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,readability-identifier-naming)
