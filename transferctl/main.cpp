// transferctl: the transfer service from a terminal or a script.
#include <array>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "transferctl/commands.h"
#include "transferctl/failure.h"
#include "transferctl/json_text.h"
#include "transferctl/output.h"

namespace transferctl {
namespace {

constexpr std::size_t kAnyNumber = 1000;

constexpr const char* kJobHelp =
    "The service's answer means that the job has started, not that it is done; of its end it says "
    "nothing.\nA second job in one life of the service would work on joined texts, so it is "
    "refused "
    "where\ntransferctl knows of the first, unless --force is given.";

constexpr std::array<Command, 13> kCommands{{
    {"status", "", "whether the service is there, and what it was asked to do",
     "Shows whether the service runs and answers, how many sticks there are, and the job that you\n"
     "have started with transferctl in this life of the service.",
     kNothingMore, 0, 0, showStatus, true},
    {"sticks", "", "the sticks, their size and free space",
     "Lists the mounted sticks with their size and free space.", kNothingMore, 0, 0, listSticks,
     true},
    {"ls", "STICK:[DIR]", "a directory of a stick",
     "Lists one directory: directories first, each kind by name. Names beginning with '.' are "
     "never\n"
     "listed by the service.",
     kNothingMore, 1, 1, listDirectory, true},
    {"backups", "[STICK:[DIR]...]", "the backup files that the device manager accepts",
     "Lists the backups below the directories named, or on all sticks. Only files that the device\n"
     "manager accepts are shown, about 30 at most of a directory.",
     kNothingMore, 0, kAnyNumber, listBackups, true},
    {"updates", "[STICK:[DIR]...]", "the update files that the device manager accepts",
     "Lists the updates below the directories named, or on all sticks. Only files that the device\n"
     "manager accepts are shown, about 30 at most of a directory.",
     kNothingMore, 0, kAnyNumber, listUpdates, true},
    {"mkdir", "STICK:DIR", "make a directory and its missing parents",
     "Makes a directory and its missing parents. The service only says that it has tried, so\n"
     "transferctl looks afterwards whether the directory is there.",
     kNothingMore, 1, 1, makeDirectory, true},
    {"rm", "STICK:FILE", "remove a file or an empty directory",
     "Removes a file, or a directory that is empty.", kNothingMore, 1, 1, removeFile, true},
    {"name", "", "a name for a backup, proposed by the service",
     "Prints the name that the service proposes for a backup made now.", kNothingMore, 0, 0,
     proposeName, true},
    {"backup", "STICK:[DIR]", "start a backup of the device to a stick",
     "Starts a backup into the directory, under the name given or the one that the "
     "service\nproposes. "
     "An argument that ends in '.psb' names the file itself. A file of that name that is\nthere "
     "already is replaced only with --force.\n\n"
     "The service's answer means that the backup has started. It is done when the device manager\n"
     "accepts the file: then 'transferctl backups' shows it, and --wait ends.\n\n"
     "A second job in one life of the service would work on joined texts, so it is refused where\n"
     "transferctl knows of the first, unless --force is given.",
     kForce | kBackupOptions, 1, 1, startBackup, true},
    {"restore", "STICK:FILE", "start a restore of a backup", kJobHelp, kForce, 1, 1, startRestore,
     true},
    {"update", "STICK:FILE", "start an update of the operating system", kJobHelp, kForce, 1, 1,
     startUpdate, true},
    {"monitor", "", "show the service, sticks and applets come and go",
     "Prints a line whenever the service, a stick or an applet comes or goes, until it "
     "is\ninterrupted "
     "(Ctrl-C), which is its regular end.",
     kNothingMore, 0, 0, watchService, true},
    {"__complete", "KIND WORD", "", "", kNothingMore, 2, 2, printCandidates, false},
}};

std::string commandList() {
    std::string list = "Works with USB sticks through the transfer service.\n\nCommands:";
    for (const Command& command : kCommands) {
        if (command.isShown) {
            std::array<char, 128> line{};
            std::snprintf(line.data(), line.size(), "\n  %-8s  %-15s %s", command.name,
                          command.arguments, command.summary);
            list += line.data();
        }
    }
    return list +
           "\n\nSTICK is USB_X60.1 to USB_X60.4 or just the number. 'transferctl COMMAND --help' "
           "tells "
           "more.\n\nExit status: 0 done, 1 refused, 2 usage, 3 the service does not answer, 4 "
           "time "
           "limit.";
}

const Command& commandNamed(const std::string& name) {
    for (const Command& command : kCommands) {
        if (name == command.name) {
            return command;
        }
    }
    throw Failure(ExitStatus::kUsage, "unknown command '" + name + "'; see transferctl --help");
}

void run(const std::vector<std::string>& arguments, Options* options) {
    GlobalLine line = parseGlobalLine(arguments, commandList());
    *options = line.options;
    if (line.version) {
        print("transferctl " TRANSFERCTL_VERSION "\n");
        return;
    }
    if (line.rest.empty()) {
        throw Failure(ExitStatus::kUsage, "no command; see transferctl --help");
    }
    const Command& command = commandNamed(line.rest.front());
    line.rest.erase(line.rest.begin());
    *options = parseCommandLine(command, line.options, line.rest);
    command.run(*options);
}

int failed(const Failure& failure, const Options& options) {
    if (options.json && failure.status() != ExitStatus::kUsage) {
        const std::string line = toJson(failure).line();
        std::fputs(line.c_str(), stdout);
    } else {
        note(failure.what());
    }
    return static_cast<int>(failure.status());
}

}  // namespace
}  // namespace transferctl

int main(int argc, char** argv) {
    std::setlocale(LC_CTYPE, "");  // how the help's own marks are to be written
    transferctl::Options options;
    try {
        transferctl::run({argv + 1, argv + argc}, &options);
        return EXIT_SUCCESS;
    } catch (const transferctl::Failure& failure) {
        return transferctl::failed(failure, options);
    } catch (const std::exception& error) {
        transferctl::note(error.what());
        return static_cast<int>(transferctl::ExitStatus::kRefused);
    }
}
