// A message bus of our own, which may behave as badly as it likes.
#pragma once

#include <gio/gio.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "tests/support/bus/system_bus.h"
#include "tests/support/process/unique_fd.h"

namespace faults {

using Message = test_support::ObjectPtr<GDBusMessage>;

// How the bus behaves to the first who connects.
struct Manners {
    std::string greeting = "OK 0123456789abcdef0123456789abcdef\r\n";  // to AUTH; empty: hangs up
    // Answers to calls of the bus's own methods in place of the usual ones; null: hangs up.
    std::map<std::string, std::function<Message(GDBusMessage* call)>> answers{};
};

// A message as it goes over the wire, from the bus unless it says otherwise.
std::string bytesOf(GDBusMessage* message, guint32 serial);

// A signal of the bus itself to the service.
Message busSignal(const char* name, const char* argument);

// The service's unique name on this bus.
inline constexpr const char* kServiceUniqueName = ":1.7";

// Stands at the system bus's socket, which must be free, for as long as it lives.
class FakeBus {
public:
    explicit FakeBus(Manners manners);
    ~FakeBus();
    FakeBus(const FakeBus&) = delete;
    FakeBus& operator=(const FakeBus&) = delete;

    // Sends these bytes to the service.
    void send(const std::string& bytes);

    // Calls a method of the service until it answers. Returns the type of the answer, "" when there
    // is none and there can be none any more.
    std::string ask();

    // Whether the manners that differ from usual have been shown.
    bool hasMisbehaved() const { return misbehaved_; }

private:
    void run();
    bool greet(std::string& buffer);
    std::string answerToLine(const std::string& line);
    void serve(std::string& buffer);
    bool answer(GDBusMessage* call);
    Message usualAnswer(GDBusMessage* call) const;
    bool readMore(std::string& buffer) const;
    void sendMessage(GDBusMessage* message);

    Manners manners_;
    test_support::UniqueFd socket_;
    test_support::UniqueFd connection_;
    std::atomic<bool> misbehaved_{false};
    std::atomic<guint32> serial_{0};
    std::mutex sending_;
    std::mutex mutex_;  // for what follows
    std::condition_variable changed_;
    bool up_ = false;
    bool gone_ = false;
    std::map<guint32, std::string> types_;  // of the service's answers, by the call's serial
    std::thread thread_;
};

}  // namespace faults
