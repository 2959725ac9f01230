// The device-manager simulator: options, then serving until SIGTERM or SIGINT.
#include <gio/gio.h>
#include <glib-unix.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "simulator/action_log.h"
#include "simulator/credential_record.h"
#include "simulator/device_layout.h"
#include "simulator/device_manager_order.h"
#include "simulator/device_manager_server.h"
#include "simulator/device_name.h"
#include "simulator/peer_protocol.h"
#include "simulator/simulated_device.h"

namespace {

constexpr int kUsageStatus = 2;

// As GOption fills them in; the texts are freed by nobody, since they live as long as the process.
struct Options {
    char* state = nullptr;
    int port = kDeviceManagerPort;
    char* credentialRecord = nullptr;
    double jobSeconds = 0.5;
    int delayMs = 0;
    gint64 reportedSize = -1;
    int refuse = FALSE;
    int hang = FALSE;
    int dieInJob = FALSE;
    char* makeUpdate = nullptr;
    char* order = nullptr;
    char* setName = nullptr;
    int printName = FALSE;
    char** words = nullptr;

    bool serves() const {
        return makeUpdate == nullptr && order == nullptr && setName == nullptr &&
               printName == FALSE;
    }
    std::string stateFolder() const { return state == nullptr ? kDefaultStateFolder : state; }
    std::size_t wordCount() const { return words == nullptr ? 0 : g_strv_length(words); }
    std::string firstWord() const { return wordCount() == 0 ? "" : words[0]; }
};

Options& options() {
    static Options values;
    return values;
}

int complain(const std::string& text, int status) {
    std::fprintf(stderr, "device-manager-simulator: %s\n", printable(text).c_str());
    return status;
}

bool parseOptions(int* argc, char*** argv, GError** error) {
    Options& o = options();
    const GOptionEntry entries[] = {
        {"state", 0, 0, G_OPTION_ARG_FILENAME, &o.state,
         "Keep the simulated device in DIR (default /mnt/usrdata/device)", "DIR"},
        {"port", 0, 0, G_OPTION_ARG_INT, &o.port,
         "Listen on 127.0.0.1:PORT (default 5001; 0: any free port)", "PORT"},
        {"credential-record", 0, 0, G_OPTION_ARG_FILENAME, &o.credentialRecord,
         "The device's persistent record, created when missing; empty: accept any credential",
         "PATH"},
        {"job-seconds", 0, 0, G_OPTION_ARG_DOUBLE, &o.jobSeconds,
         "Let a backup, restore or update take N seconds (default 0.5)", "N"},
        {"delay-ms", 0, 0, G_OPTION_ARG_INT, &o.delayMs, "Wait N milliseconds before each call",
         "N"},
        {"report-size", 0, 0, G_OPTION_ARG_INT64, &o.reportedSize,
         "Report BYTES as the size of every backup", "BYTES"},
        {"refuse", 0, 0, G_OPTION_ARG_NONE, &o.refuse, "Refuse every connection", nullptr},
        {"hang", 0, 0, G_OPTION_ARG_NONE, &o.hang, "Never answer a call", nullptr},
        {"die-in-job", 0, 0, G_OPTION_ARG_NONE, &o.dieInJob,
         "End with status 3 half-way through a job", nullptr},
        {"make-update", 0, 0, G_OPTION_ARG_STRING, &o.makeUpdate,
         "Write an update file that installs VERSION to FILE, and end", "VERSION"},
        {"order", 0, 0, G_OPTION_ARG_STRING, &o.order,
         "Give the device manager that runs ORDER (accept, refuse, delay SECONDS, hang, "
         "die-in-job, report-size BYTES, real-size, job-seconds N, status), and end",
         "ORDER"},
        {"set-name", 0, 0, G_OPTION_ARG_FILENAME, &o.setName,
         "Give the device in the state folder the name TEXT, and end", "TEXT"},
        {"print-name", 0, 0, G_OPTION_ARG_NONE, &o.printName,
         "Print the name of the device in the state folder, and end", nullptr},
        {G_OPTION_REMAINING, 0, 0, G_OPTION_ARG_FILENAME_ARRAY, &o.words, nullptr, nullptr},
        {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr},
    };
    g_autoptr(GOptionContext) context = g_option_context_new("[FILE|VALUE]");
    g_option_context_set_summary(context, "A simulated device with its device manager.");
    g_option_context_add_main_entries(context, entries, nullptr);
    return g_option_context_parse(context, argc, argv, error) != FALSE;
}

// The text to complain about, empty when the options make sense.
std::string contradiction() {
    const Options& o = options();
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
    if (!timeFromSeconds(o.jobSeconds) || o.delayMs < 0) {
        return "not a time";
    }
    return {};
}

SimulatorBehaviour behaviour() {
    const Options& o = options();
    SimulatorBehaviour wanted;
    wanted.credentialRecord =
        o.credentialRecord == nullptr ? kDefaultCredentialRecord : o.credentialRecord;
    wanted.jobTime = timeFromSeconds(o.jobSeconds).value_or(wanted.jobTime);
    wanted.delay = std::chrono::milliseconds(o.delayMs);
    wanted.refuse = o.refuse != FALSE;
    wanted.hang = o.hang != FALSE;
    wanted.dieInJob = o.dieInJob != FALSE;
    if (o.reportedSize >= 0) {
        wanted.reportedSize = static_cast<std::uint64_t>(o.reportedSize);
    }
    return wanted;
}

// Does what takes a moment only.
void act() {
    const Options& o = options();
    if (o.makeUpdate != nullptr) {
        writeUpdateFile(o.firstWord(), o.makeUpdate);
    } else if (o.order != nullptr) {
        const auto port = static_cast<guint16>(o.port);
        std::printf("%s\n", printable(giveOrder(port, o.order, o.firstWord())).c_str());
    } else if (o.setName != nullptr) {
        setDeviceName(o.stateFolder(), o.setName);
    } else {
        std::printf("%s\n", printable(deviceName(o.stateFolder())).c_str());
    }
}

gboolean quit(gpointer loop) {
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
    return G_SOURCE_CONTINUE;
}

// The port comes first: a second simulator must not touch the state of the first.
int serve() {
    g_autoptr(GError) error = nullptr;
    auto socket = bindDeviceManagerPort(static_cast<guint16>(options().port), &error);
    if (socket == nullptr) {
        return complain(std::string("cannot listen: ") + error->message, EXIT_FAILURE);
    }
    const std::string address = g_dbus_server_get_client_address(socket.get());
    const std::string endpoint = "127.0.0.1:" + address.substr(address.rfind('=') + 1);
    const SimulatorBehaviour wanted = behaviour();
    if (!wanted.credentialRecord.empty()) {
        createCredentialRecord(wanted.credentialRecord);
    }
    const std::string state = options().stateFolder();
    SimulatedDevice device(state);
    g_autoptr(GMainLoop) loop = g_main_loop_new(nullptr, FALSE);
    g_unix_signal_add(SIGTERM, quit, loop);
    g_unix_signal_add(SIGINT, quit, loop);
    const DeviceManagerServer server(device, wanted, std::move(socket));
    logAction("device manager", "listens on " + endpoint + ", " + device.name() + ", firmware " +
                                    device.firmwareVersion() + ", state in " + state);
    g_main_loop_run(loop);
    logAction("device manager", "stops");
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);  // a log that nobody reads any more is no reason to stop
    g_autoptr(GError) error = nullptr;
    if (!parseOptions(&argc, &argv, &error)) {
        return complain(error->message, kUsageStatus);
    }
    if (const std::string text = contradiction(); !text.empty()) {
        return complain(text, kUsageStatus);
    }
    try {
        if (options().serves()) {
            return serve();
        }
        act();
        return EXIT_SUCCESS;
    } catch (const std::exception& failure) {
        return complain(failure.what(), EXIT_FAILURE);
    }
}
