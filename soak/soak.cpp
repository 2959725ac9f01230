// Mixed load from many clients, while sticks are plugged and pulled and the device manager dies now
// and then: what the calls take, and what the service takes up over time.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/process_table.h"
#include "tests/support/sandbox.h"
#include "tests/support/service_process.h"
#include "tests/support/simulator.h"
#include "tests/support/stick.h"
#include "tests/support/system_bus.h"
#include "tests/support/waiting.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using test_support::Simulator;
using test_support::Stick;
using test_support::SystemBus;

struct Options {
    unsigned minutes = 10;
    unsigned clients = 16;
    unsigned jobEvery =
        10;  // seconds; 0: no jobs. Each launch keeps every caller waiting a second.
    unsigned seed = 1;
};

// What is allowed to be left behind, and is said with the result.
constexpr long kGrowth = 4096;      // KiB of anonymous memory, from the end of the first tenth
constexpr long kGrowthPerJob = 64;  // KiB: the touched part of a stack that nobody joins
constexpr auto kPlugEvery = 700ms;
constexpr auto kDeviceManagerLives = 15s;
constexpr auto kDeviceManagerIsGone = 2s;

[[noreturn]] void misused() {
    std::fputs("usage: soak [--minutes N] [--clients N] [--job-every SECONDS] [--seed N]\n",
               stderr);
    std::exit(2);
}

Options readOptions(int argc, char** argv) {
    Options options;
    const std::map<std::string, unsigned*> known{{"--minutes", &options.minutes},
                                                 {"--clients", &options.clients},
                                                 {"--job-every", &options.jobEvery},
                                                 {"--seed", &options.seed}};
    for (int i = 1; i < argc; i += 2) {
        const auto option = known.find(argv[i]);
        char* end = nullptr;
        const unsigned long value = i + 1 < argc ? std::strtoul(argv[i + 1], &end, 10) : 0;
        if (option == known.end() || end == nullptr || *end != '\0' || end == argv[i + 1]) {
            misused();
        }
        *option->second = static_cast<unsigned>(value);
    }
    return options;
}

// ---- the clients ----------------------------------------------------------------------------

struct Method {
    const char* name;
    const char* in;   // signature
    const char* out;  // type of the reply
    unsigned weight;
};

constexpr std::array<Method, 12> kMethods{{
    {"GetUSBStickDetails", "", "(av)", 20},
    {"GetStickDetailsWithCount", "", "(vu)", 20},
    {"GetDirectoryIndex", "ss", "(av)", 20},
    {"GetRestoreFilesList", "ss", "(vi)", 10},
    {"GetDirectoryIndexForBackup", "ss", "(av)", 3},
    {"GetDirectoryIndexForUpdate", "ss", "(av)", 3},
    {"GetBackupFilesList", "ss", "(vi)", 3},
    {"GetUpdateFilesList", "ss", "(vi)", 3},
    {"CreateDirectory", "ss", "(b)", 10},
    {"DeleteFile", "ss", "(b)", 10},
    {"GetBackupFileName", "u", "(s)", 5},
    {"ValidateBackupSize", "us", "(b)", 5},
}};

using Durations = std::map<std::string, std::vector<std::chrono::microseconds>>;

// One client on a thread of its own, which calls until it is told to stop.
class Client {
public:
    Client(unsigned number, unsigned seed, const std::atomic<bool>& stop)
        : number_(number), random_(seed * 1000 + number), thread_([this, &stop] {
              while (!stop) {
                  callOne();
              }
          }) {}

    void join() { thread_.join(); }

    std::size_t calls() const { return calls_; }
    const Durations& durations() const { return durations_; }           // once joined
    const std::vector<std::string>& errors() const { return errors_; }  // once joined

private:
    void callOne() {
        const Method& method = chooseMethod();
        const auto started = Clock::now();
        const test_support::Reply reply = bus_.transfer(method.name, arguments(method));
        durations_[method.name].push_back(
            std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - started));
        ++calls_;
        if (reply.type() != method.out) {
            errors_.push_back(std::string(method.name) + ": " + reply.text());
        }
    }

    const Method& chooseMethod() {
        unsigned total = 0;
        for (const Method& method : kMethods) {
            total += method.weight;
        }
        unsigned left = upTo(total - 1);
        for (const Method& method : kMethods) {
            if (left < method.weight) {
                return method;
            }
            left -= method.weight;
        }
        return kMethods.front();
    }

    GVariant* arguments(const Method& method) {
        const std::string stick = test_support::stickName(static_cast<int>(1 + upTo(3)));
        const std::string in = method.in;
        if (in == "ss") {
            return g_variant_new("(ss)", stick.c_str(), path(method).c_str());
        }
        if (in == "us") {
            return g_variant_new("(us)", 1 + upTo(2), stick.c_str());
        }
        return in == "u" ? g_variant_new("(u)", 1 + upTo(2)) : nullptr;
    }

    // What one client makes no other deletes.
    std::string path(const Method& method) {
        const std::string name = method.name;
        if (name == "CreateDirectory" || name == "DeleteFile") {
            return "made by " + std::to_string(number_) + "/" + std::to_string(upTo(5));
        }
        return upTo(1) == 0 ? "" : "photos";
    }

    unsigned upTo(unsigned most) {
        return std::uniform_int_distribution<unsigned>(0, most)(random_);
    }

    unsigned number_;
    std::mt19937 random_;
    SystemBus bus_;
    std::atomic<std::size_t> calls_{0};
    Durations durations_;
    std::vector<std::string> errors_;
    std::thread thread_;
};

// ---- the world around -----------------------------------------------------------------------

// Sticks 1 to 3, each plugged or not. Stick 4 is there all the time.
class Sticks {
public:
    explicit Sticks(unsigned seed) : random_(seed) { fill(lasting_); }

    void plugOrPull() {
        const std::size_t which = random_() % sticks_.size();
        const int number = static_cast<int>(which) + 1;
        ++changes_;
        if (sticks_.at(which)) {
            sticks_.at(which)->pull();
            sticks_.at(which).reset();
            return;
        }
        sticks_.at(which).emplace(
            number, test_support::StickOptions{
                        "16m", "/dev/sd" + std::string(1, "abc"[which]) + "1", false});
        fill(*sticks_.at(which));
    }

    std::size_t changes() const { return changes_; }

private:
    static void fill(const Stick& stick) {
        for (int i = 0; i < 60; ++i) {
            stick.addFile("photos/" + std::to_string(i) + ".jpg");
        }
        stick.addFile("a.psb");
        stick.addFile("old/b.psb");
        stick.addFile("c.fwf");
    }

    std::mt19937 random_;
    Stick lasting_{4, {"16m", "/dev/sdd1", false}};
    std::array<std::optional<Stick>, 3> sticks_;
    std::size_t changes_ = 0;
};

// The device manager, which dies and comes back.
class DyingDeviceManager {
public:
    DyingDeviceManager() { start(); }

    void tick() {
        const auto now = Clock::now();
        if (now < next_) {
            return;
        }
        if (simulator_) {
            simulator_.reset();
            ++deaths_;
            next_ = now + kDeviceManagerIsGone;
        } else {
            start();
        }
    }

    bool runs() const { return simulator_.has_value(); }
    std::size_t deaths() const { return deaths_; }

private:
    void start() {
        simulator_.emplace("", std::vector<std::string>{"--job-seconds", "0"});
        static_cast<void>(simulator_->waitUntilListens());
        next_ = Clock::now() + kDeviceManagerLives;
    }

    std::optional<Simulator> simulator_;
    Clock::time_point next_;
    std::size_t deaths_ = 0;
};

// ---- what the service takes up --------------------------------------------------------------

struct Sample {
    long anonymous = 0;  // KiB
    long addresses = 0;  // KiB
    std::size_t descriptors = 0;
    int threads = 0;
};

Sample sampleOf(pid_t pid) {
    const auto field = [pid](const char* name) {
        return std::stol(test_support::statusField(pid, name).value_or("0"));
    };
    return {field("RssAnon"), field("VmSize"), test_support::openDescriptorsOf(pid).size(),
            test_support::threadsOf(pid)};
}

void printSample(const char* when, std::size_t calls, unsigned jobs, const Sample& sample) {
    std::printf("%10s %10zu %5u %9ld %11ld %12zu %8d\n", when, calls, jobs, sample.anonymous,
                sample.addresses, sample.descriptors, sample.threads);
    std::fflush(stdout);
}

// ---- the run --------------------------------------------------------------------------------

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
        std::printf("%10s %10s %5s %9s %11s %12s %8s\n", "seconds", "calls", "jobs", "anon/KiB",
                    "virtual/KiB", "descriptors", "threads");
        before_ = sampleOf(pid_);
        printSample("before", 0, 0, before_);
        load();
        printDurations();
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
        printSample(std::to_string(after.count()).c_str(), calls(), jobs_, now);
    }

    std::size_t calls() const {
        std::size_t sum = 0;
        for (const auto& client : clients_) {
            sum += client->calls();
        }
        return sum;
    }

    void printDurations() const {
        Durations all;
        std::vector<std::chrono::microseconds>& together = all["all of these"];
        for (const auto& client : clients_) {
            for (const auto& [method, times] : client->durations()) {
                all[method].insert(all[method].end(), times.begin(), times.end());
                together.insert(together.end(), times.begin(), times.end());
            }
        }
        std::printf("\n%-28s %9s %9s %9s %9s  (milliseconds)\n", "", "calls", "p50", "p99", "max");
        for (auto& [method, times] : all) {
            std::sort(times.begin(), times.end());
            const auto at = [&times = times](double part) {
                const auto index = static_cast<double>(times.size() - 1) * part;
                return static_cast<double>(times[static_cast<std::size_t>(index)].count()) / 1000;
            };
            std::printf("%-28s %9zu %9.1f %9.1f %9.1f\n", method.c_str(), times.size(), at(0.5),
                        at(0.99), at(1));
        }
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
    SystemBus bus_;
    std::vector<std::unique_ptr<Client>> clients_;
    std::vector<std::string> errors_;
    pid_t pid_ = 0;
    unsigned jobs_ = 0;
    unsigned firstJobs_ = 0;
    Sample before_;
    std::optional<Sample> first_;
};

}  // namespace

int main(int argc, char** argv) {
    test_support::enterSandbox(argc, argv);
    return Soak(readOptions(argc, argv)).run() ? 0 : 1;
}
