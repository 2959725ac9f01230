// From the start of the program to the name on the bus, and to the first good answer.
#include <fstream>
#include <memory>
#include <stdexcept>

#include "tests/bench/bench.h"
#include "tests/bench/services.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/namespace_process.h"

namespace bench {
namespace {

constexpr int kRounds = 25;
constexpr const char* kStampFile = "/tmp/start-stamp";

// Notes when a name gets an owner.
class NameWatch {
public:
    NameWatch(const SystemBus& bus, const char* name) : connection_(bus.connection()) {
        subscription_ = g_dbus_connection_signal_subscribe(
            connection_, "org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged",
            "/org/freedesktop/DBus", name, G_DBUS_SIGNAL_FLAGS_NONE, onChange, this, nullptr);
        bus.call("/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId", nullptr,
                 "org.freedesktop.DBus");  // after it the bus has the subscription
    }
    ~NameWatch() { g_dbus_connection_signal_unsubscribe(connection_, subscription_); }
    NameWatch(const NameWatch&) = delete;
    NameWatch& operator=(const NameWatch&) = delete;

    // The time when it happened, in microseconds of the monotonic clock.
    gint64 waitUntilOwned() const {
        while (ownedAt_ == 0) {
            g_main_context_iteration(nullptr, TRUE);
        }
        return ownedAt_;
    }

private:
    static void onChange(GDBusConnection* /*connection*/, const gchar* /*sender*/,
                         const gchar* /*path*/, const gchar* /*interface*/, const gchar* /*signal*/,
                         GVariant* arguments, gpointer data) {
        const gchar* owner = nullptr;
        g_variant_get(arguments, "(&s&s&s)", nullptr, nullptr, &owner);
        if (*owner != '\0') {
            static_cast<NameWatch*>(data)->ownedAt_ = g_get_monotonic_time();
        }
    }

    GDBusConnection* connection_;
    guint subscription_;
    gint64 ownedAt_ = 0;
};

// Microseconds from the start of the program.
struct Start {
    double owned;
    double answered;
};

double stampedStart() {
    std::ifstream file(kStampFile);
    double nanoseconds = 0;
    if (!(file >> nanoseconds)) {
        throw std::runtime_error("the start was not stamped");
    }
    return nanoseconds / 1e3;
}

// Starts the program in a PID namespace, as whatever may reach the other processes has to be.
Start timeStart(const SystemBus& bus, const Target& target,
                const std::vector<std::string>& command) {
    const NameWatch watch(bus, target.name);
    std::vector<std::string> stamped{test_support::buildPath("tests/bench/start_stamp"),
                                     kStampFile};
    stamped.insert(stamped.end(), command.begin(), command.end());
    test_support::NamespaceProcess program(onServiceCore(stamped));
    const auto owned = static_cast<double>(watch.waitUntilOwned());
    while (!answers(bus, target)) {
    }
    const auto answered = static_cast<double>(g_get_monotonic_time());
    const double start = stampedStart();
    program.kill();
    return {owned - start, answered - start};
}

}  // namespace

std::vector<Row> measureStartUp() {
    say("start-up");
    const SystemBus bus;
    const auto startFloor = [&bus](const char* program) {
        return timeStart(
            bus, kFloor,
            {test_support::buildPath("tests/bench/" + std::string(program)), "--announce"});
    };
    constexpr const char* kPlain = "floor_service";
    constexpr const char* kWithLibraries = "floor_service_cxx";
    const auto startService = [&bus] {
        return timeStart(bus, kService, {test_support::buildPath("com-morvane-transfer-service")});
    };
    Row owned{"exec to name owned",
              "the floor service, running the same two commands first",
              "us",
              Compared::Ratio,
              1.1,
              {},
              0,
              {},
              {}};
    Row answered = owned;
    answered.what = "exec to the first good answer";
    // What the service cannot do without: the C++ library and the device's.
    Row ownedWith = owned;
    ownedWith.floorIs += ", with the C++ and the device libraries";
    ownedWith.compared = Compared::Nothing;
    Row answeredWith = ownedWith;
    answeredWith.what = answered.what;
    startFloor(kPlain);
    startService();
    for (int round = 0; round < kRounds; ++round) {
        const Start floor = startFloor(kPlain);
        const Start service = startService();
        const Start floorWith = startFloor(kWithLibraries);
        owned.floor.push_back(floor.owned);
        owned.measured.push_back(service.owned);
        answered.floor.push_back(floor.answered);
        answered.measured.push_back(service.answered);
        ownedWith.floor.push_back(floorWith.owned);
        ownedWith.measured.push_back(service.owned);
        answeredWith.floor.push_back(floorWith.answered);
        answeredWith.measured.push_back(service.answered);
    }
    return {owned, answered, ownedWith, answeredWith};
}

}  // namespace bench
