// What calls over the bus may be answered.
#pragma once

#include <glib.h>

#include <set>
#include <string>

namespace fuzz {

// What does not exist or is not allowed: the bus's policy answers some of it, GLib the rest.
inline const std::set<std::string> kRefusals{"org.freedesktop.DBus.Error.UnknownMethod",
                                             "org.freedesktop.DBus.Error.InvalidArgs",
                                             "org.freedesktop.DBus.Error.AccessDenied"};

// What one call may be answered.
struct Expected {
    std::string what;  // for a complaint
    std::string type;  // of the reply; empty: an error
    std::set<std::string> errors{};  // their names
};

// What is wrong with the answer, a reply or an error; empty when nothing is.
std::string faultOf(const Expected& expected, GVariant* reply, const GError* error);

}  // namespace fuzz
