// What the service does in its own process for one listing.
#pragma once

#include <gio/gio.h>

#include <string>

#include "transfer/reply_encoding.h"
#include "transfer/tf_mngr.h"

namespace bench {

// The bytes of a message that carries `body`, which is taken over. Returns their number.
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

// Everything that GetDirectoryIndex costs but the socket: the listing, its encoding, and the bytes
// of the message. Returns the number of entries.
inline std::size_t indexReply(TfMngr& manager, const std::string& stick,
                              const std::string& directory) {
    const reply::EncodedFiles list =
        reply::fileArray(manager.getRestoreFilesList(stick, directory));
    marshal(g_variant_new("(@av)", list.value));
    return list.records;
}

}  // namespace bench
