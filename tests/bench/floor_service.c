// The least that a service on the bus can do: an empty method, a property, and replies from memory.
//   floor_service [--announce]    with it the commands that the service runs when it starts come
//   first
#include <stdlib.h>
#include <string.h>

#include "com.morvane.bench/com.morvane.bench.h"

// The replies of List by their number of files, made when they are first asked for.
static GHashTable* lists;

static void addElement(GVariantBuilder* builder, GVariant* value) {
    g_variant_builder_add_value(builder, g_variant_new_variant(value));
}

// What the service answers for a directory that bench/services.h fills with so many files.
static GVariant* makeList(guint files) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("av"));
    for (guint number = 0; number < files; ++number) {
        addElement(&builder, g_variant_new_uint32(1));
        addElement(&builder, g_variant_new_take_string(g_strdup_printf("DEVICE-%u.psb", number)));
        addElement(&builder, g_variant_new_uint64(0));
        addElement(&builder, g_variant_new_take_string(g_strdup_printf("files of %u", files)));
    }
    return g_variant_ref_sink(g_variant_builder_end(&builder));
}

static gboolean onNothing(MorvaneBench* skeleton, GDBusMethodInvocation* invocation,
                          gpointer data) {
    (void)data;
    morvane_bench_complete_nothing(skeleton, invocation);
    return TRUE;
}

static gboolean onList(MorvaneBench* skeleton, GDBusMethodInvocation* invocation, guint files,
                       gpointer data) {
    (void)data;
    GVariant* list = g_hash_table_lookup(lists, GUINT_TO_POINTER(files));
    if (list == NULL) {
        list = makeList(files);
        g_hash_table_insert(lists, GUINT_TO_POINTER(files), list);
    }
    morvane_bench_complete_list(skeleton, invocation, list);
    return TRUE;
}

static void onNameAcquired(GDBusConnection* connection, const gchar* name, gpointer skeleton) {
    (void)name;
    g_dbus_interface_skeleton_export(G_DBUS_INTERFACE_SKELETON(skeleton), connection, "/floor",
                                     NULL);
}

static void announce(void) {
    const char* const commands[] = {
        "touch /tmp/transfer.enabled",
        "/bin/sh /etc/morvane/transfer/transfer.sh TF_STATE_SNC_START true true"};
    for (size_t i = 0; i < G_N_ELEMENTS(commands); ++i) {
        if (system(commands[i]) != 0) {
            exit(1);
        }
    }
}

int main(int argc, char** argv) {
    if (argc > 1 && strcmp(argv[1], "--announce") == 0) {
        announce();
    }
    GMainLoop* const loop = g_main_loop_new(NULL, FALSE);
    MorvaneBench* const skeleton = morvane_bench_skeleton_new();
    lists = g_hash_table_new(NULL, NULL);
    g_signal_connect(skeleton, "handle-nothing", G_CALLBACK(onNothing), NULL);
    g_signal_connect(skeleton, "handle-list", G_CALLBACK(onList), NULL);
    g_bus_own_name(G_BUS_TYPE_SYSTEM, "com.morvane.bench", G_BUS_NAME_OWNER_FLAGS_NONE, NULL,
                   onNameAcquired, NULL, skeleton, NULL);
    g_main_loop_run(loop);
    return 0;
}
