// The least that a service on the bus can be: the commands that the transfer service runs when it
// starts, an empty method, a property, and replies from memory.
#include <cstdlib>
#include <map>
#include <string>

#include "com.morvane.bench/com.morvane.bench.h"
#include "transfer/reply_encoding.h"

namespace {

gboolean onNothing(MorvaneBench* skeleton, GDBusMethodInvocation* invocation, gpointer /*data*/) {
    morvane_bench_complete_nothing(skeleton, invocation);
    return TRUE;
}

// What the transfer service answers for a directory of so many files; see fillDirectory.
GVariant* makeList(guint files) {
    std::vector<FileEntry> entries;
    for (guint i = 0; i < files; ++i) {
        entries.push_back({FileEntry::kOther,
                           "DEVICE-" + std::to_string(i) + ".psb",
                           0,
                           std::to_string(files) + " files",
                           {}});
    }
    return g_variant_ref_sink(reply::fileArray(entries).value);
}

gboolean onList(MorvaneBench* skeleton, GDBusMethodInvocation* invocation, guint files,
                gpointer /*data*/) {
    static std::map<guint, GVariant*> lists;
    const auto list = lists.emplace(files, nullptr).first;
    if (list->second == nullptr) {
        list->second = makeList(files);
    }
    morvane_bench_complete_list(skeleton, invocation, list->second);
    return TRUE;
}

void onNameAcquired(GDBusConnection* connection, const gchar* /*name*/, gpointer skeleton) {
    g_dbus_interface_skeleton_export(G_DBUS_INTERFACE_SKELETON(skeleton), connection, "/floor",
                                     nullptr);
}

}  // namespace

int main() {
    for (const char* const command :
         {"touch /tmp/transfer.enabled",
          "/bin/sh /etc/morvane/transfer/transfer.sh TF_STATE_SNC_START true true"}) {
        if (std::system(command) != 0) {
            return 1;
        }
    }
    GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
    MorvaneBench* const skeleton = morvane_bench_skeleton_new();
    g_signal_connect(skeleton, "handle-nothing", G_CALLBACK(onNothing), nullptr);
    g_signal_connect(skeleton, "handle-list", G_CALLBACK(onList), nullptr);
    g_bus_own_name(G_BUS_TYPE_SYSTEM, "com.morvane.bench", G_BUS_NAME_OWNER_FLAGS_NONE, nullptr,
                   onNameAcquired, nullptr, skeleton, nullptr);
    g_main_loop_run(loop);
    return 0;
}
