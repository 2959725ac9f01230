// Locking the file and writing the process id into it.
#include "service/pid_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace {

// Keeps the descriptor, and with it the lock, out of programs that the service starts. Returns
// false after reporting the failure.
bool setCloseOnExec(int fd) {
    const int flags = fcntl(fd, F_GETFD);
    if (flags < 0) {
        perror("Couldnt determine any flags.\n");
        return false;
    }
    if (fcntl(fd, F_SETFD, flags | FD_CLOEXEC) < 0) {
        perror("Couldnt set the FD_CLOEXEC flag.");
        return false;
    }
    return true;
}

bool lockWholeFile(int fd) {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return fcntl(fd, F_SETLK, &lock) == 0;
}

void writeProcessId(int fd) {
    if (ftruncate(fd, 0) < 0) {
        perror("Couldn't empty the PID-File!\n");
    }
    char text[10] = {};  // process ids of up to eight digits, the line end and the terminator
    const int length = std::snprintf(text, sizeof text, "%ld\n", static_cast<long>(getpid()));
    if (write(fd, text, std::min(static_cast<std::size_t>(length), sizeof text - 1)) < 0) {
        perror("Couldn't write into PID-File.\n");
    }
}

}  // namespace

int lockPidFile(const std::string& name) {
    const std::string path = "/var/lock/" + name + ".pid";
    // Kept: nothing removes the file again.
    const int fd = open(path.c_str(), O_RDWR | O_CREAT, 0600);
    if (fd < 0) {
        perror("coudln't create lockfile.\n");
        return -1;
    }
    if (!setCloseOnExec(fd)) {
        close(fd);
        return -1;
    }
    if (!lockWholeFile(fd)) {
        const bool locked = errno == EAGAIN || errno == EACCES;
        perror(locked ? "PID-File already locked.\n" : "Error locking this PID-file occured.\n");
        return -1;  // Kept: the descriptor stays open
    }
    writeProcessId(fd);
    return fd;
}
