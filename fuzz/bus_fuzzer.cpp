// Random calls with hostile arguments over the real bus, from several clients at once.
#include <gio/gio.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "fuzz/hostile_text.h"
#include "fuzz/private_world.h"
#include "tests/support/files.h"
#include "tests/support/paths.h"
#include "tests/support/service_process.h"
#include "tests/support/simulator.h"
#include "tests/support/stick.h"
#include "tests/support/system_bus.h"

namespace fuzz {
namespace {

using test_support::SystemBus;

constexpr const char* kProperties = "org.freedesktop.DBus.Properties";
constexpr std::size_t kInFlight = 8;        // calls of one client
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

// ---- what is called -------------------------------------------------------------------------

struct Method {
    const char* path;
    const char* interface;
    const char* name;
    const char* in;   // signature, a character an argument
    const char* out;  // type of the reply
    bool startsJob;
};

constexpr const char* kTransfer = test_support::kTransferInterface;
constexpr const char* kControl = test_support::kControlInterface;
constexpr const char* kObject = test_support::kTransferPath;
constexpr const char* kControlObject = test_support::kControlPath;

constexpr std::array<Method, 22> kMethods{{
    {kObject, kTransfer, "GetUSBStickDetails", "", "(av)", false},
    {kObject, kTransfer, "GetStickDetailsWithCount", "", "(vu)", false},
    {kObject, kTransfer, "ValidateBackupSize", "us", "(b)", false},
    {kObject, kTransfer, "GetBackupFileName", "u", "(s)", false},
    {kObject, kTransfer, "GetDirectoryIndex", "ss", "(av)", false},
    {kObject, kTransfer, "GetDirectoryIndexForUpdate", "ss", "(av)", false},
    {kObject, kTransfer, "GetDirectoryIndexForBackup", "ss", "(av)", false},
    {kObject, kTransfer, "DeleteFile", "ss", "(b)", false},
    {kObject, kTransfer, "CreateDirectory", "ss", "(b)", false},
    {kObject, kTransfer, "DoOSUpdate", "ss", "(i)", true},
    {kObject, kTransfer, "DoBackup", "sus", "(i)", true},
    {kObject, kTransfer, "DoRestore", "ss", "(i)", true},
    {kObject, kTransfer, "GetRestoreFilesList", "ss", "(vi)", false},
    {kObject, kTransfer, "GetUpdateFilesList", "ss", "(vi)", false},
    {kObject, kTransfer, "GetBackupFilesList", "ss", "(vi)", false},
    {kControlObject, kControl, "Quit", "", "()", false},
    {kControlObject, kControl, "Init", "", "()", false},
    {kObject, kProperties, "GetAll", "i", "(a{sv})", false},
    {kObject, kProperties, "Get", "ip", "(v)", false},
    {kObject, "org.freedesktop.DBus.Introspectable", "Introspect", "", "(s)", false},
    {kControlObject, "org.freedesktop.DBus.Introspectable", "Introspect", "", "(s)", false},
    {kControlObject, "org.freedesktop.DBus.Peer", "Ping", "", "()", false},
}};

std::string without(std::string text, const std::string& part) {
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part)) {
        text.erase(at, part.size());
    }
    return text;
}

// A search walks all that it can reach: from the root of the file system on, through /proc, that
// takes for ever. One ".." leads to the sticks' parent at most.
bool searches(const Method& method) {
    const std::string name = method.name;
    return name.rfind("GetDirectoryIndexFor", 0) == 0 || name == "GetBackupFilesList" ||
           name == "GetUpdateFilesList";
}

void keepNearTheSticks(std::array<std::string, 2>& texts) {
    bool climbed = false;
    for (std::string& text : texts) {
        for (std::size_t at = text.find(".."); at != std::string::npos; at = text.find("..", at)) {
            if (climbed) {
                text.erase(at, 2);
            } else {
                climbed = true;
                at += 2;
            }
        }
    }
}

// The arguments of one call.
class Arguments {
public:
    Arguments(Random& random, const Method& method, bool mayStartJob)
        : random_(random), method_(method) {
        chooseTexts(mayStartJob);
    }

    GVariant* build() {
        GVariantBuilder builder;
        g_variant_builder_init(&builder, G_VARIANT_TYPE_TUPLE);
        std::size_t text = 0;
        for (const char* type = method_.in; *type != '\0'; ++type) {
            g_variant_builder_add_value(&builder, argument(*type, text));
        }
        return g_variant_builder_end(&builder);
    }

private:
    // The mount and the path. A job that must not start has a path that none starts with, or a
    // stick that is not there.
    void chooseTexts(bool mayStartJob) {
        texts_ = {hostileMount(random_), hostilePath(random_)};
        if (searches(method_)) {
            keepNearTheSticks(texts_);
        }
        if (!method_.startsJob) {
            return;
        }
        if (mayStartJob) {
            texts_ = {"USB_X60.1", "../USB_X60.1/" + hostilePath(random_) + ".psb"};
        } else if (upTo(random_, 1) == 0) {
            texts_[0] = "USB_X60.9/" + texts_[0];
        } else {
            texts_[1] = without(without(texts_[1], ".psb"), ".fwf");
        }
    }

    GVariant* argument(char type, std::size_t& text) {
        switch (type) {
            case 's':
                return g_variant_new_string(texts_.at(text++).c_str());
            case 'u':
                return g_variant_new_uint32(
                    static_cast<guint32>(upTo(random_, 3) == 0 ? random_() : upTo(random_, 4)));
            case 'i':
                return g_variant_new_string(
                    method_.interface == std::string(kProperties) ? kTransfer : "");
            default:
                return g_variant_new_string(upTo(random_, 1) == 0 ? "organizationName"
                                                                  : "organizationDomain");
        }
    }

    Random& random_;
    const Method& method_;
    std::array<std::string, 2> texts_;
};

// Arguments of types that no method takes.
GVariant* wrongArguments(Random& random) {
    const std::string text = hostileText(random);
    switch (upTo(random, 3)) {
        case 0:
            return g_variant_new("(xs)", static_cast<gint64>(random()), text.c_str());
        case 1:
            return g_variant_new("(ssss)", text.c_str(), "", "", "");
        case 2:
            return g_variant_new("(v)", g_variant_new_string(text.c_str()));
        default:
            return g_variant_new("(a{sv})", nullptr);
    }
}

// ---- the judgement --------------------------------------------------------------------------

// What does not exist or is not allowed: the bus's policy answers some of it, GLib the rest.
const std::set<std::string> kRefusals{"org.freedesktop.DBus.Error.UnknownMethod",
                                      "org.freedesktop.DBus.Error.InvalidArgs",
                                      "org.freedesktop.DBus.Error.AccessDenied"};

// What one call may be answered.
struct Expected {
    std::string what;                // for a complaint
    std::string type;                // of the reply; empty: an error
    std::set<std::string> errors{};  // their names
};

bool isFlatList(GVariant* list) {
    return g_variant_n_children(list) % 4 == 0;
}

// A count is that of the records, or 0 with the placeholder.
bool countFits(GVariant* reply) {
    g_autoptr(GVariant) box = g_variant_get_child_value(reply, 0);
    g_autoptr(GVariant) tuple = g_variant_get_variant(box);
    g_autoptr(GVariant) word = g_variant_get_child_value(reply, 1);
    const std::size_t count = g_variant_is_of_type(word, G_VARIANT_TYPE_UINT32) != FALSE
                                  ? g_variant_get_uint32(word)
                                  : static_cast<std::size_t>(g_variant_get_int32(word));
    const std::size_t records = g_variant_n_children(tuple) / 4;
    return isFlatList(tuple) && records <= 63 && (count == records || (count == 0 && records == 1));
}

bool isJobResult(GVariant* reply) {
    gint32 result = 0;
    g_variant_get(reply, "(i)", &result);
    return result >= -1 && result <= 5 && result != 4;
}

// What is wrong with a reply of the right type; empty when nothing is.
std::string faultOf(GVariant* reply) {
    const std::string type = g_variant_get_type_string(reply);
    if (type == "(av)") {
        g_autoptr(GVariant) list = g_variant_get_child_value(reply, 0);
        return isFlatList(list) ? "" : "no multiple of four elements";
    }
    if (type == "(vu)" || type == "(vi)") {
        return countFits(reply) ? "" : "the count does not fit the tuple";
    }
    if (type == "(i)") {
        return isJobResult(reply) ? "" : "no result of a job";
    }
    return "";
}

// ---- the run --------------------------------------------------------------------------------

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
        if (reply != nullptr) {
            const std::string type = g_variant_get_type_string(reply);
            complain(expected, type == expected.type ? faultOf(reply) : "answered by " + type);
            return;
        }
        const std::unique_ptr<char, decltype(&g_free)> name(g_dbus_error_get_remote_error(error),
                                                            g_free);
        const bool wanted = name != nullptr && expected.errors.count(name.get()) != 0;
        complain(expected, wanted ? "" : error->message);
    }

    void complain(const Expected& expected, const std::string& fault) {
        if (!fault.empty()) {
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
