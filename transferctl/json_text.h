// What --json prints: one object on one line, as docs/transferctl.md describes it.
#pragma once

#include <json-glib/json-glib.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "transferctl/failure.h"
#include "transferctl/records.h"

namespace transferctl {

// Builds an object member by member. Texts are UTF-8; numbers above 2^63-1 become that.
class JsonBuilding {
public:
    JsonBuilding() : object_(json_object_new()) {}

    JsonBuilding& text(const char* name, const std::string& value);
    JsonBuilding& number(const char* name, std::uint64_t value);
    JsonBuilding& code(const char* name, int value);
    JsonBuilding& truth(const char* name, bool value);
    JsonBuilding& null(const char* name);
    JsonBuilding& object(const char* name, const JsonBuilding& value);
    JsonBuilding& list(const char* name, const std::vector<JsonBuilding>& values);

    // The line with its end, safe to show.
    std::string line() const;

private:
    struct Release {
        void operator()(JsonObject* object) const { json_object_unref(object); }
    };

    std::unique_ptr<JsonObject, Release> object_;
};

// Texts of any bytes have each byte that is not UTF-8 replaced.
JsonBuilding toJson(const Stick& stick);
JsonBuilding toJson(const File& file);
JsonBuilding toJson(const Failure& failure);

// A list of records under a name: {"sticks": [...]}.
template <typename Record>
JsonBuilding listToJson(const char* name, const std::vector<Record>& records) {
    std::vector<JsonBuilding> items;
    items.reserve(records.size());
    for (const Record& record : records) {
        items.push_back(toJson(record));
    }
    JsonBuilding json;
    json.list(name, items);
    return json;
}

}  // namespace transferctl
