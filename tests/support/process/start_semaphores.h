// The semaphore set in which a launcher and its daemon meet.
#pragma once

#include <sys/ipc.h>
#include <sys/sem.h>

#include <vector>

#include "tests/support/process/unique_fd.h"

namespace test_support {

inline constexpr key_t kStartSemaphoreKey = 123452;

// Looks at whatever set of that key the sandbox has at the moment of each call, and removes it at
// the end.
class StartSemaphores {
public:
    StartSemaphores() = default;
    ~StartSemaphores() { remove(); }
    StartSemaphores(const StartSemaphores&) = delete;
    StartSemaphores& operator=(const StartSemaphores&) = delete;

    // Makes a set with these values, as an earlier run may have left it. Throws std::system_error.
    int make(std::vector<unsigned short> values) const {
        const int made = semget(kStartSemaphoreKey, static_cast<int>(values.size()),
                                IPC_CREAT | IPC_EXCL | 0600);
        if (made < 0) {
            throwErrno("semget");
        }
        semctl(made, 0, SETALL, values.data());
        return made;
    }
    void remove() const { semctl(id(), 0, IPC_RMID); }

    // The id of the set, -1 when there is none.
    static int id() { return semget(kStartSemaphoreKey, 0, 0); }
    static bool exists() { return id() >= 0; }

    // Its number of semaphores and its permissions.
    semid_ds status() const {
        semid_ds status{};
        semctl(id(), 0, IPC_STAT, &status);
        return status;
    }

    // The value of one semaphore and the number of processes that wait for it to grow; -1 without
    // a set.
    int value(int semaphore) const { return semctl(id(), semaphore, GETVAL); }
    int waiting(int semaphore) const { return semctl(id(), semaphore, GETNCNT); }

    // Adds one, as the other side of the handshake does.
    void give(unsigned short semaphore) const {
        struct sembuf operation {
            semaphore, 1, 0
        };
        if (semop(id(), &operation, 1) != 0) {
            throwErrno("semop");
        }
    }
};

}  // namespace test_support
