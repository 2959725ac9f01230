// How the C library's heap is kept small.
#pragma once

#include <cstddef>

// The memory of a list with more entries than this is worth giving back.
inline constexpr std::size_t kLongList = 1'000;

// Lets all threads share one arena. Call it before any thread exists.
void limitHeap();

// Gives free memory back to the system, in a millisecond or so. Any thread.
void releaseHeap();
