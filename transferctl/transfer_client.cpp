// The transfer service as a client calls it.
#include "transferctl/transfer_client.h"

#include <algorithm>
#include <thread>

namespace transferctl {
namespace {

constexpr const char* kBusName = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";

// How long a service that owns its name may take to export its objects.
constexpr std::chrono::seconds kStartUp{2};
constexpr std::chrono::milliseconds kStartUpPause{10};

constexpr std::size_t kValuesPerRecord = 4;

template <typename... Codes>
bool isOneOf(const GError* error, Codes... codes) {
    return error->domain == G_DBUS_ERROR && ((error->code == codes) || ...);
}

bool isTimeout(const GError* error) {
    return isOneOf(error, G_DBUS_ERROR_TIMEOUT, G_DBUS_ERROR_TIMED_OUT) ||
           g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT) != FALSE ||
           g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED) != FALSE;
}

Failure timeLimitPassed() {
    return {ExitStatus::kTimeLimit,
            "the service has not answered within the time limit; --timeout sets a longer one"};
}

Failure failureOf(GError* error) {
    if (isOneOf(error, G_DBUS_ERROR_ACCESS_DENIED, G_DBUS_ERROR_AUTH_FAILED)) {
        return refused(
            "the bus policy does not let you call the service: only root and its group may");
    }
    if (isTimeout(error)) {
        return timeLimitPassed();
    }
    if (isOneOf(error, G_DBUS_ERROR_SERVICE_UNKNOWN, G_DBUS_ERROR_NAME_HAS_NO_OWNER,
                G_DBUS_ERROR_NO_REPLY)) {
        return noService("the service has ended without an answer");
    }
    g_dbus_error_strip_remote_error(error);
    return noService(std::string("the service answers with an error: ") + error->message);
}

[[noreturn]] void rejectReply() {
    throw noService("the service's reply does not follow its interface");
}

gboolean cancel(gpointer cancellable) {
    g_cancellable_cancel(static_cast<GCancellable*>(cancellable));
    return G_SOURCE_CONTINUE;
}

void keepResult(GObject* /*source*/, GAsyncResult* result, gpointer kept) {
    *static_cast<GAsyncResult**>(kept) = G_ASYNC_RESULT(g_object_ref(result));
}

// Asks the bus about a name. Null with an error.
GVariant* askBus(GDBusConnection* connection, const char* question, const std::string& name,
                 const Deadline& deadline, GError** error) {
    return g_dbus_connection_call_sync(
        connection, kBusName, kBusPath, kBusName, question, g_variant_new("(s)", name.c_str()),
        nullptr, G_DBUS_CALL_FLAGS_NONE, deadline.remaining(), nullptr, error);
}

std::string ownerOfService(GDBusConnection* connection, const Deadline& deadline) {
    g_autoptr(GError) error = nullptr;
    g_autoptr(GVariant) reply = askBus(connection, "GetNameOwner", kServiceName, deadline, &error);
    if (reply != nullptr) {
        const char* owner = nullptr;
        g_variant_get(reply, "(&s)", &owner);
        return owner;
    }
    if (isOneOf(error, G_DBUS_ERROR_NAME_HAS_NO_OWNER)) {
        throw noService(std::string("the service is not running: nobody owns the bus name ") +
                        kServiceName);
    }
    throw failureOf(error);
}

// Reads a flat list of boxed values, one after another.
class Values {
public:
    explicit Values(GVariant* list) {
        if (g_variant_iter_init(&iterator_, list) % kValuesPerRecord != 0) {
            rejectReply();
        }
    }

    std::size_t records() { return g_variant_iter_n_children(&iterator_) / kValuesPerRecord; }
    std::string string() { return g_variant_get_string(next("s").get(), nullptr); }
    std::uint64_t uint64() { return g_variant_get_uint64(next("t").get()); }
    std::uint32_t uint32() { return g_variant_get_uint32(next("u").get()); }

private:
    std::shared_ptr<GVariant> next(const char* type) {
        GVariant* value = nullptr;
        g_variant_iter_next(&iterator_, "v", &value);
        std::shared_ptr<GVariant> owned(value, g_variant_unref);
        if (g_variant_is_of_type(value, G_VARIANT_TYPE(type)) == FALSE) {
            rejectReply();
        }
        return owned;
    }

    GVariantIter iterator_{};
};

}  // namespace

int Deadline::remaining() const {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end_ - Clock::now());
    if (left.count() <= 0) {
        throw timeLimitPassed();
    }
    return static_cast<int>(left.count());
}

Connection connectToBus(const Deadline& deadline) {
    g_autoptr(GCancellable) cancellable = g_cancellable_new();
    g_autoptr(GAsyncResult) result = nullptr;
    const guint timer =
        g_timeout_add(static_cast<guint>(deadline.remaining()), cancel, cancellable);
    g_bus_get(G_BUS_TYPE_SYSTEM, cancellable, keepResult, &result);
    while (result == nullptr) {
        g_main_context_iteration(nullptr, TRUE);
    }
    g_source_remove(timer);
    g_autoptr(GError) error = nullptr;
    Connection connection(g_bus_get_finish(result, &error),
                          [](GDBusConnection* bus) { g_clear_object(&bus); });
    if (error != nullptr) {
        throw isTimeout(error)
            ? Failure(ExitStatus::kTimeLimit,
                      "the system bus has not answered within the time limit")
            : noService(std::string("cannot connect to the system bus: ") + error->message);
    }
    g_dbus_connection_set_exit_on_close(connection.get(), FALSE);
    return connection;
}

TransferClient::TransferClient(const Deadline& deadline)
    : TransferClient(connectToBus(deadline), "", deadline) {}

TransferClient::TransferClient(Connection connection, std::string owner, const Deadline& deadline)
    : deadline_(deadline),
      connection_(std::move(connection)),
      owner_(owner.empty() ? ownerOfService(connection_.get(), deadline_) : std::move(owner)) {
    const auto flags = static_cast<GDBusProxyFlags>(G_DBUS_PROXY_FLAGS_DO_NOT_LOAD_PROPERTIES |
                                                    G_DBUS_PROXY_FLAGS_DO_NOT_CONNECT_SIGNALS |
                                                    G_DBUS_PROXY_FLAGS_DO_NOT_AUTO_START);
    g_autoptr(GError) error = nullptr;
    MorvaneTransferSac* const proxy = morvane_transfer_sac_proxy_new_sync(
        connection_.get(), flags, owner_.c_str(), kTransferPath, nullptr, &error);
    if (proxy == nullptr) {
        throw failureOf(error);
    }
    proxy_.reset(proxy, g_object_unref);
}

std::string TransferClient::identity() const {
    return g_dbus_connection_get_guid(connection_.get()) + owner_;
}

unsigned TransferClient::process() const {
    g_autoptr(GError) error = nullptr;
    g_autoptr(GVariant) reply =
        askBus(connection_.get(), "GetConnectionUnixProcessID", owner_, deadline_, &error);
    if (reply == nullptr) {
        throw failureOf(error);
    }
    guint32 process = 0;
    g_variant_get(reply, "(u)", &process);
    return process;
}

// Calls a generated method with its arguments and places for its results.
template <typename Method, typename... Arguments>
void TransferClient::call(Method method, Arguments... arguments) {
    const Deadline startUp(kStartUp);
    while (true) {
        g_dbus_proxy_set_default_timeout(G_DBUS_PROXY(proxy_.get()), deadline_.remaining());
        g_autoptr(GError) error = nullptr;
        if (method(proxy_.get(), arguments..., nullptr, &error) != FALSE) {
            return;
        }
        const bool objectsAreMissing =
            isOneOf(error, G_DBUS_ERROR_UNKNOWN_METHOD, G_DBUS_ERROR_UNKNOWN_OBJECT,
                    G_DBUS_ERROR_UNKNOWN_INTERFACE);
        if (!objectsAreMissing || startUp.hasPassed()) {
            throw failureOf(error);
        }
        std::this_thread::sleep_for(kStartUpPause);
    }
}

template <typename Result, typename Method>
Result TransferClient::callWithPlace(Method method, const StickPath& place) {
    Result result{};
    call(method, place.stick.c_str(), place.path.c_str(), &result);
    return result;
}

std::vector<Stick> TransferClient::sticks() {
    g_autoptr(GVariant) reply = nullptr;
    call(morvane_transfer_sac_call_get_usbstick_details_sync, &reply);
    Values values(reply);
    std::vector<Stick> sticks(values.records());
    for (Stick& stick : sticks) {
        stick.name = values.string();
        values.string();  // the mount identifier, which is the name
        stick.size = values.uint64();
        stick.free = values.uint64();
    }
    return sticks;
}

void TransferClient::requireMounted(const std::string& stick) {
    const std::vector<Stick> mounted = sticks();
    if (std::none_of(mounted.begin(), mounted.end(),
                     [&stick](const Stick& one) { return one.name == stick; })) {
        throw refused("stick not mounted: " + stick);
    }
}

template <typename Method>
std::vector<File> TransferClient::list(Method method, const StickPath& place) {
    g_autoptr(GVariant) reply = callWithPlace<GVariant*>(method, place);
    Values values(reply);
    std::vector<File> files(values.records());
    for (File& file : files) {
        file.isDirectory = values.uint32() == 0;
        const std::string name = values.string();
        file.size = values.uint64();
        const std::string directory = values.string();
        const std::filesystem::path holder = directory == "/" ? "" : directory;
        file.place = {place.stick, holder / name};
    }
    return files;
}

std::vector<File> TransferClient::directory(const StickPath& place) {
    return list(morvane_transfer_sac_call_get_directory_index_sync, place);
}

std::optional<File> TransferClient::find(const StickPath& place) {
    for (const File& file : directory({place.stick, place.path.parent_path()})) {
        if (file.place.path == place.path) {
            return file;
        }
    }
    return std::nullopt;
}

std::vector<File> TransferClient::backups(const StickPath& place) {
    return list(morvane_transfer_sac_call_get_directory_index_for_backup_sync, place);
}

std::vector<File> TransferClient::updates(const StickPath& place) {
    return list(morvane_transfer_sac_call_get_directory_index_for_update_sync, place);
}

bool TransferClient::createDirectory(const StickPath& place) {
    return callWithPlace<gboolean>(morvane_transfer_sac_call_create_directory_sync, place) != FALSE;
}

bool TransferClient::deleteFile(const StickPath& place) {
    return callWithPlace<gboolean>(morvane_transfer_sac_call_delete_file_sync, place) != FALSE;
}

std::string TransferClient::proposedName() {
    g_autofree gchar* name = nullptr;
    constexpr auto kAnyKind = static_cast<guint>(BackupKind::kFull);  // the name is the same
    call(morvane_transfer_sac_call_get_backup_file_name_sync, kAnyKind, &name);
    if (*name == '\0') {
        throw refused(
            "the service proposes no name, as it cannot read the device's name; "
            "'backup --name' gives one");
    }
    return name;
}

JobResult TransferClient::startBackup(const StickPath& file, BackupKind kind) {
    gint code = 0;
    call(morvane_transfer_sac_call_do_backup_sync, file.stick.c_str(), static_cast<guint>(kind),
         file.path.c_str(), &code);
    return JobResult{code};
}

JobResult TransferClient::startRestore(const StickPath& file) {
    return JobResult{callWithPlace<gint>(morvane_transfer_sac_call_do_restore_sync, file)};
}

JobResult TransferClient::startUpdate(const StickPath& file) {
    return JobResult{callWithPlace<gint>(morvane_transfer_sac_call_do_osupdate_sync, file)};
}

}  // namespace transferctl
