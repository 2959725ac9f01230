// The device-manager simulator: options, then serving until SIGTERM or SIGINT.
#include <gio/gio.h>
#include <glib-unix.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include "simulator/action_log.h"
#include "simulator/device_folder.h"
#include "simulator/device_manager_server.h"
#include "simulator/peer_protocol.h"
#include "simulator/simulated_device.h"

namespace {

constexpr int kUsageStatus = 2;

// As GOption fills them in; the strings live as long as the process.
struct Options {
    const char* state = kDefaultStateFolder;
    int port = kDeviceManagerPort;
    const char* credentialRecord = kDefaultCredentialRecord;
    char* makeUpdate = nullptr;
    char* order = nullptr;
    int listOrders = FALSE;
    char* setName = nullptr;
    int printName = FALSE;
    char** words = nullptr;
    SimulatorBehaviour behaviour;

    std::size_t wordCount() const { return words == nullptr ? 0 : g_strv_length(words); }
    std::string firstWord() const { return wordCount() == 0 ? "" : words[0]; }
};

int complain(const std::string& text, int status) {
    std::fprintf(stderr, "device-manager-simulator: %s\n", printable(text).c_str());
    return status;
}

// An option that is an order, given before the start.
gboolean takeOrder(const char* option, const char* value, gpointer options, GError** error) {
    const std::string text = value == nullptr ? "" : value;
    if (!carryOut(option + 2, text, static_cast<Options*>(options)->behaviour)) {
        g_set_error(error, G_OPTION_ERROR, G_OPTION_ERROR_BAD_VALUE, "%s: not such a value: %s",
                    option, text.c_str());
        return FALSE;
    }
    return TRUE;
}

bool parseOptions(Options& o, int* argc, char*** argv, GError** error) {
    std::vector<GOptionEntry> entries = {
        {"state", 0, 0, G_OPTION_ARG_FILENAME, &o.state,
         "Keep the simulated device in DIR (default /mnt/usrdata/device)", "DIR"},
        {"port", 0, 0, G_OPTION_ARG_INT, &o.port,
         "Listen on 127.0.0.1:PORT (default 5001; 0: any free port)", "PORT"},
        {"credential-record", 0, 0, G_OPTION_ARG_FILENAME, &o.credentialRecord,
         "The device's persistent record, created when missing; empty: accept any credential",
         "PATH"},
        {"make-update", 0, 0, G_OPTION_ARG_STRING, &o.makeUpdate,
         "Write an update file that installs VERSION to FILE, and end", "VERSION"},
        {"order", 0, 0, G_OPTION_ARG_STRING, &o.order,
         "Give ORDER to the device manager that runs, and end", "ORDER"},
        {"list-orders", 0, 0, G_OPTION_ARG_NONE, &o.listOrders,
         "Print the orders, their values and what they do, and end", nullptr},
        {"set-name", 0, 0, G_OPTION_ARG_FILENAME, &o.setName,
         "Give the device in the state folder the name TEXT, and end", "TEXT"},
        {"print-name", 0, 0, G_OPTION_ARG_NONE, &o.printName,
         "Print the name of the device in the state folder, and end", nullptr},
        {G_OPTION_REMAINING, 0, 0, G_OPTION_ARG_FILENAME_ARRAY, &o.words, nullptr, nullptr},
    };
    for (const SimulatorOrder& each : simulatorOrders()) {
        if (each.fault != nullptr || each.takesValue()) {
            const int flags = each.takesValue() ? 0 : G_OPTION_FLAG_NO_ARG;
            entries.push_back({each.name, 0, flags, G_OPTION_ARG_CALLBACK,
                               reinterpret_cast<gpointer>(takeOrder), each.help, each.value});
        }
    }
    entries.push_back({nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr});
    g_autoptr(GOptionContext) context = g_option_context_new("[FILE|VALUE]");
    g_option_context_set_summary(context, "A simulated device with its device manager.");
    GOptionGroup* const group = g_option_group_new(nullptr, nullptr, nullptr, &o, nullptr);
    g_option_group_add_entries(group, entries.data());
    g_option_context_set_main_group(context, group);
    return g_option_context_parse(context, argc, argv, error) != FALSE;
}

// The string to complain about, empty when the options make sense.
std::string contradiction(const Options& o) {
    SimulatorBehaviour scratch;
    if (o.makeUpdate != nullptr && o.wordCount() != 1) {
        return "--make-update needs a version and one file";
    }
    if (o.order != nullptr && (o.wordCount() > 1 || !carryOut(o.order, o.firstWord(), scratch))) {
        return std::string("not an order: ") + o.order + " " + o.firstWord();
    }
    if (o.makeUpdate == nullptr && o.order == nullptr && o.wordCount() != 0) {
        return "unexpected argument " + o.firstWord();
    }
    if (o.port < 0 || o.port > G_MAXUINT16) {
        return "not a port number";
    }
    return {};
}

// Returns the behaviour of the device manager that runs on the port, as it is after the order.
std::string giveOrder(int port, const char* order, const std::string& value) {
    g_autoptr(GError) error = nullptr;
    const auto connection = openConnection(("127.0.0.1:" + std::to_string(port)).c_str(), &error);
    g_autoptr(GVariant) reply = nullptr;
    if (connection != nullptr) {
        reply = g_dbus_connection_call_sync(
            connection.get(), nullptr, kDeviceManagerObject, kDeviceManagerInterface, "Order",
            g_variant_new("(^ay^ay)", order, value.c_str()), G_VARIANT_TYPE("(s)"),
            G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
    }
    if (reply == nullptr) {
        g_dbus_error_strip_remote_error(error);
        throw DeviceError(DeviceManagerStatus::unreachable, error->message);
    }
    const char* behaviour = nullptr;
    g_variant_get(reply, "(&s)", &behaviour);
    return behaviour;
}

void listOrders() {
    for (const SimulatorOrder& each : simulatorOrders()) {
        std::printf("%s%s%s\t%s\n", each.name, each.takesValue() ? " " : "", each.value, each.help);
    }
}

gboolean quit(gpointer loop) {
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
    return G_SOURCE_CONTINUE;
}

// The port comes first: a second simulator must not touch the state of the first.
int serve(const Options& o) {
    g_autoptr(GError) error = nullptr;
    auto socket = bindDeviceManagerPort(static_cast<guint16>(o.port), &error);
    if (socket == nullptr) {
        return complain(std::string("cannot listen: ") + error->message, EXIT_FAILURE);
    }
    const std::string address = g_dbus_server_get_client_address(socket.get());
    const std::string endpoint = "127.0.0.1:" + address.substr(address.rfind('=') + 1);
    const std::string record = o.credentialRecord;
    if (!record.empty()) {
        createCredentialRecord(record);
    }
    SimulatedDevice device(o.state);
    g_autoptr(GMainLoop) loop = g_main_loop_new(nullptr, FALSE);
    g_unix_signal_add(SIGTERM, quit, loop);
    g_unix_signal_add(SIGINT, quit, loop);
    const DeviceManagerServer server(device, o.behaviour, record, std::move(socket));
    logAction("device manager", "listens on " + endpoint + ", " + device.name() + ", firmware " +
                                    device.firmwareVersion() + ", state in " + o.state);
    g_main_loop_run(loop);
    logAction("device manager", "stops");
    return EXIT_SUCCESS;
}

int run(const Options& o) {
    if (o.makeUpdate != nullptr) {
        writeUpdateFile(o.firstWord(), o.makeUpdate);
    } else if (o.order != nullptr) {
        std::printf("%s\n", giveOrder(o.port, o.order, o.firstWord()).c_str());
    } else if (o.listOrders != FALSE) {
        listOrders();
    } else if (o.setName != nullptr) {
        setDeviceName(o.state, o.setName);
    } else if (o.printName != FALSE) {
        std::printf("%s\n", deviceName(o.state).c_str());
    } else {
        return serve(o);
    }
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);  // a log that nobody reads any more is no reason to stop
    static Options options;
    g_autoptr(GError) error = nullptr;
    if (!parseOptions(options, &argc, &argv, &error)) {
        return complain(error->message, kUsageStatus);
    }
    if (const std::string text = contradiction(options); !text.empty()) {
        return complain(text, kUsageStatus);
    }
    try {
        return run(options);
    } catch (const std::exception& failure) {
        return complain(failure.what(), EXIT_FAILURE);
    }
}
