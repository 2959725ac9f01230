// The command that shows the service, the sticks and the applets come and go.
#include <glib-unix.h>

#include <csignal>
#include <map>
#include <optional>

#include "com.morvane.transfer/dbus-adaptor.h"
#include "transferctl/bus_connection.h"
#include "transferctl/bus_failure.h"
#include "transferctl/commands.h"
#include "transferctl/json_text.h"
#include "transferctl/output.h"
#include "transferctl/reply_decoding.h"
#include "transferctl/shown_text.h"
#include "transferctl/units.h"

namespace transferctl {
namespace {

constexpr guint kPollMilliseconds = 1000;
constexpr const char* kAppletControl = "com.morvane.scctrl";
constexpr const char* kAppletControlPath = "/scctrlIntf";

struct FreeLoop {
    void operator()(GMainLoop* loop) const { g_main_loop_unref(loop); }
};

// One event in both forms.
class Event {
public:
    explicit Event(const char* name) {
        g_autoptr(GDateTime) now = g_date_time_new_now_local();
        g_autofree gchar* clock = g_date_time_format(now, "%H:%M:%S");
        g_autofree gchar* full = g_date_time_format_iso8601(now);
        json_.text("time", full).text("event", name);
        text_ = clock;
    }

    // `words` may hold any bytes.
    Event& says(const std::string& words) {
        text_ += "  " + shownSafely(words);
        return *this;
    }
    JsonBuilding& json() { return json_; }

    void print(bool asJson) const { transferctl::print(asJson ? json_.line() : text_ + "\n"); }

private:
    std::string text_;
    JsonBuilding json_;
};

// Everything runs on the main context. Callbacks of GLib must not let exceptions through: they end
// the loop with a failure, which run() throws.
class Monitor {
public:
    explicit Monitor(const Options& options)
        : options_(options),
          connection_(connectToBus(Deadline(options.limit()))),
          loop_(g_main_loop_new(nullptr, FALSE)) {}

    void run();

private:
    template <typename Function>
    void guarded(const Function& function);

    void watchAll();
    void serviceCame(const char* owner);
    void serviceWent();
    void poll();
    void sawSticks(const std::vector<Stick>& sticks);
    void appletChanged(int id);
    void end(const Failure& failure);

    static void onAppeared(GDBusConnection* connection, const gchar* name, const gchar* owner,
                           gpointer self);
    static void onVanished(GDBusConnection* connection, const gchar* name, gpointer self);
    static void onSignal(GDBusConnection* connection, const gchar* sender, const gchar* path,
                         const gchar* interface, const gchar* signal, GVariant* arguments,
                         gpointer self);
    static void onProxy(GObject* source, GAsyncResult* result, gpointer self);
    static void onSticks(GObject* source, GAsyncResult* result, gpointer self);
    static void onClosed(GDBusConnection* connection, gboolean peer, GError* error, gpointer self);
    static gboolean onTime(gpointer self);
    static gboolean onInterrupt(gpointer self);

    const Options& options_;
    ObjectHolder<GDBusConnection> connection_;
    std::unique_ptr<GMainLoop, FreeLoop> loop_;
    std::string owner_;  // empty while there is none
    bool asks_ = false;  // a call is on its way
    std::map<std::string, Stick> sticks_;
    std::optional<Failure> failure_;
};

template <typename Function>
void Monitor::guarded(const Function& function) {
    try {
        function();
    } catch (const Failure& failure) {
        end(failure);
    }
}

void Monitor::end(const Failure& failure) {
    failure_ = failure;
    g_main_loop_quit(loop_.get());
}

void Monitor::run() {
    watchAll();
    g_main_loop_run(loop_.get());
    // The process ends next, and with it every watch.
    if (failure_) {
        throw Failure(*failure_);
    }
}

void Monitor::watchAll() {
    g_unix_signal_add(SIGINT, onInterrupt, this);
    g_unix_signal_add(SIGTERM, onInterrupt, this);
    g_signal_connect(connection_.get(), "closed", G_CALLBACK(onClosed), this);
    g_dbus_connection_signal_subscribe(connection_.get(), kAppletControl, kAppletControl,
                                       "appletChanged", kAppletControlPath, nullptr,
                                       G_DBUS_SIGNAL_FLAGS_NONE, onSignal, this, nullptr);
    g_bus_watch_name_on_connection(connection_.get(), kServiceName, G_BUS_NAME_WATCHER_FLAGS_NONE,
                                   onAppeared, onVanished, this, nullptr);
    g_timeout_add(kPollMilliseconds, onTime, this);
}

void Monitor::serviceCame(const char* owner) {
    owner_ = owner;
    Event event("service-appeared");
    event.says("service runs as " + owner_).json().text("owner", owner_);
    event.print(options_.json);
    poll();
}

void Monitor::serviceWent() {
    owner_.clear();
    sticks_.clear();
    Event("service-vanished").says("service is not there").print(options_.json);
}

void Monitor::poll() {
    if (owner_.empty() || asks_) {
        return;
    }
    asks_ = true;
    const auto flags = static_cast<GDBusProxyFlags>(G_DBUS_PROXY_FLAGS_DO_NOT_LOAD_PROPERTIES |
                                                    G_DBUS_PROXY_FLAGS_DO_NOT_CONNECT_SIGNALS |
                                                    G_DBUS_PROXY_FLAGS_DO_NOT_AUTO_START);
    morvane_transfer_sac_proxy_new(connection_.get(), flags, owner_.c_str(), kTransferPath, nullptr,
                                   onProxy, this);
}

void Monitor::onProxy(GObject* /*source*/, GAsyncResult* result, gpointer self) {
    auto* const monitor = static_cast<Monitor*>(self);
    g_autoptr(GError) error = nullptr;
    const ObjectHolder<MorvaneTransferSac> proxy(
        morvane_transfer_sac_proxy_new_finish(result, &error));
    if (!proxy) {
        monitor->end(failureOf(error));
        return;
    }
    g_dbus_proxy_set_default_timeout(G_DBUS_PROXY(proxy.get()),
                                     static_cast<int>(monitor->options_.limit().count()));
    morvane_transfer_sac_call_get_usbstick_details(proxy.get(), nullptr, onSticks, self);
}

void Monitor::onSticks(GObject* source, GAsyncResult* result, gpointer self) {
    auto* const monitor = static_cast<Monitor*>(self);
    monitor->asks_ = false;
    g_autoptr(GVariant) list = nullptr;
    g_autoptr(GError) error = nullptr;
    if (morvane_transfer_sac_call_get_usbstick_details_finish(MORVANE_TRANSFER_SAC(source), &list,
                                                              result, &error) != FALSE) {
        monitor->guarded([&] { monitor->sawSticks(decodeSticks(list)); });
        return;
    }
    // A service that has just come up or is just going is asked again at the next turn.
    const Failure failure = failureOf(error);
    if (failure.status() != ExitStatus::kNoService) {
        monitor->end(failure);
    }
}

void Monitor::sawSticks(const std::vector<Stick>& sticks) {
    if (owner_.empty()) {
        return;  // it has gone while it answered
    }
    std::map<std::string, Stick> now;
    for (const Stick& stick : sticks) {
        now.emplace(stick.name, stick);
        if (sticks_.count(stick.name) == 0) {
            Event event("stick-plugged");
            event
                .says("stick " + stick.name + " plugged, " + humanSize(stick.size) + ", " +
                      humanSize(stick.free) + " free")
                .json()
                .object("stick", toJson(stick));
            event.print(options_.json);
        }
    }
    for (const auto& [name, stick] : sticks_) {
        if (now.count(name) == 0) {
            Event event("stick-pulled");
            event.says("stick " + name + " pulled").json().object("stick", toJson(stick));
            event.print(options_.json);
        }
    }
    sticks_ = std::move(now);
}

void Monitor::appletChanged(int id) {
    Event event("applet-changed");
    event.says("applet " + std::to_string(id)).json().code("id", id);
    event.print(options_.json);
}

void Monitor::onAppeared(GDBusConnection* /*connection*/, const gchar* /*name*/, const gchar* owner,
                         gpointer self) {
    auto* const monitor = static_cast<Monitor*>(self);
    monitor->guarded([&] { monitor->serviceCame(owner); });
}

void Monitor::onVanished(GDBusConnection* connection, const gchar* /*name*/, gpointer self) {
    auto* const monitor = static_cast<Monitor*>(self);
    if (connection != nullptr) {
        monitor->guarded([&] { monitor->serviceWent(); });
    }
}

void Monitor::onSignal(GDBusConnection* /*connection*/, const gchar* /*sender*/,
                       const gchar* /*path*/, const gchar* /*interface*/, const gchar* /*signal*/,
                       GVariant* arguments, gpointer self) {
    auto* const monitor = static_cast<Monitor*>(self);
    if (g_variant_is_of_type(arguments, G_VARIANT_TYPE("(i)")) == FALSE) {
        return;
    }
    gint32 id = 0;
    g_variant_get(arguments, "(i)", &id);
    monitor->guarded([&] { monitor->appletChanged(id); });
}

void Monitor::onClosed(GDBusConnection* /*connection*/, gboolean /*peer*/, GError* /*error*/,
                       gpointer self) {
    static_cast<Monitor*>(self)->end({ExitStatus::kNoService, "the message bus has gone"});
}

gboolean Monitor::onTime(gpointer self) {
    static_cast<Monitor*>(self)->poll();
    return G_SOURCE_CONTINUE;
}

gboolean Monitor::onInterrupt(gpointer self) {
    g_main_loop_quit(static_cast<Monitor*>(self)->loop_.get());
    return G_SOURCE_CONTINUE;
}

}  // namespace

void watchService(const Options& options) {
    Monitor(options).run();
}

}  // namespace transferctl
