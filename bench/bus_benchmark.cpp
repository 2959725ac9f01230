// What a client waits for the running service, beside a service that does nothing; and the memory
// that the service takes for it.
#include <benchmark/benchmark.h>
#include <gio/gio.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/inside_sandbox.h"
#include "tests/support/paths.h"
#include "tests/support/process_table.h"
#include "tests/support/service_process.h"
#include "tests/support/stick.h"
#include "tests/support/system_bus.h"
#include "tests/support/waiting.h"

namespace {

using test_support::ServiceProcess;
using test_support::Stick;
using test_support::SystemBus;

constexpr int kRefused = 125;
constexpr int kGrowthCalls = 400'000;
constexpr int kWarmUpCalls = 40'000;
constexpr int kCallsInFlight = 4;
constexpr int kLargeDirectory = 100'000;

constexpr const char* kFloorName = "com.morvane.bench";

// The service as it runs on the device, its standard output thrown away.
class Daemon {
public:
    Daemon() {
        if (!process_.waitUntilAnswers()) {
            throw std::runtime_error("the service does not answer");
        }
    }

    // A field of its status in kB.
    long memory(const char* field) const {
        const std::optional<pid_t> pid = process_.processId();
        const std::optional<std::string> text =
            pid ? test_support::statusField(*pid, field) : std::nullopt;
        if (!text) {
            throw std::runtime_error("the service has gone");
        }
        return std::strtol(text->c_str(), nullptr, 10);
    }

private:
    ServiceProcess process_{{{"-d"}, {}, {}, {}, {}}};
};

// The service that does nothing, for as long as this lives.
class FloorService {
public:
    FloorService() {
        if (!test_support::waitUntil([] { return answers(SystemBus()); })) {
            throw std::runtime_error("the floor service does not answer");
        }
    }

    static bool answers(const SystemBus& bus) {
        return bus.call("/floor", kFloorName, "Nothing", nullptr, kFloorName).error.empty();
    }

private:
    test_support::ChildProcess process_{
        test_support::runnable(test_support::buildPath("bench/floor_service"))};
};

void allowFloorService() {
    std::filesystem::copy(test_support::sourcePath("bench/com.morvane.bench.conf"),
                          "/etc/dbus-1/system.d");
    SystemBus().call("/org/freedesktop/DBus", "org.freedesktop.DBus", "ReloadConfig", nullptr,
                     "org.freedesktop.DBus");
}

class Samples {
public:
    void time(const std::function<bool()>& call) {
        const auto before = std::chrono::steady_clock::now();
        failed_ = !call() || failed_;
        samples_.push_back(
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - before)
                .count());
    }

    // The median in microseconds.
    double median() {
        const auto middle = samples_.begin() + static_cast<std::ptrdiff_t>(samples_.size() / 2);
        std::nth_element(samples_.begin(), middle, samples_.end());
        return *middle;
    }

    bool failed() const { return failed_; }

private:
    std::vector<double> samples_;
    bool failed_ = false;
};

// Calls the floor and the service in turn, so that both meet the same machine.
void compareWithFloor(benchmark::State& state, const std::function<bool(const SystemBus&)>& call) {
    const Daemon service;
    const FloorService floor;
    const SystemBus bus;
    Samples ofFloor;
    Samples ofService;
    for (auto _ : state) {
        ofFloor.time([&bus] { return FloorService::answers(bus); });
        ofService.time([&] { return call(bus); });
    }
    if (ofFloor.failed() || ofService.failed()) {
        state.SkipWithError("a call was not answered");
    }
    state.counters["floor_us"] = ofFloor.median();
    state.counters["p50_us"] = ofService.median();
    state.counters["ratio"] = ofService.median() / ofFloor.median();
}

void stickDetails(benchmark::State& state) {
    std::vector<std::unique_ptr<Stick>> sticks;
    for (int number = 1; number <= state.range(0); ++number) {
        sticks.push_back(std::make_unique<Stick>(number));
    }
    compareWithFloor(state, [](const SystemBus& bus) {
        return bus.transfer("GetUSBStickDetails").error.empty();
    });
}

void fill(const Stick& stick, std::int64_t files) {
    for (std::int64_t number = 0; number < files; ++number) {
        stick.addFile("DEVICE-" + std::to_string(number) + ".psb", "");
    }
}

bool listRoot(const SystemBus& bus) {
    return bus.transfer("GetDirectoryIndex", g_variant_new("(ss)", "USB_X60.1", "")).error.empty();
}

void directoryIndex(benchmark::State& state) {
    const Stick stick(1);
    fill(stick, state.range(0));
    compareWithFloor(state, listRoot);
}

// Makes many calls with some in flight at any time.
class CallStream {
public:
    CallStream(const SystemBus& bus, int calls) : bus_(bus), toSend_(calls) {
        for (int i = 0; i < kCallsInFlight; ++i) {
            send();
        }
        while (inFlight_ > 0) {
            g_main_context_iteration(nullptr, TRUE);
        }
    }

    int failures() const { return failures_; }

private:
    void send() {
        if (toSend_ == 0) {
            return;
        }
        --toSend_;
        ++inFlight_;
        const bool listing = toSend_ % 2 == 0;
        g_dbus_connection_call(bus_.connection(), test_support::kServiceName,
                               test_support::kTransferPath, test_support::kTransferInterface,
                               listing ? "GetDirectoryIndex" : "GetUSBStickDetails",
                               listing ? g_variant_new("(ss)", "USB_X60.1", "") : nullptr, nullptr,
                               G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, onAnswer, this);
    }

    static void onAnswer(GObject* connection, GAsyncResult* result, gpointer data) {
        auto* const self = static_cast<CallStream*>(data);
        const test_support::VariantPtr value(
            g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, nullptr));
        self->failures_ += value == nullptr ? 1 : 0;
        --self->inFlight_;
        self->send();
    }

    const SystemBus& bus_;
    int toSend_;
    int inFlight_ = 0;
    int failures_ = 0;
};

void growthOverManyCalls(benchmark::State& state) {
    const Stick stick(1);
    fill(stick, 10);
    const Daemon service;
    const SystemBus bus;
    for (auto _ : state) {
        const CallStream warmUp(bus, kWarmUpCalls);
        const long before = service.memory("RssAnon");
        const CallStream calls(bus, kGrowthCalls);
        if (warmUp.failures() + calls.failures() > 0) {
            state.SkipWithError("a call was not answered");
        }
        state.counters["growth_kB"] = static_cast<double>(service.memory("RssAnon") - before);
    }
}

void peakOfALargeReply(benchmark::State& state) {
    const Stick stick(1);
    fill(stick, kLargeDirectory);
    const Daemon service;
    const SystemBus bus;
    for (auto _ : state) {
        const long before = service.memory("VmHWM");
        if (!listRoot(bus)) {
            state.SkipWithError("the call was not answered");
        }
        state.counters["peak_kB"] = static_cast<double>(service.memory("VmHWM") - before);
        state.counters["left_kB"] = static_cast<double>(service.memory("VmRSS") - before);
    }
}

BENCHMARK(stickDetails)->Arg(0)->Arg(2)->Iterations(5'000)->Unit(benchmark::kMicrosecond);
BENCHMARK(directoryIndex)->Arg(10)->Arg(100)->Arg(1'000)->Iterations(300);
BENCHMARK(directoryIndex)->Arg(10'000)->Iterations(30);
BENCHMARK(directoryIndex)->Arg(100'000)->Iterations(5);
BENCHMARK(growthOverManyCalls)->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK(peakOfALargeReply)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    const std::string reason = test_support::whyOutsideSandbox();
    if (!reason.empty()) {
        std::fprintf(stderr, "benchmarks run inside the sandbox only: %s\n", reason.c_str());
        return kRefused;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    allowFloorService();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
