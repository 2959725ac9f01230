#include "tests/bus/job_calls.h"

namespace test_support {

int lastNumber(const Reply& reply) {
    if (reply.value == nullptr) {
        return kNoAnswer;
    }
    const gsize children = g_variant_n_children(reply.value.get());
    const VariantPtr last(g_variant_get_child_value(reply.value.get(), children - 1));
    return g_variant_is_of_type(last.get(), G_VARIANT_TYPE_UINT32) != FALSE
               ? static_cast<int>(g_variant_get_uint32(last.get()))
               : g_variant_get_int32(last.get());
}

int doBackup(const SystemBus& bus, const std::string& mount, std::uint32_t type,
             const std::string& file) {
    return lastNumber(
        bus.transfer("DoBackup", g_variant_new("(sus)", mount.c_str(), type, file.c_str())));
}

int doRestore(const SystemBus& bus, const std::string& mount, const std::string& file) {
    return lastNumber(
        bus.transfer("DoRestore", g_variant_new("(ss)", mount.c_str(), file.c_str())));
}

int doOsUpdate(const SystemBus& bus, const std::string& mount, const std::string& file) {
    return lastNumber(
        bus.transfer("DoOSUpdate", g_variant_new("(ss)", mount.c_str(), file.c_str())));
}

int filesListed(const SystemBus& bus, const std::string& method, const std::string& mount) {
    return lastNumber(bus.transfer(method, g_variant_new("(ss)", mount.c_str(), "")));
}

std::chrono::nanoseconds durationOf(const std::function<void()>& action) {
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::steady_clock::now() - start;
}

}  // namespace test_support
