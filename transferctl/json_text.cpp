// What --json prints: one object on one line, as docs/transferctl.md describes it.
#include "transferctl/json_text.h"

#include <algorithm>
#include <limits>

#include "transferctl/shown_text.h"

namespace transferctl {
namespace {

constexpr auto kLargest = static_cast<std::uint64_t>(std::numeric_limits<gint64>::max());

}  // namespace

JsonBuilding& JsonBuilding::text(const char* name, const std::string& value) {
    g_autofree gchar* valid = g_utf8_make_valid(value.data(), static_cast<gssize>(value.size()));
    json_object_set_string_member(object_.get(), name, valid);
    return *this;
}

JsonBuilding& JsonBuilding::number(const char* name, std::uint64_t value) {
    json_object_set_int_member(object_.get(), name, static_cast<gint64>(std::min(value, kLargest)));
    return *this;
}

JsonBuilding& JsonBuilding::code(const char* name, int value) {
    json_object_set_int_member(object_.get(), name, value);
    return *this;
}

JsonBuilding& JsonBuilding::truth(const char* name, bool value) {
    json_object_set_boolean_member(object_.get(), name, value ? TRUE : FALSE);
    return *this;
}

JsonBuilding& JsonBuilding::null(const char* name) {
    json_object_set_null_member(object_.get(), name);
    return *this;
}

JsonBuilding& JsonBuilding::object(const char* name, const JsonBuilding& value) {
    json_object_set_object_member(object_.get(), name, json_object_ref(value.object_.get()));
    return *this;
}

JsonBuilding& JsonBuilding::list(const char* name, const std::vector<JsonBuilding>& values) {
    JsonArray* const array = json_array_new();
    for (const JsonBuilding& value : values) {
        json_array_add_object_element(array, json_object_ref(value.object_.get()));
    }
    json_object_set_array_member(object_.get(), name, array);
    return *this;
}

std::string JsonBuilding::line() const {
    g_autoptr(JsonNode) node = json_node_alloc();
    json_node_init_object(node, object_.get());
    g_autofree gchar* json = json_to_string(node, FALSE);
    return safeJson(json) + "\n";
}

JsonBuilding toJson(const Stick& stick) {
    JsonBuilding json;
    json.text("name", stick.name).number("size", stick.size).number("free", stick.free);
    return json;
}

JsonBuilding toJson(const File& file) {
    JsonBuilding json;
    json.text("place", file.place.text())
        .text("stick", file.place.stick)
        .text("path", file.place.path)
        .text("name", file.name)
        .text("kind", file.isDirectory ? "directory" : "file")
        .number("size", file.size);
    return json;
}

JsonBuilding toJson(const Failure& failure) {
    JsonBuilding json;
    json.text("error", failure.what()).code("status", static_cast<int>(failure.status()));
    if (failure.code()) {
        json.code("code", *failure.code());
    } else {
        json.null("code");
    }
    return json;
}

}  // namespace transferctl
