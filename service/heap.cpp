// One arena, and large blocks that go back to the system.
#include "service/heap.h"

#include <malloc.h>

namespace {

// Left to itself the C library moves this limit up with the first large block that is freed, and
// keeps the next ones for itself.
constexpr int kLargeBlock = 128 * 1024;

// With an arena for each thread, what one thread makes and another frees scatters, and each job
// reserves an arena of its own.
constexpr int kArenas = 1;

}  // namespace

void limitHeap() {
    mallopt(M_MMAP_THRESHOLD, kLargeBlock);
    mallopt(M_ARENA_MAX, kArenas);
}
