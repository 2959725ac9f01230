// The command line of transferctl.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace transferctl {

struct Options {
    bool json = false;
    bool wait = false;
    bool force = false;
    std::string type = "full";
    std::optional<std::string> name;
    std::optional<std::chrono::milliseconds> timeout;
    std::vector<std::string> arguments;  // of the command

    // The time limit in force.
    std::chrono::milliseconds limit() const;
};

// Which options a command knows beside --json and --timeout.
enum Knows : unsigned {
    kNothingMore = 0,
    kForce = 1U << 0U,
    kBackupOptions = 1U << 1U,
};

using CommandFunction = void (*)(const Options& options);

struct Command {
    const char* name;
    const char* arguments;  // as the help shows them
    const char* summary;  // a line of the list of commands
    const char* description;  // the rest of the command's own help
    unsigned knows;
    std::size_t fewest;  // arguments
    std::size_t most;
    CommandFunction run;
    bool isShown;  // in the list of commands
};

// What stands before the command's name.
struct GlobalLine {
    Options options;
    bool version = false;
    std::vector<std::string> rest;  // the command's name and what follows
};

// Both throw Failure (usage); with --help they print the help and end the process with status 0.
GlobalLine parseGlobalLine(const std::vector<std::string>& arguments,
                           const std::string& commandList);
Options parseCommandLine(const Command& command, const Options& global,
                         const std::vector<std::string>& arguments);

}  // namespace transferctl
