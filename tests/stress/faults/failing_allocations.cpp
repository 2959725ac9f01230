// Loaded into the service before all other libraries: lets one allocation fail when told to.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "tests/stress/faults/allocation_page.h"

// The C library's own, under the names that it has for them beside the usual ones.
extern "C" {
void* __libc_malloc(std::size_t size);  // NOLINT
void* __libc_calloc(std::size_t count, std::size_t size);  // NOLINT
void* __libc_realloc(void* old, std::size_t size);  // NOLINT
void* __libc_memalign(std::size_t alignment, std::size_t size);  // NOLINT
}

namespace {

using faults::AllocatingThread;
using faults::AllocationPage;

AllocationPage* page = nullptr;

AllocatingThread findOutThread() {
    if (gettid() == getpid()) {
        return faults::kMainThread;
    }
    std::array<char, 16> name{};
    prctl(PR_GET_NAME, name.data());
    return std::strcmp(name.data(), "gdbus") == 0 ? faults::kBusThread : faults::kOtherThread;
}

AllocatingThread ownThread() {
    static thread_local AllocatingThread thread = faults::kAllocatingThreads;
    if (thread == faults::kAllocatingThreads) {
        thread = findOutThread();
    }
    return thread;
}

// Counts the allocation; says whether it is the one to fail.
bool fails() {
    if (page == nullptr || page->armed == 0) {
        return false;
    }
    const AllocatingThread thread = ownThread();
    const std::uint32_t number = ++page->counts.at(thread);
    if (thread != page->thread || number != page->nth) {
        return false;
    }
    page->happened = 1;
    errno = ENOMEM;
    return true;
}

// What the service starts is left alone.
__attribute__((constructor)) void begin() {
    unsetenv("LD_PRELOAD");
    const char* const path = std::getenv(faults::kAllocationPageVariable);
    const int fd = path != nullptr ? open(path, O_RDWR | O_CLOEXEC) : -1;
    if (fd < 0) {
        abort();
    }
    void* const mapped =
        mmap(nullptr, sizeof(AllocationPage), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (mapped == MAP_FAILED) {
        abort();
    }
    page = static_cast<AllocationPage*>(mapped);
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) {
    return fails() ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    return fails() ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* old, std::size_t size) {
    return fails() ? nullptr : __libc_realloc(old, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return fails() ? nullptr : __libc_memalign(alignment, size);
}

int posix_memalign(void** out, std::size_t alignment, std::size_t size) {
    void* const memory = fails() ? nullptr : __libc_memalign(alignment, size);
    if (memory == nullptr) {
        return ENOMEM;
    }
    *out = memory;
    return 0;
}
}
