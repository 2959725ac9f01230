// The commands of transferctl.
#pragma once

#include <string>
#include <vector>

#include "transferctl/options.h"

namespace transferctl {

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
