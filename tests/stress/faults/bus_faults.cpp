// A message bus that dies, misbehaves, or carries what nobody should send.
#include "tests/stress/faults/bus_faults.h"

#include <cstdio>
#include <cstring>

#include "tests/stress/faults/request_trials.h"
#include "tests/support/bus/bus_daemon.h"
#include "tests/support/device/transfer_script.h"
#include "tests/support/process/waiting.h"

namespace faults {
namespace {

using test_support::BusOutage;
using test_support::Reply;
using test_support::ServiceOptions;
using test_support::ServiceProcess;
using test_support::SystemBus;

// Later than any that the bus itself has used.
constexpr guint32 kSerial = 9999;

ServiceOptions serviceOptions(bool asDaemon) {
    ServiceOptions options;
    if (asDaemon) {
        options.arguments = {"-d"};
    }
    return options;
}

std::string nameOf(const char* what, bool asDaemon) {
    return std::string(what) + (asDaemon ? ", a daemon" : ", in the foreground");
}

// A call of the service, in little-endian order, as it goes over the wire.
std::string soundCall() {
    const Message call(g_dbus_message_new_method_call(nullptr, test_support::kTransferPath,
                                                      test_support::kTransferInterface,
                                                      "GetUSBStickDetails"));
    g_dbus_message_set_byte_order(call.get(), G_DBUS_MESSAGE_BYTE_ORDER_LITTLE_ENDIAN);
    return bytesOf(call.get(), kSerial);
}

struct Mistake {
    const char* name;
    std::size_t place;  // of a byte in soundCall()
    char byte;
    const char* end = "status 2";  // of a service to which the bus itself sends it
};

// The fixed part of a message: byte order, type, flags, version, length of the body, serial, length
// of the fields, first field.
constexpr Mistake kMistakes[] = {
    {"an unknown byte order", 0, 'x'},
    {"the other byte order", 0, 'B'},
    {"no type", 1, 0},
    {"an unknown protocol version", 3, 9},
    {"a body that is missing", 7, 0x7F},
    // GLib has no answer to it and uses the one that it has not. A real bus never passes it on.
    {"serial 0", 8, 0, "SIGSEGV"},
    {"fields beyond the end", 15, 0x7F},
    {"an unknown field", 16, 99},
    {"a field of another type", 18, 'q'},
};

std::string withMistake(const Mistake& mistake) {
    std::string bytes = soundCall();
    bytes.at(mistake.place) = mistake.byte;
    if (std::strcmp(mistake.name, "serial 0") == 0) {
        bytes.replace(mistake.place, 4, 4, '\0');
    }
    return bytes;
}

Message error(GDBusMessage* call) {
    return Message(
        g_dbus_message_new_method_error_literal(call, "org.freedesktop.DBus.Error.Failed", "no"));
}

Message hangUp(GDBusMessage* /*call*/) {
    return nullptr;
}

// Replies with this body, which is taken over.
Message reply(GDBusMessage* call, GVariant* body) {
    Message message(g_dbus_message_new_method_reply(call));
    g_dbus_message_set_body(message.get(), body);
    return message;
}

Manners answering(const char* member, std::function<Message(GDBusMessage*)> answer) {
    Manners manners;
    manners.answers.emplace(member, std::move(answer));
    return manners;
}

}  // namespace

BusTrials::BusTrials(const Scene& scene, Selection& selection, Report& report)
    : scene_(scene), selection_(selection), report_(report) {}

void BusTrials::run() {
    if (selection_.mayWant(group::kBus)) {
        scene_.prepare();
        killBus();
        sendAsStranger();
        misbehave();
    }
}

void BusTrials::tryOne(const std::string& row, const std::string& name,
                       const std::function<Verdict()>& trial) {
    const std::string whole = row + " " + name;
    if (selection_.wants(group::kBus, row, whole)) {
        report_.add(group::kBus, row, whole, trial());
    }
}

// ---- the bus is killed ------------------------------------------------------------------------

void BusTrials::killBus() {
    const std::string row = "killed or absent";
    for (const bool asDaemon : {false, true}) {
        tryOne(row, nameOf("while it is used", asDaemon),
               [=] { return killWhileRunning(asDaemon); });
        tryOne(row, nameOf("during the start", asDaemon),
               [=] { return killDuringStart(asDaemon); });
        tryOne(row, nameOf("before the start", asDaemon),
               [=] { return startWithoutBus(asDaemon); });
    }
}

Verdict BusTrials::killWhileRunning(bool asDaemon) const {
    ServiceProcess service(serviceOptions(asDaemon));
    if (!service.waitUntilAnswers()) {
        return {Outcome::Wrong, "does not come up"};
    }
    {
        const BusOutage outage;
        service.waitForAllEnds();
    }
    return ended(endName(service.ends().back().end), asDaemon ? "status 1" : "status 2");
}

Verdict BusTrials::killDuringStart(bool asDaemon) const {
    const test_support::HeldTransferScript script;
    ServiceProcess service(serviceOptions(asDaemon));
    if (!script.waitUntilEntered()) {
        return {Outcome::Wrong, "does not start"};
    }
    {
        const BusOutage outage;
        script.release();
        service.waitForAllEnds();
    }
    return ended(endName(service.ends().back().end), "status 2");
}

Verdict BusTrials::startWithoutBus(bool asDaemon) const {
    std::string how;
    {
        const BusOutage outage;
        ServiceProcess service(serviceOptions(asDaemon));
        service.waitForAllEnds();
        how = endName(service.ends().back().end);
    }
    return ended(how, "status 2");
}

// The next start, on the real bus, has to be clean.
Verdict BusTrials::ended(const std::string& how, const std::string& wanted) const {
    const ServiceOptions options;
    ServiceProcess next(options);
    if (how != wanted || !next.waitUntilAnswers()) {
        return {Outcome::Wrong, "ended by " + how + ", not " + wanted + ", or no next start"};
    }
    return {Outcome::Ended, how};
}

// ---- strangers on the real bus ----------------------------------------------------------------

void BusTrials::sendAsStranger() {
    const std::string broken = "a stranger's broken message";
    for (const Mistake& mistake : kMistakes) {
        tryOne(broken, mistake.name, [&] { return sendBytes(withMistake(mistake)); });
    }
    tryOne(broken, "half of it", [this] { return sendBytes(soundCall().substr(0, 40)); });
    tryOne(broken, "64 KiB of zeros", [this] { return sendBytes(std::string(65536, '\0')); });

    const std::string forged = "a stranger's forged signal";
    const char* const path = "/org/freedesktop/DBus";
    const char* const bus = "org.freedesktop.DBus";
    for (const char* name : {"NameLost", "NameAcquired"}) {
        tryOne(forged, name, [=] {
            return sendSignal(path, bus, name, g_variant_new("(s)", test_support::kServiceName));
        });
    }
    tryOne(forged, "NameOwnerChanged", [=] {
        return sendSignal(path, bus, "NameOwnerChanged",
                          g_variant_new("(sss)", "com.morvane.scctrl", "", ":1.1"));
    });
    tryOne(forged, "appletChanged", [=] {
        return sendSignal("/scctrlIntf", "com.morvane.scctrl", "appletChanged",
                          g_variant_new("(i)", 0));
    });
    tryOne(forged, "Disconnected", [=] {
        return sendSignal("/org/freedesktop/DBus/Local", "com.morvane.Local", "Disconnected",
                          g_variant_new("()"));
    });
}

Verdict BusTrials::sendBytes(const std::string& bytes) const {
    Life life({});
    {
        const SystemBus stranger;
        GOutputStream* const out =
            g_io_stream_get_output_stream(g_dbus_connection_get_stream(stranger.connection()));
        g_output_stream_write_all(out, bytes.data(), bytes.size(), nullptr, nullptr, nullptr);
    }
    return life.settle().empty() && life.runs() &&
                   call(life.bus(), methodNamed("GetDirectoryIndex")).error.empty()
               ? Verdict{Outcome::Served, ""}
               : Verdict{Outcome::Wrong, "the service does not go on"};
}

Verdict BusTrials::sendSignal(const std::string& path, const std::string& interface,
                              const std::string& name, GVariant* arguments) const {
    Life life({});
    const SystemBus stranger;
    const Reply owner =
        stranger.call("/org/freedesktop/DBus", "org.freedesktop.DBus", "GetNameOwner",
                      g_variant_new("(s)", test_support::kServiceName), "org.freedesktop.DBus");
    const char* service = "";
    g_variant_get(owner.value.get(), "(&s)", &service);
    // To the service alone, so that no rule of it has to ask for the signal.
    g_dbus_connection_emit_signal(stranger.connection(), service, path.c_str(), interface.c_str(),
                                  name.c_str(), arguments, nullptr);
    // Answered behind the signal.
    const bool answers = call(stranger, methodNamed("GetDirectoryIndex")).error.empty();
    return answers && life.settle().empty() && life.runs()
               ? Verdict{Outcome::Served, ""}
               : Verdict{Outcome::Wrong, "the service does not go on"};
}

// ---- a bus of our own -------------------------------------------------------------------------

void BusTrials::misbehave() {
    const std::string start = "misbehaves when it is connected to";
    for (const auto& [name, greeting] :
         {std::pair{"hangs up", ""}, std::pair{"rejects", "REJECTED ANONYMOUS\r\n"},
          std::pair{"talks nonsense", "\x01\xFF what?\r\n"},
          std::pair{"sends no identity", "OK\r\n"}}) {
        tryOne(start, name, [=] { return misbehaveOnce({greeting, {}}); });
    }
    for (const char* member : {"Hello", "RequestName"}) {
        const std::string name = member;
        tryOne(start, name + " hangs up", [=] { return misbehaveOnce(answering(member, hangUp)); });
        tryOne(start, name + " fails", [=] { return misbehaveOnce(answering(member, error)); });
        tryOne(start, name + " gives another type", [=] {
            return misbehaveOnce(answering(member, [](GDBusMessage* call) {
                return reply(call, g_variant_new("(b)", TRUE));
            }));
        });
    }
    for (const guint32 result : {2U, 3U, 4U, 77U}) {
        tryOne(start, "RequestName gives " + std::to_string(result), [=] {
            return misbehaveOnce(answering("RequestName", [result](GDBusMessage* call) {
                return reply(call, g_variant_new("(u)", result));
            }));
        });
    }

    const std::string broken = "sends a broken message";
    for (const Mistake& mistake : kMistakes) {
        tryOne(broken, mistake.name,
               [&] { return misbehaveOnce({}, withMistake(mistake), mistake.end); });
    }
    const std::string forged = "sends what makes no sense";
    for (const char* name : {"NameLost", "NameAcquired"}) {
        tryOne(forged, name, [=] {
            return misbehaveOnce(
                {}, bytesOf(busSignal(name, test_support::kServiceName).get(), kSerial));
        });
    }
    tryOne(forged, "NameLost of another name", [=] {
        return misbehaveOnce({},
                             bytesOf(busSignal("NameLost", "com.morvane.other").get(), kSerial));
    });
    tryOne(forged, "a reply that nothing asked for", [this] {
        const Message call(g_dbus_message_new_method_call(nullptr, "/a", "a.b", "C"));
        g_dbus_message_set_serial(call.get(), kSerial);
        const Message answer(g_dbus_message_new_method_reply(call.get()));
        return misbehaveOnce({}, bytesOf(answer.get(), kSerial));
    });
}

Verdict BusTrials::misbehaveOnce(const Manners& manners, const std::string& bytes,
                                 const char* wanted) const {
    std::string how;
    {
        const BusOutage outage;
        FakeBus bus(manners);
        ServiceProcess service(serviceOptions(false));
        std::string type = bytes.empty() ? "" : bus.ask();
        if (type != "av" && !bytes.empty()) {
            return {Outcome::Wrong, "does not come up"};
        }
        if (!bytes.empty()) {
            bus.send(bytes);
        }
        type = bus.ask();
        if (bytes.empty() && !bus.hasMisbehaved()) {
            return {Outcome::Wrong, "the bus has not come to misbehave"};
        }
        if (type == "av") {
            return {Outcome::Served, ""};
        }
        const auto end = service.waitForCommandEnd();
        how = end ? endName(*end) : "nothing";
    }
    return ended(how, wanted);
}

}  // namespace faults
