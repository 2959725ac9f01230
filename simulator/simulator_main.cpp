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
#include "simulator/device_manager_server.h"
#include "simulator/peer_protocol.h"
#include "simulator/simulated_device.h"

namespace {

constexpr int kUsageStatus = 2;
constexpr double kMaxSeconds = 86400;

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
    char** files = nullptr;
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
        {G_OPTION_REMAINING, 0, 0, G_OPTION_ARG_FILENAME_ARRAY, &o.files, nullptr, nullptr},
        {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr},
    };
    g_autoptr(GOptionContext) context = g_option_context_new("[FILE]");
    g_option_context_set_summary(context, "A simulated device with its device manager.");
    g_option_context_add_main_entries(context, entries, nullptr);
    return g_option_context_parse(context, argc, argv, error) != FALSE;
}

// The text to complain about, empty when the options make sense.
std::string contradiction() {
    const Options& o = options();
    const bool hasOneFile = o.files != nullptr && o.files[0] != nullptr && o.files[1] == nullptr;
    if (o.makeUpdate != nullptr && !hasOneFile) {
        return "--make-update needs a version and one file";
    }
    if (o.makeUpdate == nullptr && o.files != nullptr) {
        return std::string("unexpected argument ") + o.files[0];
    }
    if (o.port < 0 || o.port > G_MAXUINT16) {
        return "not a port number";
    }
    if (!(o.jobSeconds >= 0 && o.jobSeconds <= kMaxSeconds) || o.delayMs < 0) {
        return "not a time";
    }
    return {};
}

SimulatorBehaviour behaviour() {
    const Options& o = options();
    SimulatorBehaviour wanted;
    wanted.credentialRecord =
        o.credentialRecord == nullptr ? kDefaultCredentialRecord : o.credentialRecord;
    wanted.jobTime = std::chrono::milliseconds(static_cast<int>(o.jobSeconds * 1000));
    wanted.delay = std::chrono::milliseconds(o.delayMs);
    wanted.refuse = o.refuse != FALSE;
    wanted.hang = o.hang != FALSE;
    wanted.dieInJob = o.dieInJob != FALSE;
    if (o.reportedSize >= 0) {
        wanted.reportedSize = static_cast<std::uint64_t>(o.reportedSize);
    }
    return wanted;
}

int makeUpdate() {
    writeUpdateFile(options().files[0], options().makeUpdate);
    return EXIT_SUCCESS;
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
    const std::string state = options().state == nullptr ? kDefaultStateFolder : options().state;
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
        return options().makeUpdate == nullptr ? serve() : makeUpdate();
    } catch (const std::exception& failure) {
        return complain(failure.what(), EXIT_FAILURE);
    }
}
