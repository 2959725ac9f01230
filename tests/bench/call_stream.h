// Many calls with some in flight at any time.
#pragma once

#include <functional>
#include <string>

#include "tests/bench/services.h"

namespace bench {

// A call of the stream: a method and its arguments, floating or null.
struct StreamedCall {
    const char* method;
    GVariant* arguments;
};

// Sends calls as the answers of earlier ones arrive, on this thread's main context; a call that is
// not answered throws std::runtime_error from run(). The bus and the target outlive it.
class CallStream {
public:
    using Choose = std::function<StreamedCall(int number)>;

    CallStream(const SystemBus& bus, const Target& target, int inFlight, Choose choose)
        : bus_(bus), target_(target), most_(inFlight), choose_(std::move(choose)) {}
    CallStream(const CallStream&) = delete;
    CallStream& operator=(const CallStream&) = delete;

    // Makes so many calls and returns when all are answered.
    void run(int calls);

private:
    void send();
    static void onAnswer(GObject* connection, GAsyncResult* result, gpointer data);

    const SystemBus& bus_;
    const Target& target_;
    int most_;
    Choose choose_;
    int toSend_ = 0;
    int inFlight_ = 0;
    int sent_ = 0;
    std::string failure_;
};

}  // namespace bench
