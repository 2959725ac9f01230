// One arena for all threads; free memory goes back to the system.
#include "service/heap.h"

#include <malloc.h>

void limitHeap() {
    // With an arena for each thread, what one thread makes and another frees scatters, and each job
    // reserves an arena of its own.
    mallopt(M_ARENA_MAX, 1);
}

void releaseHeap() {
    malloc_trim(0);
}
