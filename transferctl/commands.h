// The command line of transferctl and its commands.
#pragma once

#include <glib.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "transferctl/transfer_client.h"

namespace transferctl {

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

// What a command's arguments name.
enum class Argument { kNothing, kAnything, kDirectory, kBackup, kUpdate };

struct Command {
    const char* name;
    const char* arguments;  // as the help shows them
    const char* summary;  // a line of the list of commands; null for a hidden command
    const char* description;
    unsigned options;  // beside the common ones
    Argument argument;
    std::size_t fewest;  // arguments
    std::size_t most;
    // Prints the result and returns when the command is done; otherwise throws Failure.
    void (*run)(const Options& options);
};

// The groups of options that a command takes, or the program without a command.
unsigned optionGroups(const Command* command);

// The options of these groups, an empty entry at the end. Where an option takes one of some words,
// its value's description is these words with "|" between them.
std::vector<GOptionEntry> optionEntries(unsigned groups);

// Returns the command and fills in its options; null when nothing is left to do. With --help it
// prints the help and ends the process with status 0. Throws Failure (usage).
const Command* parseCommandLine(const std::vector<std::string>& arguments, Options* options);

// Null for an unknown name.
const Command* findCommand(const std::string& name);

// The names of the commands that are not hidden.
std::vector<std::string> commandNames();

// What the help says about a command, or about all when it is null.
std::string helpOf(const Command* command);

void showStatus(const Options& options);
void listSticks(const Options& options);
void listDirectory(const Options& options);
void listBackups(const Options& options);
void listUpdates(const Options& options);
void makeDirectory(const Options& options);
void removeFile(const Options& options);
void proposeName(const Options& options);
void startBackup(const Options& options);
void startRestore(const Options& options);
void startUpdate(const Options& options);
void watchService(const Options& options);

// For the completion of bash: prints, one a line, what the last of the words may become. The words
// are those typed behind "transferctl". Prints nothing where it cannot tell.
void printCandidates(const Options& options);

}  // namespace transferctl
