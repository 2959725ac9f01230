// The semaphore set in which a launcher and its daemon meet.
#pragma once

#include <sys/types.h>

#include <vector>

namespace test_support {

inline constexpr key_t kStartSemaphoreKey = 123452;

// Looks at whatever set of that key the sandbox has at the moment of each call, and removes it at
// the end.
class StartSemaphores {
public:
    StartSemaphores() = default;
    ~StartSemaphores() { remove(); }
    StartSemaphores(const StartSemaphores&) = delete;
    StartSemaphores& operator=(const StartSemaphores&) = delete;

    // Makes a set with these values, as an earlier run may have left it. Throws std::system_error.
    int make(const std::vector<int>& values) const;
    void remove() const;

    // The id of the set, -1 when there is none.
    static int id();
    static bool exists() { return id() >= 0; }
    std::size_t count() const;
    mode_t permissions() const;

    // The value of one semaphore and the number of processes that wait for it to grow; -1 without
    // a set.
    int value(int semaphore) const;
    int waiting(int semaphore) const;

    // Adds one, as the other side of the handshake does.
    void give(int semaphore) const;
};

}  // namespace test_support
