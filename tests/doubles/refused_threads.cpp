// The C library's pthread_create, which refuses threads while there is an order to. Not under the
// thread sanitizer, which makes threads by a function of its own.
#include <dlfcn.h>
#include <pthread.h>

#include <cerrno>

#include "tests/doubles/double_script.h"

namespace {

using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

}  // namespace

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*start)(void*), void* argument) {
    const device_double::Orders orders("pthread_create");
    if (orders.has("refuse")) {
        return EAGAIN;
    }
    static const auto kCreate = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    return kCreate(thread, attributes, start, argument);
}
