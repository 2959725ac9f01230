#include "tests/support/bus/fake_service.h"

#include <stdexcept>

#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

const std::string kErrorPrefix = "error ";

}  // namespace

FakeService::FakeService(const std::string& name, Replies replies) : replies_(std::move(replies)) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        filter_ = g_dbus_connection_add_filter(bus_.connection(), onMessage, this, nullptr);
    }
    if (!bus_.ownName(name)) {
        throw std::runtime_error("cannot own " + name);
    }
}

FakeService::~FakeService() {
    leave();  // from here on no message comes
    g_dbus_connection_remove_filter(bus_.connection(), filter_);
    // The connection's thread took it last: what it did comes before the end of the members.
    const std::lock_guard<std::mutex> lock(mutex_);
}

std::vector<std::string> FakeService::calls() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return calls_;
}

testing::AssertionResult FakeService::waitForCall(const std::string& part) const {
    return eventuallyHolds([this] { return calls(); }, part);
}

void FakeService::leave() {
    g_dbus_connection_close_sync(bus_.connection(), nullptr, nullptr);
}

// On the connection's own thread, before anybody else sees the message.
GDBusMessage* FakeService::onMessage(GDBusConnection* connection, GDBusMessage* message,
                                     gboolean incoming, gpointer self) {
    const bool isCall = g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_METHOD_CALL;
    if (incoming == FALSE || !isCall) {
        return message;
    }
    g_autoptr(GDBusMessage) reply = static_cast<FakeService*>(self)->replyTo(message);
    g_object_unref(message);
    if (reply != nullptr) {
        g_dbus_connection_send_message(connection, reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                       nullptr);
    }
    return nullptr;
}

std::optional<std::string> FakeService::nextReply(GDBusMessage* call) {
    const std::string method = g_dbus_message_get_member(call);
    GVariant* const arguments = g_dbus_message_get_body(call);
    const std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back(method + (arguments != nullptr ? asText(arguments) : "()"));
    const auto found = replies_.find(method);
    if (found == replies_.end()) {
        return std::nullopt;
    }
    std::string reply = found->second.front();
    if (found->second.size() > 1) {
        found->second.erase(found->second.begin());
    }
    return reply;
}

GDBusMessage* FakeService::replyTo(GDBusMessage* call) {
    const std::optional<std::string> text = nextReply(call);
    if (!text) {
        return nullptr;
    }
    if (text->compare(0, kErrorPrefix.size(), kErrorPrefix) == 0) {
        // No message is safe to show as it is.
        return g_dbus_message_new_method_error_literal(
            call, text->substr(kErrorPrefix.size()).c_str(), "\x1b[31mno\nway");
    }
    GDBusMessage* const reply = g_dbus_message_new_method_reply(call);
    g_autoptr(GVariant) body = g_variant_parse(nullptr, text->c_str(), nullptr, nullptr, nullptr);
    g_dbus_message_set_body(reply, body);
    return reply;
}

}  // namespace test_support
