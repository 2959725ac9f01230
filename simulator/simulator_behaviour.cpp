// How the simulated device manager behaves.
#include "simulator/simulator_behaviour.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <map>
#include <sstream>
#include <system_error>

#include "simulator/action_log.h"
#include "simulator/device_error.h"

namespace {

constexpr double kMaxSeconds = 86400;

// The number that the whole of `text` is.
template <typename Number>
std::optional<Number> parse(const std::string& text) {
    Number number{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

std::optional<std::chrono::milliseconds> parseTime(const std::string& text) {
    const auto seconds = parse<double>(text);
    return seconds ? timeFromSeconds(*seconds) : std::nullopt;
}

// Sets what an order is about; false when its value does not fit.
template <typename Target, typename Value>
bool assign(Target& target, const std::optional<Value>& value) {
    if (value) {
        target = *value;
    }
    return value.has_value();
}

using Order = bool (*)(SimulatorBehaviour& behaviour, const std::string& value);

// An order that takes no value.
template <void (*Change)(SimulatorBehaviour&)>
bool plain(SimulatorBehaviour& behaviour, const std::string& value) {
    if (!value.empty()) {
        return false;
    }
    Change(behaviour);
    return true;
}

void accept(SimulatorBehaviour& behaviour) {
    behaviour.refuse = behaviour.hang = behaviour.dieInJob = false;
    behaviour.delay = {};
}
void refuse(SimulatorBehaviour& behaviour) {
    behaviour.refuse = true;
}
void hang(SimulatorBehaviour& behaviour) {
    behaviour.hang = true;
}
void dieInJob(SimulatorBehaviour& behaviour) {
    behaviour.dieInJob = true;
}
void realSize(SimulatorBehaviour& behaviour) {
    behaviour.reportedSize.reset();
}
void status(SimulatorBehaviour& /*behaviour*/) {}

bool delay(SimulatorBehaviour& behaviour, const std::string& value) {
    return assign(behaviour.delay, parseTime(value));
}
bool jobSeconds(SimulatorBehaviour& behaviour, const std::string& value) {
    return assign(behaviour.jobTime, parseTime(value));
}
bool reportSize(SimulatorBehaviour& behaviour, const std::string& value) {
    return assign(behaviour.reportedSize, parse<std::uint64_t>(value));
}

const std::map<std::string, Order>& orders() {
    static const std::map<std::string, Order> kOrders = {
        {"accept", plain<accept>},
        {"refuse", plain<refuse>},
        {"hang", plain<hang>},
        {"die-in-job", plain<dieInJob>},
        {"real-size", plain<realSize>},
        {kStatusOrder, plain<status>},
        {"delay", delay},
        {"job-seconds", jobSeconds},
        {"report-size", reportSize},
    };
    return kOrders;
}

double secondsOf(std::chrono::milliseconds time) {
    return std::chrono::duration<double>(time).count();
}

}  // namespace

std::optional<std::chrono::milliseconds> timeFromSeconds(double seconds) {
    if (!(seconds >= 0 && seconds <= kMaxSeconds)) {
        return std::nullopt;
    }
    return std::chrono::milliseconds(static_cast<int>(seconds * 1000));
}

bool carryOut(const std::string& order, const std::string& value, SimulatorBehaviour& behaviour) {
    const auto found = orders().find(order);
    return found != orders().end() && found->second(behaviour, value);
}

std::string describe(const SimulatorBehaviour& behaviour) {
    std::ostringstream text;
    text << (behaviour.refuse ? "refuses connections, " : "accepts connections, ");
    if (behaviour.hang) {
        text << "hangs";
    } else if (behaviour.delay.count() > 0) {
        text << "acts after " << secondsOf(behaviour.delay) << " s";
    } else {
        text << "acts at once";
    }
    text << (behaviour.dieInJob ? ", dies in a job" : "") << ", jobs take "
         << secondsOf(behaviour.jobTime) << " s, ";
    if (behaviour.reportedSize) {
        text << "reports " << *behaviour.reportedSize << " bytes as backup size";
    } else {
        text << "reports the real backup size";
    }
    return text.str();
}

SimulatorBehaviour LiveBehaviour::now() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return values_;
}

bool LiveBehaviour::change(const std::string& order, const std::string& value) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const bool done = carryOut(order, value, values_);
    changed_.notify_all();
    return done;
}

void LiveBehaviour::stop() {
    const std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
    changed_.notify_all();
}

bool LiveBehaviour::waitToAct() {
    return waitUntil([begin = Clock::now()](const SimulatorBehaviour& behaviour) {
        return begin + behaviour.delay;
    });
}

// A job that is late, because it was held up, keeps its pace and ends later.
Pace LiveBehaviour::pace() {
    return [this, begin = Clock::now()](std::uint64_t done, std::uint64_t total) mutable {
        const double share = static_cast<double>(done) / static_cast<double>(total);
        Clock::time_point due;
        const bool goesOn = waitUntil([&](const SimulatorBehaviour& behaviour) {
            const std::chrono::duration<double> elapsed = behaviour.jobTime * share;
            due = begin + std::chrono::duration_cast<Clock::duration>(elapsed);
            return due;
        });
        if (!goesOn) {
            throw DeviceError(DeviceManagerStatus::failed, "the device manager stops");
        }
        begin += std::max(Clock::now() - due, Clock::duration::zero());
        if (now().dieInJob && share >= 0.5) {
            logAction("device manager", "dies in a job");
            std::_Exit(kDiedInJobStatus);
        }
    };
}

// Until the time that is due, asked for anew at each change, has come and the device manager does
// not hang.
bool LiveBehaviour::waitUntil(
    const std::function<Clock::time_point(const SimulatorBehaviour&)>& due) {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stopping_) {
        const Clock::time_point time = due(values_);
        if (values_.hang) {
            changed_.wait(lock);
        } else if (Clock::now() < time) {
            changed_.wait_until(lock, time);
        } else {
            return true;
        }
    }
    return false;
}
