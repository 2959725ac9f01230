// The watch over GLib's threads where there are some; tests/bus has a service that gets none.
#include "service/thread_watch.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>

#include "tests/support/process/fresh_process.h"

namespace test_support {
namespace {

// Whether the main loop will wake up by itself some time.
bool somethingIsScheduled() {
    GMainContext* const context = g_main_context_default();
    EXPECT_TRUE(g_main_context_acquire(context));
    gint priority = 0;
    gint milliseconds = -1;
    std::array<GPollFD, 8> files{};
    g_main_context_prepare(context, &priority);
    g_main_context_query(context, G_MAXINT, &milliseconds, files.data(), files.size());
    g_main_context_release(context);
    return milliseconds != -1;
}

// What a fresh process ends with, whose main loop nobody else has used.
[[noreturn]] void endWith(bool good) {
    std::exit(good ? EXIT_SUCCESS : EXIT_FAILURE);
}

TEST(ThreadWatch, endsWhenItIsToldTo) {
    if (isFreshProcess()) {
        watchForThread(std::abort);
        const bool begun = somethingIsScheduled();
        endThreadWatch();
        endThreadWatch();
        endWith(begun && !somethingIsScheduled());
    }
    EXPECT_EQ(FreshProcess().waitForEnd(), exited(EXIT_SUCCESS));
}

TEST(ThreadWatch, endsWithTheFirstThreadThatHasRun) {
    if (isFreshProcess()) {
        watchForThread(std::abort);
        while (somethingIsScheduled()) {
            g_main_context_iteration(nullptr, TRUE);
        }
        endWith(true);
    }
    EXPECT_EQ(FreshProcess().waitForEnd(), exited(EXIT_SUCCESS));
}

}  // namespace
}  // namespace test_support
