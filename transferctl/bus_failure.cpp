// Errors of the message bus in the terms of transferctl.
#include "transferctl/bus_failure.h"

#include <algorithm>
#include <array>
#include <string>

namespace transferctl {
namespace {

template <std::size_t Count>
bool isOneOf(const GError* error, const std::array<int, Count>& codes) {
    return error->domain == G_DBUS_ERROR &&
           std::find(codes.begin(), codes.end(), error->code) != codes.end();
}

constexpr std::array<int, 2> kDenied{G_DBUS_ERROR_ACCESS_DENIED, G_DBUS_ERROR_AUTH_FAILED};
constexpr std::array<int, 2> kTooLate{G_DBUS_ERROR_TIMEOUT, G_DBUS_ERROR_TIMED_OUT};
constexpr std::array<int, 3> kGone{G_DBUS_ERROR_SERVICE_UNKNOWN, G_DBUS_ERROR_NAME_HAS_NO_OWNER,
                                   G_DBUS_ERROR_NO_REPLY};
constexpr std::array<int, 3> kMissing{G_DBUS_ERROR_UNKNOWN_METHOD, G_DBUS_ERROR_UNKNOWN_OBJECT,
                                      G_DBUS_ERROR_UNKNOWN_INTERFACE};

// What the other side said, without the name of the error that GDBus puts in front of it.
std::string messageOf(const GError* error) {
    g_autoptr(GError) copy = g_error_copy(error);
    g_dbus_error_strip_remote_error(copy);
    return copy->message;
}

}  // namespace

Failure failureOf(const GError* error) {
    if (isOneOf(error, kDenied)) {
        return {ExitStatus::kRefused,
                "the message bus does not let you call the service: only root and its group may"};
    }
    if (isOneOf(error, kTooLate) ||
        g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT) != FALSE) {
        return {ExitStatus::kTimeLimit, "no answer within the time limit"};
    }
    if (isOneOf(error, kGone)) {
        return {ExitStatus::kNoService, "the service is not there (any more)"};
    }
    return {ExitStatus::kNoService, "the service does not answer: " + messageOf(error)};
}

bool objectsAreMissing(const GError* error) {
    return isOneOf(error, kMissing);
}

}  // namespace transferctl
