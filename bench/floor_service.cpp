// The least that a service on the bus can do: answers a call without arguments with nothing.
#include "com.morvane.bench/com.morvane.bench.h"

namespace {

gboolean onNothing(MorvaneBench* skeleton, GDBusMethodInvocation* invocation, gpointer /*data*/) {
    morvane_bench_complete_nothing(skeleton, invocation);
    return TRUE;
}

void onNameAcquired(GDBusConnection* connection, const gchar* /*name*/, gpointer skeleton) {
    g_dbus_interface_skeleton_export(G_DBUS_INTERFACE_SKELETON(skeleton), connection, "/floor",
                                     nullptr);
}

}  // namespace

int main() {
    GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
    MorvaneBench* const skeleton = morvane_bench_skeleton_new();
    g_signal_connect(skeleton, "handle-nothing", G_CALLBACK(onNothing), nullptr);
    g_bus_own_name(G_BUS_TYPE_SYSTEM, "com.morvane.bench", G_BUS_NAME_OWNER_FLAGS_NONE, nullptr,
                   onNameAcquired, nullptr, skeleton, nullptr);
    g_main_loop_run(loop);
}
