// The sandbox's system bus as a client of the service sees it.
#pragma once

#include <gio/gio.h>
#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>

#include "transfer/contract.h"

namespace test_support {

// For what a class holds or a function returns; a local variable is a g_autoptr.
template <auto release>
struct Release {
    template <typename T>
    void operator()(T* object) const {
        release(object);
    }
};
template <typename T>
using ObjectPtr = std::unique_ptr<T, Release<g_object_unref>>;
using VariantPtr = std::unique_ptr<GVariant, Release<g_variant_unref>>;

// A value in GVariant's text form with types, as golden files hold it; "" for null.
std::string asText(GVariant* value);

// What came back from a call: the reply's tuple, or a D-Bus error.
struct Reply {
    VariantPtr value;  // null when there is an error
    std::string error;  // the D-Bus error's name, empty on success
    std::string message;  // the error's text

    std::string type() const;  // such as "(av)"; empty on error
    std::string printed() const;  // asText() of the value, or "error NAME"
};

// A connection of its own, so that each object is one client. Usable from one thread at a time;
// needs no main loop. Constructing throws std::runtime_error when there is no bus.
class SystemBus {
public:
    SystemBus();
    ~SystemBus();
    SystemBus(const SystemBus&) = delete;
    SystemBus& operator=(const SystemBus&) = delete;

    GDBusConnection* connection() const { return connection_.get(); }

    // Calls a method and waits for the answer; a floating `arguments` is taken over.
    Reply call(const std::string& path, const std::string& interface, const std::string& method,
               GVariant* arguments = nullptr, const std::string& destination = kServiceName) const;

    // A method of the transfer interface.
    Reply transfer(const std::string& method, GVariant* arguments = nullptr) const;

    // Sends a signal to whoever listens; returns once the bus has it.
    void emitSignal(const std::string& path, const std::string& interface,
                    const std::string& signal, GVariant* arguments) const;

    // Owns a name at once, or returns false. It is given up with the connection or by releaseName.
    bool ownName(const std::string& name,
                 GBusNameOwnerFlags flags = G_BUS_NAME_OWNER_FLAGS_NONE) const;
    void releaseName(const std::string& name) const;

    // Answers from the bus itself, also when there is no bus: then nothing.
    static std::optional<pid_t> processOf(const std::string& name);
    static bool hasOwner(const std::string& name) { return processOf(name).has_value(); }

private:
    ObjectPtr<GDBusConnection> connection_;
};

}  // namespace test_support
