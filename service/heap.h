// How the C library's heap is set up.
#pragma once

// Keeps the heap of a process with short-lived threads small. Call it before any thread exists.
void limitHeap();
