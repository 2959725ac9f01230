// The semaphore set in which a launcher and its daemon meet.
#include "tests/support/process/start_semaphores.h"

#include <sys/ipc.h>
#include <sys/sem.h>

#include <cerrno>

#include "tests/support/process/unique_fd.h"

namespace test_support {
namespace {

constexpr int kOwnerOnly = 0600;

// What semctl wants for IPC_STAT; the C library leaves the definition to its callers.
union SemaphoreArgument {
    int value;
    semid_ds* status;
};

semid_ds statusOf(int id) {
    semid_ds status{};
    SemaphoreArgument argument{};
    argument.status = &status;
    semctl(id, 0, IPC_STAT, argument);
    return status;
}

}  // namespace

int StartSemaphores::make(const std::vector<int>& values) const {
    const int made = semget(kStartSemaphoreKey, static_cast<int>(values.size()),
                            IPC_CREAT | IPC_EXCL | kOwnerOnly);
    if (made < 0) {
        throwErrno("semget");
    }
    int semaphore = 0;
    for (const int value : values) {
        SemaphoreArgument argument{};
        argument.value = value;
        semctl(made, semaphore++, SETVAL, argument);
    }
    return made;
}

void StartSemaphores::remove() const {
    if (exists()) {
        semctl(id(), 0, IPC_RMID);
    }
}

int StartSemaphores::id() {
    return semget(kStartSemaphoreKey, 0, 0);
}

std::size_t StartSemaphores::count() const {
    return statusOf(id()).sem_nsems;
}

mode_t StartSemaphores::permissions() const {
    return static_cast<mode_t>(statusOf(id()).sem_perm.mode);
}

int StartSemaphores::value(int semaphore) const {
    return semctl(id(), semaphore, GETVAL);
}

int StartSemaphores::waiting(int semaphore) const {
    return semctl(id(), semaphore, GETNCNT);
}

void StartSemaphores::give(int semaphore) const {
    struct sembuf operation {
        static_cast<unsigned short>(semaphore), 1, 0
    };
    if (semop(id(), &operation, 1) != 0) {
        throwErrno("semop");
    }
}

}  // namespace test_support
