// What every fuzz target is made with.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "tests/support/files/files.h"
#include "transfer/tf_mngr.h"

// Called once for each input, by libFuzzer or by the replay of the stored inputs. Returns 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

// Called once before the first input. Ends the process with status 2 where hostile paths could do
// harm: outside the sandbox, or with something writable that the sandbox shares with the machine.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace fuzz {

inline constexpr const char* kStick = "/media/usb/USB_X60.1";

// One for the whole process, as in the service; the first call makes the directories of sticks 1
// and 3.
inline TfMngr& manager() {
    static TfMngr* const kManager = [] {
        test_support::makeDirectories(kStick);
        test_support::makeDirectories("/media/usb/USB_X60.3");
        return new TfMngr;
    }();
    return *kManager;
}

inline void clearStick() {
    for (const auto& entry : std::filesystem::directory_iterator(kStick)) {
        std::filesystem::remove_all(entry.path());
    }
}

// Ends the process with what was violated: libFuzzer stores the input, a replay fails.
inline void require(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "violated: %s\n", what);
        std::abort();
    }
}

// Reads choices and strings off an input; an input at its end gives zeros and empty strings.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size)
        : left_(reinterpret_cast<const char*>(data), size) {}

    bool isEmpty() const { return left_.empty(); }

    std::uint8_t byte() {
        return isEmpty() ? std::uint8_t{0} : static_cast<std::uint8_t>(take(1).front());
    }

    std::uint64_t number() {
        std::uint64_t value = 0;
        for (int i = 0; i < 8; ++i) {
            value = value << 8U | byte();
        }
        return value;
    }

    // A length of one byte, then the string.
    std::string string() { return take(byte()); }

    // All that is left.
    std::string rest() { return take(left_.size()); }

private:
    std::string take(std::size_t most) {
        const std::string taken(left_.substr(0, most));
        left_.remove_prefix(taken.size());
        return taken;
    }

    std::string_view left_;
};

}  // namespace fuzz
