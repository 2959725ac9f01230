// The command that prints changes of the service, the sticks and the applet.
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <utility>

#include "transferctl/commands.h"
#include "transferctl/output.h"

namespace transferctl {
namespace {

constexpr guint kPollMilliseconds = 1000;

// What GLib's callbacks have seen since the last turn of the loop.
struct News {
    std::vector<std::string> owners;  // of the service's name; empty for none
    std::vector<int> applets;
    bool isTimeToPoll = false;
    bool isBusGone = false;
};

News& newsAt(gpointer news) {
    return *static_cast<News*>(news);
}

void onAppeared(GDBusConnection* /*connection*/, const gchar* /*name*/, const gchar* owner,
                gpointer news) {
    newsAt(news).owners.emplace_back(owner);
}

void onVanished(GDBusConnection* connection, const gchar* /*name*/, gpointer news) {
    if (connection != nullptr) {  // otherwise the bus has gone
        newsAt(news).owners.emplace_back();
    }
}

void onAppletChanged(GDBusConnection* /*connection*/, const gchar* /*sender*/,
                     const gchar* /*path*/, const gchar* /*interface*/, const gchar* /*signal*/,
                     GVariant* arguments, gpointer news) {
    if (g_variant_is_of_type(arguments, G_VARIANT_TYPE("(i)")) != FALSE) {
        gint32 id = 0;
        g_variant_get(arguments, "(i)", &id);
        newsAt(news).applets.push_back(id);
    }
}

void onClosed(GDBusConnection* /*connection*/, gboolean /*peer*/, GError* /*error*/,
              gpointer news) {
    newsAt(news).isBusGone = true;
}

gboolean onTime(gpointer news) {
    newsAt(news).isTimeToPoll = true;
    return G_SOURCE_CONTINUE;
}

void endQuietly(int /*signal*/) {
    _exit(static_cast<int>(ExitStatus::kDone));  // every line has been flushed
}

class Monitor {
public:
    explicit Monitor(const Options& options)
        : options_(options), connection_(connectToBus(Deadline(options.limit))) {}

    // Until a signal ends the process, or a Failure is thrown.
    void run();

private:
    void showOwner(const std::string& owner);
    void showSticks();
    void print(const char* event, const std::string& words, const char* key = nullptr,
               GVariant* value = nullptr) const;

    const Options& options_;
    Connection connection_;
    std::string owner_;  // empty while the service does not run
    std::vector<Stick> sticks_;
};

// As JSON the event has the member `key` unless that is null; a floating `value` is taken over.
void Monitor::print(const char* event, const std::string& words, const char* key,
                    GVariant* value) const {
    g_autoptr(GVariant) owned = value != nullptr ? g_variant_ref_sink(value) : nullptr;
    g_autoptr(GDateTime) now = g_date_time_new_now_local();
    g_autofree gchar* time =
        options_.json ? g_date_time_format_iso8601(now) : g_date_time_format(now, "%H:%M:%S");
    if (!options_.json) {
        transferctl::print(time + ("  " + safeText(words)) + "\n");
        return;
    }
    GVariantBuilder object;
    g_variant_builder_init(&object, G_VARIANT_TYPE_VARDICT);
    g_variant_builder_add_parsed(&object, "{'time', <%s>}", time);
    g_variant_builder_add_parsed(&object, "{'event', <%s>}", event);
    if (key != nullptr) {
        g_variant_builder_add(&object, "{sv}", key, owned);
    }
    printJson(g_variant_builder_end(&object));
}

void Monitor::showOwner(const std::string& owner) {
    owner_ = owner;
    if (owner_.empty()) {
        sticks_.clear();
        print("service-vanished", "service is not there");
    } else {
        print("service-appeared", "service runs as " + owner_, "owner",
              g_variant_new_string(owner_.c_str()));
    }
}

bool isIn(const std::vector<Stick>& sticks, const Stick& stick) {
    return std::any_of(sticks.begin(), sticks.end(),
                       [&stick](const Stick& one) { return one.name == stick.name; });
}

void Monitor::showSticks() {
    std::vector<Stick> now;
    try {
        now = TransferClient(connection_, owner_, Deadline(options_.limit)).sticks();
    } catch (const Failure& failure) {
        if (failure.status() == ExitStatus::kNoService) {
            return;  // it has just come or is just going
        }
        throw;
    }
    for (const Stick& stick : now) {
        if (!isIn(sticks_, stick)) {
            print("stick-plugged",
                  "stick " + stick.name + " plugged, " + humanSize(stick.size) + ", " +
                      humanSize(stick.free) + " free",
                  "stick", jsonOf(stick));
        }
    }
    for (const Stick& stick : sticks_) {
        if (!isIn(now, stick)) {
            print("stick-pulled", "stick " + stick.name + " pulled", "stick", jsonOf(stick));
        }
    }
    sticks_ = now;
}

void Monitor::run() {
    std::signal(SIGINT, endQuietly);
    std::signal(SIGTERM, endQuietly);
    News news;
    g_signal_connect(connection_.get(), "closed", G_CALLBACK(onClosed), &news);
    g_dbus_connection_signal_subscribe(
        connection_.get(), kAppletControlName, kAppletControlInterface, "appletChanged",
        kAppletControlPath, nullptr, G_DBUS_SIGNAL_FLAGS_NONE, onAppletChanged, &news, nullptr);
    g_bus_watch_name_on_connection(connection_.get(), kServiceName, G_BUS_NAME_WATCHER_FLAGS_NONE,
                                   onAppeared, onVanished, &news, nullptr);
    g_timeout_add(kPollMilliseconds, onTime, &news);
    while (!news.isBusGone) {
        g_main_context_iteration(nullptr, TRUE);
        for (const std::string& owner : std::exchange(news.owners, {})) {
            showOwner(owner);
        }
        for (const int id : std::exchange(news.applets, {})) {
            print("applet-changed", "applet " + std::to_string(id), "id", g_variant_new_int32(id));
        }
        if (std::exchange(news.isTimeToPoll, false) && !owner_.empty()) {
            showSticks();
        }
    }
    throw noService("the message bus has gone");
}

}  // namespace

void watchService(const Options& options) {
    Monitor(options).run();
}

}  // namespace transferctl
