// The command line of transferctl.
#pragma once

#include <glib.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "transferctl/transfer_client.h"

namespace transferctl {

struct Command;

struct Options {
    bool json = false;
    bool wait = false;
    bool force = false;
    BackupKind kind = BackupKind::kFull;
    std::optional<std::string> name;
    std::chrono::milliseconds limit{};
    std::vector<std::string> arguments;  // of the command
};

// Which commands take an option.
enum OptionGroup : unsigned {
    kProgramOptions = 1U << 0U,  // none: it replaces the command
    kCommonOptions = 1U << 1U,
    kJobOptions = 1U << 2U,
    kBackupOptions = 1U << 3U,
    kEveryOption = ~0U,
};

// The groups of options that a command takes, or the program without a command.
unsigned optionGroups(const Command* command);

// The options of these groups, an empty entry at the end. Where an option takes one of some words,
// its value's description is these words with "|" between them.
std::vector<GOptionEntry> optionEntries(unsigned groups);

// Returns the command and fills in its options; null when nothing is left to do. With --help it
// prints the help and ends the process with status 0. Throws Failure (usage).
const Command* parseCommandLine(const std::vector<std::string>& arguments, Options* options);

}  // namespace transferctl
