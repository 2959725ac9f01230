// Mixed load from many clients, while sticks are plugged and pulled and the device manager dies now
// and then: what the calls take, and what the service takes up over time.
#include <gio/gio.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/stress/soak/client.h"
#include "tests/stress/soak/options.h"
#include "tests/stress/soak/report.h"
#include "tests/stress/soak/world.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/process/sandbox.h"
#include "tests/support/process/service_process.h"
#include "tests/support/process/waiting.h"

namespace soak {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// What is allowed to be left behind, and is said with the result.
constexpr long kGrowth = 4096;  // KiB of anonymous memory, from the end of the first tenth
constexpr long kGrowthPerJob = 64;  // KiB: the touched part of a stack that nobody joins
constexpr auto kPlugEvery = 700ms;

class Soak {
public:
    explicit Soak(const Options& options) : options_(options), sticks_(options.seed) {}

    // Whether there was no error and nothing is left that may not be.
    bool run() {
        if (!service_.waitUntilAnswers()) {
            std::puts("the service does not answer");
            return false;
        }
        pid_ = service_.processId().value_or(0);
        printSampleHead();
        before_ = sampleOf(pid_);
        printSample("before", 0, 0, before_);
        load();
        printDurations(allDurations());
        return judge();
    }

private:
    void load() {
        std::atomic<bool> stop{false};
        for (unsigned i = 0; i < options_.clients; ++i) {
            clients_.push_back(std::make_unique<Client>(i, options_.seed, stop));
        }
        const std::chrono::seconds length = std::chrono::minutes(options_.minutes);
        const auto begin = Clock::now();
        auto nextPlug = begin;
        auto nextJob = begin;
        auto nextSample = begin + length / 10;
        while (Clock::now() < begin + length) {
            const auto now = Clock::now();
            if (now >= nextPlug) {
                sticks_.plugOrPull();
                nextPlug = now + kPlugEvery;
            }
            if (options_.jobEvery > 0 && now >= nextJob) {
                startJob();
                nextJob = now + std::chrono::seconds(options_.jobEvery);
            }
            if (now >= nextSample) {
                sample(std::chrono::duration_cast<std::chrono::seconds>(now - begin));
                nextSample += length / 10;
            }
            deviceManager_.tick();
            std::this_thread::sleep_for(20ms);
        }
        stop = true;
        for (const auto& client : clients_) {
            client->join();
        }
    }

    // A restore of a file that stays; the device manager may be dead.
    void startJob() {
        const test_support::Reply reply =
            bus_.transfer("DoRestore", g_variant_new("(ss)", "USB_X60.4", "a.psb"));
        ++jobs_;
        if (reply.text() != "(0,)") {
            errors_.push_back("DoRestore: " + reply.text());
        }
    }

    void sample(std::chrono::seconds after) {
        const Sample now = sampleOf(pid_);
        if (!first_) {
            first_ = now;
            firstJobs_ = jobs_;
        }
        printSample(std::to_string(after.count()), calls(), jobs_, now);
    }

    std::size_t calls() const {
        std::size_t sum = 0;
        for (const auto& client : clients_) {
            sum += client->calls();
        }
        return sum;
    }

    Durations allDurations() const {
        Durations all;
        std::vector<std::chrono::microseconds>& together = all["all of these"];
        for (const auto& client : clients_) {
            for (const auto& [method, times] : client->durations()) {
                all[method].insert(all[method].end(), times.begin(), times.end());
                together.insert(together.end(), times.begin(), times.end());
            }
        }
        return all;
    }

    bool judge() {
        for (const auto& client : clients_) {
            errors_.insert(errors_.end(), client->errors().begin(), client->errors().end());
        }
        const bool same = service_.processId() == pid_;
        const bool quiet = test_support::waitUntil([this] {
            const Sample now = sampleOf(pid_);
            return now.threads <= before_.threads && now.descriptors <= before_.descriptors;
        });
        const Sample after = sampleOf(pid_);
        const Sample from = first_.value_or(before_);
        const long jobs = static_cast<long>(jobs_ - firstJobs_);
        const long growth = after.anonymous - from.anonymous;
        const long allowed = kGrowth + kGrowthPerJob * jobs;
        printSample("after", calls(), jobs_, after);
        std::printf(
            "\n%zu calls from %u clients, %u jobs, %zu times a stick was plugged or pulled, %zu "
            "deaths of the device manager\n",
            calls(), options_.clients, jobs_, sticks_.changes(), deviceManager_.deaths());
        for (std::size_t i = 0; i < std::min<std::size_t>(errors_.size(), 10); ++i) {
            std::printf("error: %s\n", errors_[i].c_str());
        }
        std::printf(
            "errors: %zu\nanonymous memory: %ld KiB more than after the first tenth; %ld KiB are "
            "allowed, %ld of them for each job\n",
            errors_.size(), growth, allowed, kGrowthPerJob);
        std::printf("threads and descriptors: %s\nprocess: %s\n",
                    quiet ? "as before" : "MORE than before", same ? "the same" : "ANOTHER");
        return errors_.empty() && growth <= allowed && quiet && same;
    }

    Options options_;
    Sticks sticks_;
    DyingDeviceManager deviceManager_;
    test_support::ServiceProcess service_;
    test_support::SystemBus bus_;
    std::vector<std::unique_ptr<Client>> clients_;
    std::vector<std::string> errors_;
    pid_t pid_ = 0;
    unsigned jobs_ = 0;
    unsigned firstJobs_ = 0;
    Sample before_;
    std::optional<Sample> first_;
};

}  // namespace
}  // namespace soak

int main(int argc, char** argv) {
    test_support::enterSandbox(argc, argv);
    return soak::Soak(soak::readOptions(argc, argv)).run() ? 0 : 1;
}
