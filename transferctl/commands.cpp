// The table of commands.
#include "transferctl/commands.h"

#include <array>
#include <limits>

#include "transfer/contract.h"

namespace transferctl {
namespace {

constexpr std::size_t kAnyNumber = std::numeric_limits<std::size_t>::max();

constexpr const char* kJobHelp =
    "\n\nThe service's answer means that the job has started, not that it is done. A second job\n"
    "in the same process of the service would work on the names of both, so transferctl\n"
    "refuses it unless --force is given. Restart the service between two jobs.";

constexpr std::array<Command, 13> kCommands{{
    {"status", "", "whether the service answers, and the job started",
     "Shows whether the service runs and answers, the number of sticks, and the job that you\n"
     "have started with transferctl since the service started.",
     0, Argument::kNothing, 0, 0, showStatus},
    {"sticks", "", "the sticks, their size and free space",
     "Lists the mounted sticks with their size, free and used space.", 0, Argument::kNothing, 0, 0,
     listSticks},
    {"ls", "STICK:[DIR]", "a directory of a stick",
     "Lists one directory: directories first, then files, by name. The service lists no name\n"
     "that begins with a dot.",
     0, Argument::kAnything, 1, 1, listDirectory},
    {"backups", "[STICK:[DIR]...]", "the backup files that the device manager accepts",
     "Lists the backups below the directories, or on all sticks. The service lists only files\n"
     "that the device manager accepts, and cuts long lists.",
     0, Argument::kDirectory, 0, kAnyNumber, listBackups},
    {"updates", "[STICK:[DIR]...]", "the update files that the device manager accepts",
     "Lists the updates below the directories, or on all sticks. The service lists only files\n"
     "that the device manager accepts, and cuts long lists.",
     0, Argument::kDirectory, 0, kAnyNumber, listUpdates},
    {"mkdir", "STICK:DIR", "make a directory and its missing parents",
     "Makes a directory and its missing parents, and checks that it is there.", 0,
     Argument::kDirectory, 1, 1, makeDirectory},
    {"rm", "STICK:FILE", "remove a file or an empty directory",
     "Removes a file, or a directory that is empty.", 0, Argument::kAnything, 1, 1, removeFile},
    {"name", "", "a name for a backup, proposed by the service",
     "Prints the name that the service proposes for a backup made now.", 0, Argument::kNothing, 0,
     0, proposeName},
    {"backup", "STICK:[DIR]", "start a backup of the device to a stick",
     "Starts a backup into the directory, under the name given or the one that the service\n"
     "proposes. An argument that ends in '.psb' names the file itself. A file of that name is\n"
     "replaced only with --force.\n\n"
     "The backup is done when the device manager accepts the file: then 'transferctl backups'\n"
     "lists it, and --wait ends.",
     kJobOptions | kBackupOptions, Argument::kDirectory, 1, 1, startBackup},
    {"restore", "STICK:FILE", "start a restore of a backup",
     "Starts a restore of the device from a backup file.", kJobOptions, Argument::kBackup, 1, 1,
     startRestore},
    {"update", "STICK:FILE", "start an update of the operating system",
     "Starts an update of the device's operating system.", kJobOptions, Argument::kUpdate, 1, 1,
     startUpdate},
    {"monitor", "", "show changes of the service, the sticks and the applet",
     "Prints a line when the service starts or ends, a stick is plugged or pulled, or the "
     "applet changes. Ctrl-C ends it.",
     0, Argument::kNothing, 0, 0, watchService},
    {"__complete", "WORD...", nullptr, "", 0, Argument::kNothing, 1, kAnyNumber, printCandidates},
}};

}  // namespace

const Command* findCommand(const std::string& name) {
    for (const Command& command : kCommands) {
        if (name == command.name) {
            return &command;
        }
    }
    return nullptr;
}

std::vector<std::string> commandNames() {
    std::vector<std::string> names;
    for (const Command& command : kCommands) {
        if (command.summary != nullptr) {
            names.emplace_back(command.name);
        }
    }
    return names;
}

std::string helpOf(const Command* command) {
    if (command != nullptr) {
        const bool isJob = (command->options & kJobOptions) != 0;
        return std::string(command->description) + (isJob ? kJobHelp : "");
    }
    std::string help = "Works with USB sticks through the transfer service.\n\nCommands:";
    for (const Command& one : kCommands) {
        if (one.summary != nullptr) {
            g_autofree gchar* line =
                g_strdup_printf("\n  %-8s  %-16s  %s", one.name, one.arguments, one.summary);
            help += line;
        }
    }
    return help + "\n\nSTICK is a stick's name such as " + kStickPrefix + "1" +
           ", or just its number. 'transferctl COMMAND --help'\ntells more.\n\n"
           "Exit status: 0 done, 1 refused, 2 wrong usage, 3 the service does not answer, "
           "4 time limit.";
}

}  // namespace transferctl
