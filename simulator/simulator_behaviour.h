// How the simulated device manager behaves: told when it starts, and by orders while it runs.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "simulator/backup_archive.h"

struct SimulatorBehaviour {
    std::string credentialRecord;  // path; empty: any credential will do
    std::chrono::milliseconds jobTime{};  // what a backup, restore or update takes at least
    std::chrono::milliseconds delay{};  // before each call is acted upon
    bool refuse = false;  // turn every connection down
    bool hang = false;  // act on no call, go on with no job
    bool dieInJob = false;  // end the process half-way through a job
    std::optional<std::uint64_t> reportedSize;
};

// The status of a process that died in a job because it was told to.
constexpr int kDiedInJobStatus = 3;

// The order that changes nothing.
constexpr const char* kStatusOrder = "status";

// Nothing for what is not a time from 0 seconds to a day.
std::optional<std::chrono::milliseconds> timeFromSeconds(double seconds);

// Carries out one order: "accept", "refuse", "hang", "die-in-job", "real-size" and "status" take an
// empty value, "delay" and "job-seconds" seconds, "report-size" bytes. "accept" lifts every fault,
// the delay included; "status" changes nothing. Returns false, and changes nothing, for any other
// order and for a value that does not fit.
bool carryOut(const std::string& order, const std::string& value, SimulatorBehaviour& behaviour);

// The behaviour in words, one line of printable characters.
std::string describe(const SimulatorBehaviour& behaviour);

// The behaviour of a running device manager. Any thread; what waits goes on as soon as a change
// lets it.
class LiveBehaviour {
public:
    explicit LiveBehaviour(SimulatorBehaviour initial) : values_(std::move(initial)) {}

    SimulatorBehaviour now() const;

    // Returns whether the order could be carried out.
    bool change(const std::string& order, const std::string& value);

    // Ends all waiting, present and future.
    void stop();

    // Waits for the delay, and for as long as the device manager hangs. False: it stops.
    bool waitToAct();

    // The pace of a job that begins now: throws DeviceError when the device manager stops, and
    // ends the process when it is to die in a job. To be used while this object lives.
    Pace pace();

private:
    using Clock = std::chrono::steady_clock;

    bool waitUntil(const std::function<Clock::time_point(const SimulatorBehaviour&)>& due);

    mutable std::mutex mutex_;  // guards what follows
    std::condition_variable changed_;
    SimulatorBehaviour values_;
    bool stopping_ = false;
};
