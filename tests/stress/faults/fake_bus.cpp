// A message bus of our own, which may behave as badly as it likes.
#include "tests/stress/faults/fake_bus.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "tests/support/process/errno_error.h"
#include "tests/support/process/waiting.h"

namespace faults {
namespace {

using namespace std::chrono_literals;
using test_support::UniqueFd;
using Lock = std::unique_lock<std::mutex>;

constexpr const char* kSocket = "/run/dbus/system_bus_socket";
constexpr const char* kBusName = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";
constexpr const char* kLineEnd = "\r\n";
constexpr std::size_t kShortestMessage = 16;
constexpr guint32 kPrimaryOwner = 1;

UniqueFd listenAtSystemBus() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, kSocket, sizeof address.sun_path - 1);
    unlink(kSocket);
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd || bind(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(fd.get(), 4) != 0) {
        test_support::throwErrno(kSocket);
    }
    return fd;
}

bool write(int fd, const std::string& bytes) {
    return ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
}

// Takes a whole message off the front; null when there is none yet.
Message takeMessage(std::string& buffer) {
    if (buffer.size() < kShortestMessage) {
        return nullptr;
    }
    auto* const bytes = reinterpret_cast<guchar*>(buffer.data());
    const gssize needed = g_dbus_message_bytes_needed(bytes, buffer.size(), nullptr);
    if (needed < 0 || buffer.size() < static_cast<std::size_t>(needed)) {
        return nullptr;
    }
    Message message(g_dbus_message_new_from_blob(bytes, static_cast<gsize>(needed),
                                                 G_DBUS_CAPABILITY_FLAGS_NONE, nullptr));
    buffer.erase(0, static_cast<std::size_t>(needed));
    return message;
}

std::string memberOf(GDBusMessage* message) {
    const char* const member = g_dbus_message_get_member(message);
    return member != nullptr ? member : "";
}

bool wantsAnswer(GDBusMessage* call) {
    return (g_dbus_message_get_flags(call) & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED) == 0;
}

}  // namespace

std::string bytesOf(GDBusMessage* message, guint32 serial) {
    if (g_dbus_message_get_sender(message) == nullptr) {
        g_dbus_message_set_sender(message, kBusName);
    }
    g_dbus_message_set_destination(message, kServiceUniqueName);
    g_dbus_message_set_serial(message, serial);
    gsize size = 0;
    g_autofree guchar* blob =
        g_dbus_message_to_blob(message, &size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr);
    return {reinterpret_cast<char*>(blob), size};
}

Message busSignal(const char* name, const char* argument) {
    Message signal(g_dbus_message_new_signal(kBusPath, kBusName, name));
    g_dbus_message_set_body(signal.get(), g_variant_new("(s)", argument));
    return signal;
}

FakeBus::FakeBus(Manners manners)
    : manners_(std::move(manners)), socket_(listenAtSystemBus()), thread_([this] { run(); }) {}

FakeBus::~FakeBus() {
    shutdown(socket_.get(), SHUT_RDWR);
    {
        const Lock lock(mutex_);
        shutdown(connection_.get(), SHUT_RDWR);
    }
    thread_.join();
    unlink(kSocket);
}

void FakeBus::run() {
    // cppcheck-suppress nullPointer ; nobody asks who it is
    UniqueFd accepted(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    {
        const Lock lock(mutex_);
        connection_ = std::move(accepted);
    }
    std::string buffer;  // what has been read and not yet taken
    if (connection_ && greet(buffer)) {
        serve(buffer);
    }
    const Lock lock(mutex_);
    shutdown(connection_.get(), SHUT_RDWR);
    gone_ = true;
    changed_.notify_all();
}

bool FakeBus::readMore(std::string& buffer) const {
    std::array<char, 4096> bytes{};
    const ssize_t got = read(connection_.get(), bytes.data(), bytes.size());
    if (got > 0) {
        buffer.append(bytes.data(), static_cast<std::size_t>(got));
    }
    return got > 0;
}

std::string FakeBus::answerToLine(const std::string& line) {
    if (line == "NEGOTIATE_UNIX_FD") {
        return "ERROR\r\n";
    }
    if (line == "AUTH EXTERNAL") {
        return "DATA\r\n";  // it has kept its identity back
    }
    if (line.compare(0, 4, "DATA") != 0) {
        return "REJECTED EXTERNAL\r\n";  // it has asked what it may try
    }
    misbehaved_ = misbehaved_ || manners_.greeting != Manners().greeting;
    return manners_.greeting;
}

// Takes the service's identity as it is given, until it begins.
bool FakeBus::greet(std::string& buffer) {
    for (;;) {
        const std::size_t end = buffer.find(kLineEnd);
        if (end == std::string::npos) {
            if (!readMore(buffer)) {
                return false;
            }
            continue;
        }
        const std::string line = buffer.substr(0, end);
        buffer.erase(0, end + std::strlen(kLineEnd));
        if (line == "BEGIN") {
            return true;
        }
        const std::string answer = answerToLine(line);
        if (answer.empty() || !write(connection_.get(), answer)) {
            return false;
        }
    }
}

void FakeBus::serve(std::string& buffer) {
    do {
        while (const Message message = takeMessage(buffer)) {
            const GDBusMessageType type = g_dbus_message_get_message_type(message.get());
            if (type == G_DBUS_MESSAGE_TYPE_METHOD_CALL) {
                if (!answer(message.get())) {
                    return;
                }
                continue;
            }
            const Lock lock(mutex_);
            const char* const signature = g_dbus_message_get_signature(message.get());
            types_[g_dbus_message_get_reply_serial(message.get())] =
                type == G_DBUS_MESSAGE_TYPE_ERROR ? "error" : signature;
            changed_.notify_all();
        }
    } while (readMore(buffer));
}

// Returns false when the bus hangs up instead.
bool FakeBus::answer(GDBusMessage* call) {
    const std::string member = memberOf(call);
    const auto special = manners_.answers.find(member);
    misbehaved_ = misbehaved_ || special != manners_.answers.end();
    const Message message =
        special != manners_.answers.end() ? special->second(call) : usualAnswer(call);
    if (message == nullptr) {
        return false;
    }
    if (wantsAnswer(call)) {
        sendMessage(message.get());
    }
    if (member == "RequestName") {
        const Lock lock(mutex_);
        up_ = true;
        changed_.notify_all();
    }
    return true;
}

Message FakeBus::usualAnswer(GDBusMessage* call) const {
    const std::string member = memberOf(call);
    if (member == "GetNameOwner" || member == "StartServiceByName" || member == "GetAll") {
        return Message(g_dbus_message_new_method_error_literal(
            call, "org.freedesktop.DBus.Error.NameHasNoOwner", "nobody"));
    }
    Message reply(g_dbus_message_new_method_reply(call));
    if (member == "Hello") {
        g_dbus_message_set_body(reply.get(), g_variant_new("(s)", kServiceUniqueName));
    } else if (member == "RequestName") {
        g_dbus_message_set_body(reply.get(), g_variant_new("(u)", kPrimaryOwner));
    }
    return reply;
}

void FakeBus::sendMessage(GDBusMessage* message) {
    send(bytesOf(message, ++serial_));
}

void FakeBus::send(const std::string& bytes) {
    {
        Lock lock(mutex_);
        changed_.wait_for(lock, test_support::patience(),
                          [this] { return gone_ || static_cast<bool>(connection_); });
    }
    const std::lock_guard lock(sending_);
    write(connection_.get(), bytes);
}

std::string FakeBus::ask() {
    // Until its objects are exported it answers by an error.
    for (std::string type = "error"; type == "error"; std::this_thread::sleep_for(1ms)) {
        {
            Lock lock(mutex_);
            changed_.wait_for(lock, test_support::patience(), [this] { return up_ || gone_; });
        }
        const Message call(g_dbus_message_new_method_call(nullptr, test_support::kTransferPath,
                                                          test_support::kTransferInterface,
                                                          "GetUSBStickDetails"));
        const guint32 serial = ++serial_;
        g_dbus_message_set_sender(call.get(), ":1.8");
        send(bytesOf(call.get(), serial));
        Lock lock(mutex_);
        changed_.wait_for(lock, test_support::patience(),
                          [&] { return gone_ || types_.count(serial) != 0; });
        type = types_.count(serial) != 0 ? types_[serial] : "";
        if (type != "error") {
            return type;
        }
    }
    return "";
}

}  // namespace faults
