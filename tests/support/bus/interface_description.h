// The methods of the service's interfaces, as the interface descriptions list them.
#pragma once

#include <gio/gio.h>

#include <map>
#include <string>
#include <vector>

#include "com.morvane.dbus/com.morvane.dbus.h"
#include "com.morvane.transfer/dbus-adaptor.h"

namespace test_support {

struct Method {
    std::string interface;
    std::string name;
    std::string in;  // types of the arguments, such as "sus"
    std::string out;  // types of the reply, such as "vi"
};

inline std::string typesOf(GDBusArgInfo** arguments) {
    std::string types;
    for (; arguments != nullptr && *arguments != nullptr; ++arguments) {
        types += (*arguments)->signature;
    }
    return types;
}

inline std::vector<Method> methodsOf(const GDBusInterfaceInfo* interface) {
    std::vector<Method> methods;
    for (GDBusMethodInfo** method = interface->methods; *method != nullptr; ++method) {
        methods.push_back({interface->name, (*method)->name, typesOf((*method)->in_args),
                           typesOf((*method)->out_args)});
    }
    return methods;
}

// In the order of the description. Iterate over these instead of naming methods by hand.
inline const std::vector<Method>& transferMethods() {
    static const std::vector<Method> kMethods = methodsOf(morvane_transfer_sac_interface_info());
    return kMethods;
}
inline const std::vector<Method>& controlMethods() {
    static const std::vector<Method> kMethods = methodsOf(morvane_dbus_interface_info());
    return kMethods;
}

// A floating tuple of harmless values, one for each letter of `types`. Throws std::out_of_range for
// a letter it does not know.
inline GVariant* harmlessArguments(const std::string& types) {
    static const std::map<char, const char*> kValues{
        {'s', "'a'"}, {'u', "uint32 1"}, {'i', "1"}, {'v', "<'a'>"}};
    GVariantBuilder tuple;
    g_variant_builder_init(&tuple, G_VARIANT_TYPE_TUPLE);
    for (const char type : types) {
        g_variant_builder_add_parsed(&tuple, kValues.at(type));
    }
    return g_variant_builder_end(&tuple);
}

}  // namespace test_support
