// How the simulated device manager behaves: set when it starts, and by orders while it runs.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "simulator/backup_archive.h"

// What the order "accept" ends.
struct SimulatorFaults {
    bool refuse = false;  // turn every connection down
    bool hang = false;  // act on no call, go on with no job
    bool dieInJob = false;  // end the process half-way through a job
    std::chrono::milliseconds delay{};  // before each call is acted upon
};

struct SimulatorBehaviour {
    SimulatorFaults faults;
    std::chrono::milliseconds jobTime{500};  // what a backup, restore or update takes at least
    std::optional<std::uint64_t> reportedSize;
};

// The status of a process that died in a job because of the fault.
constexpr int kDiedInJobStatus = 3;

// An order to a device manager. Command line, help and completion come from the list of them.
struct SimulatorOrder {
    const char* name;
    const char* value;  // what it takes, in capital letters, or ""
    const char* help;
    bool SimulatorFaults::*fault = nullptr;  // what it raises
    const char* said = nullptr;  // of a device manager that shows the fault
    // What an order does that raises no fault; false, and no change, for a value that does not fit.
    bool (*carryOut)(SimulatorBehaviour& behaviour, const std::string& value) = nullptr;

    bool takesValue() const { return *value != '\0'; }
};
const std::vector<SimulatorOrder>& simulatorOrders();

// The order that changes nothing.
constexpr const char* kStatusOrder = "status";

// Carries out one order; an order without a value takes "". Returns false, and changes nothing,
// for what is no order and for a value that does not fit.
bool carryOut(const std::string& order, const std::string& value, SimulatorBehaviour& behaviour);

// The behaviour in words, one line of printable characters.
std::string describe(const SimulatorBehaviour& behaviour);

// The behaviour of a running device manager. Any thread; what waits goes on as soon as a change
// lets it.
class LiveBehaviour {
public:
    explicit LiveBehaviour(const SimulatorBehaviour& initial) : values_(initial) {}

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
