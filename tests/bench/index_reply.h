// One directory, its listing, and the reply with it.
#pragma once

#include <gio/gio.h>

#include <string>

#include "tests/support/device/stick.h"
#include "transfer/reply_encoding.h"
#include "transfer/tf_mngr.h"

namespace bench {

// "N files"
inline std::string counted(int files) {
    return std::to_string(files) + " files";
}

// Makes a directory of that name with so many files and returns the name.
inline std::string fillDirectory(const test_support::Stick& stick, int files) {
    const std::string directory = counted(files);
    for (int number = 0; number < files; ++number) {
        stick.addFile(directory + "/DEVICE-" + std::to_string(number) + ".psb", "");
    }
    return directory;
}

// The bytes of a message that carries `body`, which is taken over when it is floating. Returns
// their number.
inline gsize marshal(GVariant* body) {
    g_autoptr(GDBusMessage) message = g_dbus_message_new();
    g_dbus_message_set_message_type(message, G_DBUS_MESSAGE_TYPE_METHOD_RETURN);
    g_dbus_message_set_reply_serial(message, 1);
    g_dbus_message_set_serial(message, 1);
    g_dbus_message_set_body(message, body);
    gsize size = 0;
    g_autofree guchar* bytes =
        g_dbus_message_to_blob(message, &size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr);
    return bytes != nullptr ? size : 0;
}

// The body of GetDirectoryIndex's reply, floating.
inline GVariant* indexBody(TfMngr& manager, const std::string& stick,
                           const std::string& directory) {
    return g_variant_new("(@av)",
                         reply::fileArray(manager.getRestoreFilesList(stick, directory)).value);
}

}  // namespace bench
