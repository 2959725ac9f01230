// Orders to the simulated device manager, and the waiting that they end.
#include "simulator/simulator_behaviour.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
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

bool setTime(std::chrono::milliseconds& time, const std::string& text) {
    const auto seconds = parse<double>(text);
    if (!seconds || !(*seconds >= 0 && *seconds <= kMaxSeconds)) {
        return false;
    }
    time = std::chrono::milliseconds(static_cast<int>(*seconds * 1000));
    return true;
}

bool reportSize(SimulatorBehaviour& behaviour, const std::string& value) {
    const auto bytes = parse<std::uint64_t>(value);
    behaviour.reportedSize = bytes ? bytes : behaviour.reportedSize;
    return bytes.has_value();
}

double secondsOf(std::chrono::milliseconds time) {
    return std::chrono::duration<double>(time).count();
}

}  // namespace

const std::vector<SimulatorOrder>& simulatorOrders() {
    using Faults = SimulatorFaults;
    using Behaviour = SimulatorBehaviour;
    static const std::vector<SimulatorOrder> kOrders = {
        {kStatusOrder, "", "say how it behaves"},
        {"refuse", "", "turn every connection down", &Faults::refuse, "refuses connections"},
        {"delay", "SECONDS", "act on each call only after SECONDS", nullptr, nullptr,
         [](Behaviour& behaviour, auto& value) { return setTime(behaviour.faults.delay, value); }},
        {"hang", "", "act on no call and go on with no job", &Faults::hang, "hangs"},
        {"die-in-job", "", "end half-way through a job", &Faults::dieInJob, "dies in a job"},
        {"accept", "", "end these four faults; what hangs goes on", nullptr, nullptr,
         [](Behaviour& behaviour, auto&) {
             behaviour.faults = {};
             return true;
         }},
        {"report-size", "BYTES", "report BYTES as the size of every backup", nullptr, nullptr,
         reportSize},
        {"real-size", "", "report the real size", nullptr, nullptr,
         [](Behaviour& behaviour, auto&) {
             behaviour.reportedSize.reset();
             return true;
         }},
        {"job-seconds", "SECONDS", "let a job take SECONDS, with fractions", nullptr, nullptr,
         [](Behaviour& behaviour, auto& value) { return setTime(behaviour.jobTime, value); }},
    };
    return kOrders;
}

bool carryOut(const std::string& order, const std::string& value, SimulatorBehaviour& behaviour) {
    for (const SimulatorOrder& each : simulatorOrders()) {
        if (order != each.name || (!each.takesValue() && !value.empty())) {
            continue;
        }
        if (each.carryOut != nullptr) {
            return each.carryOut(behaviour, value);
        }
        if (each.fault != nullptr) {
            behaviour.faults.*each.fault = true;
        }
        return true;
    }
    return false;
}

std::string describe(const SimulatorBehaviour& behaviour) {
    std::ostringstream text;
    for (const SimulatorOrder& each : simulatorOrders()) {
        if (each.fault != nullptr && behaviour.faults.*each.fault) {
            text << each.said << ", ";
        }
    }
    if (behaviour.faults.delay.count() > 0) {
        text << "acts after " << secondsOf(behaviour.faults.delay) << " s, ";
    }
    if (text.str().empty()) {
        text << "accepts connections, acts at once, ";
    }
    text << "jobs take " << secondsOf(behaviour.jobTime) << " s, reports ";
    if (behaviour.reportedSize) {
        text << *behaviour.reportedSize << " bytes as backup size";
    } else {
        text << "the real backup size";
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
        return begin + behaviour.faults.delay;
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
        if (now().faults.dieInJob && share >= 0.5) {
            logAction("device manager", "dies in a job");
            std::_Exit(kDiedInJobStatus);
        }
    };
}

// Until the time that is due, asked for again at each change, has come and the device manager does
// not hang.
bool LiveBehaviour::waitUntil(
    const std::function<Clock::time_point(const SimulatorBehaviour&)>& due) {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stopping_) {
        const Clock::time_point time = due(values_);
        if (values_.faults.hang) {
            changed_.wait(lock);
        } else if (Clock::now() < time) {
            changed_.wait_until(lock, time);
        } else {
            return true;
        }
    }
    return false;
}
