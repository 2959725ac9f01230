// Sees to it that GLib gets the thread on which it connects to the bus.
#include "service/thread_watch.h"

#include <gio/gio.h>

namespace {

constexpr guint kSecondsBetweenRequests = 1;
constexpr int kRequests = 10;

guint source = 0;  // 0 when there is no watch
int requestsLeft = 0;
void (*giveUp)() = nullptr;

void doNothing(GTask* /*task*/, gpointer /*source*/, gpointer /*data*/, GCancellable* /*none*/) {}

void onThreadHasRun(GObject* /*source*/, GAsyncResult* /*task*/, gpointer /*data*/) {
    endThreadWatch();
}

void requestThread() {
    GTask* task = g_task_new(nullptr, nullptr, onThreadHasRun, nullptr);
    g_task_run_in_thread(task, doNothing);
    g_object_unref(task);
}

gboolean requestThreadOrGiveUp(gpointer /*data*/) {
    const bool goesOn = requestsLeft > 0;
    if (goesOn) {
        --requestsLeft;
        requestThread();
    } else {
        source = 0;
        giveUp();
    }
    return goesOn ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
}

}  // namespace

void watchForThread(void (*withoutThread)()) {
    endThreadWatch();
    giveUp = withoutThread;
    requestsLeft = kRequests;
    source = g_timeout_add_seconds(kSecondsBetweenRequests, requestThreadOrGiveUp, nullptr);
}

void endThreadWatch() {
    if (source != 0) {
        g_source_remove(source);
        source = 0;
    }
}
