// Random calls with hostile arguments over the real bus, from several clients at once.
#include <gio/gio.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/fuzz/bus_answers.h"
#include "tests/fuzz/bus_calls.h"
#include "tests/fuzz/hostile_text.h"
#include "tests/fuzz/private_world.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/device/simulator.h"
#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/service_process.h"

namespace fuzz {
namespace {

using test_support::SystemBus;

constexpr std::size_t kInFlight = 8;  // calls of one client
constexpr std::size_t kRefillEvery = 2000;  // calls; the sticks are filled anew
constexpr std::size_t kReportEvery = 50000;
constexpr int kCallPatience = 120'000;  // milliseconds

struct Options {
    std::size_t calls = 20000;
    std::size_t clients = 8;
    std::size_t jobs = 3;  // that are started; each takes a second
    std::uint64_t seed = 1;
};

[[noreturn]] void misused() {
    std::fputs("usage: bus_fuzzer [--calls N] [--clients N] [--jobs N] [--seed N]\n", stderr);
    std::exit(2);
}

Options readOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; i += 2) {
        const std::string name = argv[i];
        char* end = nullptr;
        const std::uint64_t value = i + 1 < argc ? std::strtoull(argv[i + 1], &end, 10) : 0;
        if (end == nullptr || *end != '\0' || end == argv[i + 1]) {
            misused();
        }
        if (name == "--calls") {
            options.calls = value;
        } else if (name == "--clients" && value > 0) {
            options.clients = value;
        } else if (name == "--jobs") {
            options.jobs = value;
        } else if (name == "--seed") {
            options.seed = value;
        } else {
            misused();
        }
    }
    return options;
}

class Run {
public:
    explicit Run(const Options& options)
        : options_(options), random_(options.seed), jobsLeft_(options.jobs) {
        for (std::size_t i = 0; i < options.clients; ++i) {
            clients_.push_back(std::make_unique<SystemBus>());
        }
    }

    // Whether every call was answered as it should be.
    bool go(const test_support::Stick& first, const test_support::Stick& second) {
        const auto started = std::chrono::steady_clock::now();
        while (complaints_ == 0 && answered_ < options_.calls) {
            if (answered_ % kRefillEvery == 0) {
                clearAround(first);
                fill(first);
                fill(second);
            }
            burst();
            report(started);
        }
        return complaints_ == 0;
    }

    void printTotals() const {
        for (const auto& [name, count] : counts_) {
            std::printf("  %-32s %zu\n", name.c_str(), count);
        }
        std::printf("%zu calls from %zu clients, %zu jobs, seed %llu: %zu complaints\n", answered_,
                    options_.clients, options_.jobs - jobsLeft_,
                    static_cast<unsigned long long>(options_.seed), complaints_);
    }

private:
    struct Call {
        Run* run;
        Expected expected;
    };

    // What calls have made beside the sticks would make each search longer than the one before.
    static void clearAround(const test_support::Stick& stick) {
        namespace fs = std::filesystem;
        for (const auto& entry : fs::directory_iterator(fs::path(stick.path()).parent_path())) {
            if (entry.path().filename().string().rfind("USB_X60.", 0) != 0) {
                fs::remove_all(entry.path());
            }
        }
    }

    // Names that the hostile paths reach, some of them packages for the device manager to look at.
    static void fill(const test_support::Stick& stick) {
        namespace fs = std::filesystem;
        for (const auto& entry : fs::directory_iterator(stick.path())) {
            fs::remove_all(entry.path());
        }
        for (const char* file : {"a/a.psb", "a/b.fwf", "b/c", "c/deep/a.psb", "set.psb/a", "a.psb",
                                 "b.fwf", "\xFF\xFE.psb", "%n%s", "tab\t.fwf"}) {
            stick.addFile(file);
        }
        fs::create_directory_symlink("..", stick.path("a/loop"));
    }

    // Every client sends its calls, then all answers are taken in.
    void burst() {
        const std::size_t left = options_.calls - answered_;
        const std::size_t together = std::min(left, kInFlight * clients_.size());
        const std::size_t untilRefill = kRefillEvery - answered_ % kRefillEvery;
        for (std::size_t i = 0; i < std::min(together, untilRefill); ++i) {
            send(*clients_[i % clients_.size()]);
        }
        while (pending_ > 0) {
            g_main_context_iteration(nullptr, TRUE);
        }
    }

    void send(const SystemBus& client) {
        const Method& method = kMethods[upTo(random_, kMethods.size() - 1)];
        const std::size_t spread = options_.calls / (options_.jobs + 1) / 8;
        const bool job = method.startsJob && jobsLeft_ > 0 && upTo(random_, spread) == 0;
        jobsLeft_ -= job ? 1 : 0;
        if (!job && upTo(random_, 19) == 0) {
            sendWrong(client, method);
            return;
        }
        Arguments arguments(random_, method, job);
        start(client, method.path, method.interface, method.name, arguments.build(),
              {method.name, method.out, {}});
    }

    // A call that cannot succeed.
    void sendWrong(const SystemBus& client, const Method& method) {
        switch (upTo(random_, 3)) {
            case 0:
                start(client, method.path, method.interface, "NoSuchMethod",
                      wrongArguments(random_), {"an unknown method", "", kRefusals});
                return;
            case 1:
                start(client, "/nothing/here", kTransfer, "GetUSBStickDetails", nullptr,
                      {"an unknown object", "", kRefusals});
                return;
            case 2:
                start(client, kObject, kProperties, "Set",
                      g_variant_new("(ssv)", kTransfer, "organizationName",
                                    g_variant_new_string(hostileText(random_).c_str())),
                      {"setting a property", "", kRefusals});
                return;
            default:
                start(client, method.path, method.interface, method.name, wrongArguments(random_),
                      {"wrong arguments", "", kRefusals});
        }
    }

    void start(const SystemBus& client, const char* path, const char* interface, const char* method,
               GVariant* arguments, const Expected& expected) {
        ++pending_;
        ++counts_[expected.what];
        auto call = std::make_unique<Call>(Call{this, expected});
        g_dbus_connection_call(client.connection(), test_support::kServiceName, path, interface,
                               method, arguments, nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START,
                               kCallPatience, nullptr, onAnswer, call.release());
    }

    static void onAnswer(GObject* connection, GAsyncResult* result, gpointer data) {
        const std::unique_ptr<Call> call(static_cast<Call*>(data));
        g_autoptr(GError) error = nullptr;
        const test_support::VariantPtr reply(
            g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, &error));
        call->run->judge(call->expected, reply.get(), error);
    }

    void judge(const Expected& expected, GVariant* reply, const GError* error) {
        --pending_;
        ++answered_;
        if (const std::string fault = faultOf(expected, reply, error); !fault.empty()) {
            ++complaints_;
            std::printf("after %zu calls: %s: %s\n", answered_, expected.what.c_str(),
                        fault.c_str());
        }
    }

    void report(std::chrono::steady_clock::time_point started) {
        if (answered_ / kReportEvery == reported_) {
            return;
        }
        reported_ = answered_ / kReportEvery;
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(
            std::chrono::steady_clock::now() - started);
        std::printf("%zu calls in %lld s\n", answered_, static_cast<long long>(seconds.count()));
        std::fflush(stdout);
    }

    Options options_;
    Random random_;
    std::size_t jobsLeft_;
    std::vector<std::unique_ptr<SystemBus>> clients_;
    std::map<std::string, std::size_t> counts_;
    std::size_t pending_ = 0;
    std::size_t answered_ = 0;
    std::size_t complaints_ = 0;
    std::size_t reported_ = 0;
};

// The service itself is asked to write outside of the sandbox's own folders; it must not be able
// to.
bool machineIsSafe() {
    const SystemBus bus;
    for (const std::string& directory :
         {test_support::sourcePath("."), test_support::buildPath("."), std::string("/usr")}) {
        const std::string probe = directory + "/morvane-fuzz-probe";
        const std::string path = "../../.." + probe;
        const std::string answer =
            bus.transfer("CreateDirectory", g_variant_new("(ss)", "USB_X60.1", path.c_str()))
                .text();
        if (answer != "(true,)" || test_support::exists(probe)) {
            std::printf("the machine is not safe: %s: %s\n", probe.c_str(), answer.c_str());
            return false;
        }
    }
    return true;
}

// What is open but for the connections of jobs and clients.
std::vector<std::string> sorted(std::vector<std::string> descriptors) {
    std::sort(descriptors.begin(), descriptors.end());
    return descriptors;
}

// Status 0: every answer was right, the same process answers, nothing more is open.
int fuzzTheBus(const Options& options) {
    test_support::Simulator deviceManager("", {"--job-seconds", "0"});
    if (!deviceManager.waitUntilListens()) {
        std::fputs("the device manager does not start\n", stderr);
        return 2;
    }
    const test_support::Stick first(1);
    const test_support::Stick second(2, {"16m", "/dev/sdb1", false});
    Run run(options);
    bool steady = false;
    {
        test_support::ServiceProcess service({{}, {"G_DEBUG=fatal-criticals"}, {}, {}, {}});
        steady = service.waitUntilAnswers() && machineIsSafe();
        const std::optional<pid_t> process = service.processId();
        const std::vector<std::string> open = sorted(service.openDescriptors());
        steady = steady && run.go(first, second);
        const SystemBus witness;
        steady = steady && witness.transfer("GetStickDetailsWithCount").type() == "(vu)" &&
                 service.processId() == process;
        if (steady && sorted(service.openDescriptors()) != open) {
            steady = false;
            std::puts("other descriptors are open than before");
        }
        if (!steady) {
            std::puts(service.standardError().c_str());
        }
    }  // ends it; what a sanitizer has reported is a failure
    run.printTotals();
    return steady && !testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed() ? 0 : 1;
}

}  // namespace
}  // namespace fuzz

int main(int argc, char** argv) {
    fuzz::enterPrivateWorld(argc, argv);
    return fuzz::fuzzTheBus(fuzz::readOptions(argc, argv));
}
