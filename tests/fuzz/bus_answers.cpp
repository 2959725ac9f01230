// What calls over the bus may be answered.
#include "tests/fuzz/bus_answers.h"

#include <gio/gio.h>

#include <cstddef>
#include <memory>

namespace fuzz {
namespace {

bool isFlatList(GVariant* list) {
    return g_variant_n_children(list) % 4 == 0;
}

// A count is that of the records, or 0 with the placeholder.
bool countFits(GVariant* reply) {
    g_autoptr(GVariant) box = g_variant_get_child_value(reply, 0);
    g_autoptr(GVariant) tuple = g_variant_get_variant(box);
    g_autoptr(GVariant) word = g_variant_get_child_value(reply, 1);
    const std::size_t count = g_variant_is_of_type(word, G_VARIANT_TYPE_UINT32) != FALSE
                                  ? g_variant_get_uint32(word)
                                  : static_cast<std::size_t>(g_variant_get_int32(word));
    const std::size_t records = g_variant_n_children(tuple) / 4;
    return isFlatList(tuple) && records <= 63 && (count == records || (count == 0 && records == 1));
}

bool isJobResult(GVariant* reply) {
    gint32 result = 0;
    g_variant_get(reply, "(i)", &result);
    return result >= -1 && result <= 5 && result != 4;
}

// What is wrong with a reply of the right type; empty when nothing is.
std::string faultOfReply(GVariant* reply) {
    const std::string type = g_variant_get_type_string(reply);
    if (type == "(av)") {
        g_autoptr(GVariant) list = g_variant_get_child_value(reply, 0);
        return isFlatList(list) ? "" : "no multiple of four elements";
    }
    if (type == "(vu)" || type == "(vi)") {
        return countFits(reply) ? "" : "the count does not fit the tuple";
    }
    if (type == "(i)") {
        return isJobResult(reply) ? "" : "no result of a job";
    }
    return "";
}

}  // namespace

std::string faultOf(const Expected& expected, GVariant* reply, const GError* error) {
    if (reply != nullptr) {
        const std::string type = g_variant_get_type_string(reply);
        return type == expected.type ? faultOfReply(reply) : "answered by " + type;
    }
    const std::unique_ptr<char, decltype(&g_free)> name(g_dbus_error_get_remote_error(error),
                                                        g_free);
    const bool wanted = name != nullptr && expected.errors.count(name.get()) != 0;
    return wanted ? "" : error->message;
}

}  // namespace fuzz
