// A stand-in for the device's applet control: owns com.morvane.scctrl and sends appletChanged.
#include "tests/support/bus/applet_control.h"

#include <future>
#include <stdexcept>
#include <thread>

namespace test_support {
namespace {

GDBusMessage* dropCalls(GDBusConnection* /*connection*/, GDBusMessage* message, gboolean incoming,
                        gpointer /*data*/) {
    const bool isCall = g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_METHOD_CALL;
    if (incoming != FALSE && isCall) {
        g_object_unref(message);
        return nullptr;
    }
    return message;
}

gboolean quit(gpointer loop) {
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
    return G_SOURCE_REMOVE;
}

}  // namespace

// The exported object and the main loop that answers for it.
class AppletControl::Server {
public:
    explicit Server(GDBusConnection* connection)
        : context_(g_main_context_new()),
          loop_(g_main_loop_new(context_, FALSE)),
          skeleton_(morvane_scctrl_skeleton_new()) {
        std::promise<bool> exported;
        std::future<bool> result = exported.get_future();
        thread_ = std::thread([this, connection, &exported] { run(connection, exported); });
        if (!result.get()) {
            stop();
            throw std::runtime_error("cannot export the applet control");
        }
    }

    ~Server() { stop(); }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

private:
    // Calls are answered on the context that is the thread's own at the moment of the export.
    void run(GDBusConnection* connection, std::promise<bool>& exported) {
        g_main_context_push_thread_default(context_);
        GDBusInterfaceSkeleton* skeleton = G_DBUS_INTERFACE_SKELETON(skeleton_.get());
        exported.set_value(g_dbus_interface_skeleton_export(skeleton, connection,
                                                            kAppletControlPath, nullptr) != FALSE);
        g_main_loop_run(loop_);
        if (g_dbus_interface_skeleton_has_connection(skeleton, connection)) {
            g_dbus_interface_skeleton_unexport(skeleton);
        }
        g_main_context_pop_thread_default(context_);
    }

    void stop() {
        if (!thread_.joinable()) {
            return;
        }
        // From within the loop: a quit before the loop runs would be forgotten.
        GSource* source = g_idle_source_new();
        g_source_set_callback(source, quit, loop_, nullptr);
        g_source_attach(source, context_);
        g_source_unref(source);
        thread_.join();
        g_main_loop_unref(loop_);
        g_main_context_unref(context_);
    }

    GMainContext* context_;
    GMainLoop* loop_;
    ObjectPtr<MorvaneScctrl> skeleton_;
    std::thread thread_;
};

AppletControl::AppletControl(Answers answers) {
    if (answers == Answers::kYes) {
        server_ = std::make_unique<Server>(bus_.connection());
    } else {
        g_dbus_connection_add_filter(bus_.connection(), dropCalls, nullptr, nullptr);
    }
    if (!bus_.ownName(kAppletControlName)) {
        throw std::runtime_error("cannot own the applet control's name");
    }
}

AppletControl::~AppletControl() = default;

void AppletControl::emitAppletChanged(int id) const {
    bus_.emitSignal(kAppletControlPath, kAppletControlInterface, "appletChanged",
                    g_variant_new("(i)", id));
}

}  // namespace test_support
