// The C library's pthread_create as a test wants it, in front of the real one. It refuses threads
// where a limit to the address space cannot keep them away: under the emulator, and for the first
// one of a process. Not under the thread sanitizer, which makes threads by a function of its own.
#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>

#include "tests/doubles/double_script.h"

namespace {

using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

std::atomic<std::int64_t> asked{0};  // while there was an order to refuse

}  // namespace

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*start)(void*), void* argument) {
    const device_double::Orders orders("pthread_create");
    if (orders.has("refuse") && asked++ >= orders.number("granted")) {
        return EAGAIN;
    }
    static const auto kCreate = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    return kCreate(thread, attributes, start, argument);
}
