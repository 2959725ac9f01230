// The methods of the service's interfaces, read from what the build generates of the descriptions.
#include "tests/support/bus/interface_description.h"

#include <stdexcept>

#include "com.morvane.dbus/com.morvane.dbus.h"
#include "com.morvane.transfer/dbus-adaptor.h"

namespace test_support {
namespace {

std::string typesOf(GDBusArgInfo** arguments) {
    std::string types;
    for (; arguments != nullptr && *arguments != nullptr; ++arguments) {
        types += (*arguments)->signature;
    }
    return types;
}

std::vector<Method> methodsOf(const GDBusInterfaceInfo* interface) {
    std::vector<Method> methods;
    for (GDBusMethodInfo** method = interface->methods; *method != nullptr; ++method) {
        methods.push_back({interface->name, (*method)->name, typesOf((*method)->in_args),
                           typesOf((*method)->out_args)});
    }
    return methods;
}

GVariant* harmlessValue(char type) {
    switch (type) {
        case 's':
            return g_variant_new_string("a");
        case 'u':
            return g_variant_new_uint32(1);
        case 'i':
            return g_variant_new_int32(1);
        case 'v':
            return g_variant_new_variant(g_variant_new_string("a"));
        default:
            throw std::logic_error(std::string("no value of the type ") + type);
    }
}

}  // namespace

const std::vector<Method>& transferMethods() {
    static const std::vector<Method> kMethods = methodsOf(morvane_transfer_sac_interface_info());
    return kMethods;
}

const std::vector<Method>& controlMethods() {
    static const std::vector<Method> kMethods = methodsOf(morvane_dbus_interface_info());
    return kMethods;
}

GVariant* harmlessArguments(const std::string& types) {
    GVariantBuilder tuple;
    g_variant_builder_init(&tuple, G_VARIANT_TYPE_TUPLE);
    for (const char type : types) {
        g_variant_builder_add_value(&tuple, harmlessValue(type));
    }
    return g_variant_builder_end(&tuple);
}

}  // namespace test_support
