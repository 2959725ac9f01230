// One of many clients.
#include "tests/stress/soak/client.h"

#include <gio/gio.h>

#include <array>

#include "tests/support/device/stick.h"

namespace soak {

struct Method {
    const char* name;
    const char* in;  // signature
    const char* out;  // type of the reply
    unsigned weight;
};

namespace {

constexpr std::array<Method, 12> kMethods{{
    {"GetUSBStickDetails", "", "(av)", 20},
    {"GetStickDetailsWithCount", "", "(vu)", 20},
    {"GetDirectoryIndex", "ss", "(av)", 20},
    {"GetRestoreFilesList", "ss", "(vi)", 10},
    {"GetDirectoryIndexForBackup", "ss", "(av)", 3},
    {"GetDirectoryIndexForUpdate", "ss", "(av)", 3},
    {"GetBackupFilesList", "ss", "(vi)", 3},
    {"GetUpdateFilesList", "ss", "(vi)", 3},
    {"CreateDirectory", "ss", "(b)", 10},
    {"DeleteFile", "ss", "(b)", 10},
    {"GetBackupFileName", "u", "(s)", 5},
    {"ValidateBackupSize", "us", "(b)", 5},
}};

}  // namespace

Client::Client(unsigned number, unsigned seed, const std::atomic<bool>& stop)
    : number_(number), random_(seed * 1000 + number), thread_([this, &stop] {
          while (!stop) {
              callOne();
          }
      }) {}

void Client::callOne() {
    const Method& method = chooseMethod();
    const auto started = std::chrono::steady_clock::now();
    const test_support::Reply reply = bus_.transfer(method.name, arguments(method));
    durations_[method.name].push_back(std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - started));
    ++calls_;
    if (reply.type() != method.out) {
        errors_.push_back(std::string(method.name) + ": " + reply.text());
    }
}

const Method& Client::chooseMethod() {
    unsigned total = 0;
    for (const Method& method : kMethods) {
        total += method.weight;
    }
    unsigned left = upTo(total - 1);
    for (const Method& method : kMethods) {
        if (left < method.weight) {
            return method;
        }
        left -= method.weight;
    }
    return kMethods.front();
}

GVariant* Client::arguments(const Method& method) {
    const std::string stick = test_support::stickName(static_cast<int>(1 + upTo(3)));
    const std::string in = method.in;
    if (in == "ss") {
        return g_variant_new("(ss)", stick.c_str(), path(method).c_str());
    }
    if (in == "us") {
        return g_variant_new("(us)", 1 + upTo(2), stick.c_str());
    }
    return in == "u" ? g_variant_new("(u)", 1 + upTo(2)) : nullptr;
}

// What one client makes no other deletes.
std::string Client::path(const Method& method) {
    const std::string name = method.name;
    if (name == "CreateDirectory" || name == "DeleteFile") {
        return "made by " + std::to_string(number_) + "/" + std::to_string(upTo(5));
    }
    return upTo(1) == 0 ? "" : "photos";
}

unsigned Client::upTo(unsigned most) {
    return std::uniform_int_distribution<unsigned>(0, most)(random_);
}

}  // namespace soak
