// Why a command did not do what it was asked to, and the exit status that says so.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>

namespace transferctl {

// docs/transferctl.md promises these numbers.
enum class ExitStatus {
    kDone = 0,
    kRefused = 1,
    kUsage = 2,
    kNoService = 3,
    kTimeLimit = 4,
};

// The message is a sentence without a full stop. It may hold any bytes: whoever prints it makes it
// safe.
class Failure : public std::runtime_error {
public:
    // `code` is the service's own result code where it gave one.
    Failure(ExitStatus status, const std::string& message, std::optional<int> code = {})
        : std::runtime_error(message), status_(status), code_(code) {}

    ExitStatus status() const { return status_; }
    std::optional<int> code() const { return code_; }

private:
    ExitStatus status_;
    std::optional<int> code_;
};

inline Failure refused(const std::string& message, std::optional<int> code = std::nullopt) {
    return {ExitStatus::kRefused, message, code};
}
inline Failure wrongUsage(const std::string& message) {
    return {ExitStatus::kUsage, message};
}
inline Failure noService(const std::string& message) {
    return {ExitStatus::kNoService, message};
}

}  // namespace transferctl
