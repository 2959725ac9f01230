// Many calls with some in flight at any time.
#include "tests/bench/call_stream.h"

#include <stdexcept>

namespace bench {

void CallStream::run(int calls) {
    toSend_ = calls;
    while (toSend_ > 0 && inFlight_ < most_) {
        send();
    }
    while (inFlight_ > 0) {
        g_main_context_iteration(nullptr, TRUE);
    }
    if (!failure_.empty()) {
        throw std::runtime_error(failure_);
    }
}

void CallStream::send() {
    --toSend_;
    ++inFlight_;
    const StreamedCall call = choose_(sent_++);
    g_dbus_connection_call(bus_.connection(), target_.name, target_.path, target_.interface,
                           call.method, call.arguments, nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START,
                           G_MAXINT, nullptr, onAnswer, this);
}

void CallStream::onAnswer(GObject* connection, GAsyncResult* result, gpointer data) {
    auto* const self = static_cast<CallStream*>(data);
    g_autoptr(GError) error = nullptr;
    const VariantPtr value(
        g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, &error));
    if (value == nullptr) {
        self->failure_ = error->message;
    }
    --self->inFlight_;
    if (self->toSend_ > 0) {
        self->send();
    }
}

}  // namespace bench
