// How the C library's heap is kept small.
#pragma once

// Lets all threads share one arena. Call it before any thread exists.
void limitHeap();

// Gives free memory back to the system, in a millisecond or so. Any thread.
void releaseHeap();
