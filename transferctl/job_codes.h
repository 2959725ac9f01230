// Jobs, their kinds and the service's answers in words.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace transferctl {

enum class Job { kBackup, kRestore, kUpdate };

// "backup", "restore", "update".
const char* nameOf(Job job);

// The number of a backup type's word (full, recipes, users); nothing for another word.
std::optional<std::uint32_t> backupTypeNamed(std::string_view word);

// What a job's code other than 0 means.
std::string meaningOf(int code);

// Whether the service, answering with this code, has taken in the texts of the job: then the next
// job's texts are appended to them.
bool leavesTexts(int code);

}  // namespace transferctl
