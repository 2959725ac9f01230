// Holds every system call of a service and what it starts, and lets one fail.
#pragma once

#include <linux/seccomp.h>
#include <sys/types.h>

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/files/files.h"
#include "tests/support/process/unique_fd.h"

namespace faults {

// A call of the service: who made it, which one, and the how manieth of its kind since arm().
struct WatchedCall {
    // Such as "main", "gdbus" or "process 2 main"; "job" for a thread without a name of its own;
    // "loader" before the program itself begins.
    std::string caller;
    long number = 0;
    unsigned nth = 0;
    bool wakes = false;  // reads or writes the descriptor by which one thread wakes another
};

inline constexpr const char* kJob = "job";
inline constexpr const char* kLoader = "loader";
inline constexpr int kKill = -1;  // in place of an error number: the caller is killed instead

// Calls of a program that the service has started and that is another one are let through. The
// sleep of a job's launch is over at once, whether or not anything is to fail.
class CallWatch {
public:
    CallWatch();
    ~CallWatch();
    CallWatch(const CallWatch&) = delete;
    CallWatch& operator=(const CallWatch&) = delete;

    // A command in front of the service's own; for one start.
    std::vector<std::string> prefix() const;

    // Counts from now on; with a call, makes it fail with `error` or kKill.
    void arm(const std::optional<WatchedCall>& call = std::nullopt, int error = 0);

    // Counts no longer. Returns whether the call has been made to fail.
    bool disarm();

    // All calls between arm() and disarm(), in their order.
    std::vector<WatchedCall> calls() const;

private:
    struct Caller {
        pid_t process = 0;
        std::string name;  // empty: not the service
    };

    void serve();
    void takeListener();
    void answerOne();
    // Nothing when there is nobody left to answer.
    std::optional<seccomp_notif_resp> decide(const seccomp_notif& request);
    const Caller& identify(pid_t thread);
    Caller lookUp(pid_t thread);
    bool isToFail(const WatchedCall& call) const;

    test_support::TemporaryDirectory folder_;
    test_support::UniqueFd socket_;
    test_support::UniqueFd listener_;
    test_support::UniqueFd stop_;
    std::map<pid_t, Caller> callers_;  // of the serving thread alone
    std::vector<pid_t> processes_;  // in the order in which they came
    mutable std::mutex mutex_;  // for what follows
    bool armed_ = false;
    bool loaded_ = false;
    bool happened_ = false;
    std::optional<WatchedCall> target_;
    int error_ = 0;
    std::map<std::pair<std::string, long>, unsigned> counts_;
    std::vector<WatchedCall> calls_;
    std::thread thread_;
};

}  // namespace faults
