// Jobs, their kinds and the service's answers in words.
#include "transferctl/job_codes.h"

namespace transferctl {
namespace {

constexpr int kNoThread = -1;
constexpr int kStarted = 0;
constexpr int kBadFileName = 1;
constexpr int kStickNotMounted = 2;
constexpr int kNotEnoughSpace = 3;
constexpr int kFileMissing = 5;

}  // namespace

const char* nameOf(Job job) {
    switch (job) {
        case Job::kBackup:
            return "backup";
        case Job::kRestore:
            return "restore";
        default:
            return "update";
    }
}

std::optional<std::uint32_t> backupTypeNamed(std::string_view word) {
    if (word == "full") {
        return 1;
    }
    if (word == "recipes") {
        return 2;
    }
    if (word == "users") {
        return 3;
    }
    return std::nullopt;
}

std::string meaningOf(int code) {
    switch (code) {
        case kNoThread:
            return "no thread could be created";
        case kBadFileName:
            return "bad file name: a backup has '.psb' in it, an update '.fwf'";
        case kStickNotMounted:
            return "stick not mounted";
        case kNotEnoughSpace:
            return "not enough space, or the device manager does not tell the size";
        case kFileMissing:
            return "no such file";
        default:
            return "unknown result code " + std::to_string(code);
    }
}

bool leavesTexts(int code) {
    switch (code) {
        case kBadFileName:
        case kStickNotMounted:
        case kNotEnoughSpace:
        case kFileMissing:
            return false;
        case kStarted:
        case kNoThread:
        default:
            return true;
    }
}

}  // namespace transferctl
