// Sees to it that GLib gets the thread on which it connects to the bus.
#pragma once

// GLib connects on a thread of its own and does not notice when it can have none: it never tells
// that the name is owned or lost. From a second after this call, and once a second, the watch asks
// for a thread, which also starts what waits for one. The watch ends when a thread has run; when
// there was none ten times it calls `withoutThread`, once, on the main thread. Main thread only;
// the main loop has to run.
void watchForThread(void (*withoutThread)());

// Ends the watch, if there is one. Main thread only.
void endThreadWatch();
