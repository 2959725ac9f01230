// The command line of transferctl.
#include "transferctl/commands.h"

#include <algorithm>
#include <array>
#include <limits>

#include "transferctl/failure.h"
#include "transferctl/output.h"

namespace transferctl {
namespace {

constexpr std::chrono::seconds kLimit{120};
constexpr std::chrono::hours kLimitOfWaiting{1};
constexpr int kLongestSeconds = 1000000;
constexpr double kNotGiven = std::numeric_limits<double>::max();

constexpr const char* kKindWords = "full|recipes|users";  // of BackupKind, from 1

// What GOption writes to; one parse, one object.
struct Slots {
    gboolean version = FALSE;
    gboolean json = FALSE;
    gboolean force = FALSE;
    gboolean wait = FALSE;
    gdouble timeout = kNotGiven;
    gchar* type = nullptr;
    gchar* name = nullptr;
    gchar** rest = nullptr;

    Slots() = default;
    ~Slots() {
        g_free(type);
        g_free(name);
        g_strfreev(rest);
    }
    Slots(const Slots&) = delete;
    Slots& operator=(const Slots&) = delete;
};

// Names may be any bytes, and FILENAME is the kind of value that GOption leaves alone.
std::vector<GOptionEntry> entriesOf(unsigned groups, Slots* slots) {
    struct Row {
        unsigned group;
        GOptionEntry entry;
    };
    const std::array<Row, 8> rows{{
        {kProgramOptions,
         {"version", 0, 0, G_OPTION_ARG_NONE, &slots->version, "Print the version", nullptr}},
        {kCommonOptions,
         {"json", 0, 0, G_OPTION_ARG_NONE, &slots->json, "Print JSON instead of text", nullptr}},
        {kCommonOptions,
         {"timeout", 0, 0, G_OPTION_ARG_DOUBLE, &slots->timeout,
          "Give up after so long (120, with --wait 3600)", "SECONDS"}},
        {kBackupOptions,
         {"type", 't', 0, G_OPTION_ARG_FILENAME, &slots->type, "What to save (full)", kKindWords}},
        {kBackupOptions,
         {"name", 'n', 0, G_OPTION_ARG_FILENAME, &slots->name,
          "Name of the file (the service proposes one)", "NAME"}},
        {kBackupOptions,
         {"wait", 'w', 0, G_OPTION_ARG_NONE, &slots->wait,
          "Wait until the device manager accepts the finished file", nullptr}},
        {kJobOptions,
         {"force", 'f', 0, G_OPTION_ARG_NONE, &slots->force, "Start a second job, replace a file",
          nullptr}},
        {kEveryOption,
         {G_OPTION_REMAINING, 0, 0, G_OPTION_ARG_FILENAME_ARRAY, &slots->rest, nullptr, nullptr}},
    }};
    std::vector<GOptionEntry> entries;
    for (const Row& row : rows) {
        if ((row.group & groups) != 0) {
            entries.push_back(row.entry);
        }
    }
    entries.push_back({});
    return entries;
}

// Throws Failure (usage). With --help it prints the help and ends the process.
void parse(GOptionContext* context, unsigned groups, const std::vector<std::string>& arguments,
           Slots* slots) {
    g_option_context_add_main_entries(context, entriesOf(groups, slots).data(), nullptr);
    g_auto(GStrv) words = g_new0(gchar*, arguments.size() + 2);
    words[0] = g_strdup("transferctl");
    std::transform(arguments.begin(), arguments.end(), words + 1,
                   [](const std::string& argument) { return g_strdup(argument.c_str()); });
    g_autoptr(GError) error = nullptr;
    if (g_option_context_parse_strv(context, &words, &error) == FALSE) {
        throw wrongUsage(error->message);
    }
}

// The command among the arguments; null when there is none.
const Command* commandIn(const std::vector<std::string>& arguments) {
    g_autoptr(GOptionContext) context = g_option_context_new(nullptr);
    g_option_context_set_help_enabled(context, FALSE);
    gboolean help = FALSE;
    const std::array<GOptionEntry, 2> entries{
        {{"help", 'h', 0, G_OPTION_ARG_NONE, &help, nullptr, nullptr}, {}}};
    g_option_context_add_main_entries(context, entries.data(), nullptr);
    Slots slots;
    parse(context, kEveryOption, arguments, &slots);
    if (slots.rest == nullptr) {
        return nullptr;
    }
    const Command* const command = findCommand(slots.rest[0]);
    if (command == nullptr) {
        throw wrongUsage(std::string("unknown command '") + slots.rest[0] +
                         "'; see transferctl --help");
    }
    return command;
}

BackupKind kindNamed(const std::string& word) {
    g_auto(GStrv) words = g_strsplit(kKindWords, "|", -1);
    for (std::uint32_t i = 0; words[i] != nullptr; ++i) {
        if (word == words[i]) {
            return BackupKind{i + 1};
        }
    }
    throw wrongUsage("'" + word + "' is no type of backup; --type is " + kKindWords);
}

std::chrono::milliseconds limitIn(const Slots& slots) {
    if (slots.timeout == kNotGiven) {
        return slots.wait != FALSE ? std::chrono::milliseconds(kLimitOfWaiting) : kLimit;
    }
    if (!(slots.timeout > 0 && slots.timeout <= kLongestSeconds)) {
        throw wrongUsage("--timeout is a number of seconds above 0, at most " +
                         std::to_string(kLongestSeconds));
    }
    return std::chrono::ceil<std::chrono::milliseconds>(
        std::chrono::duration<double>(slots.timeout));
}

void requireNumberOfArguments(const Command& command, std::size_t number) {
    if (number < command.fewest || number > command.most) {
        throw wrongUsage(std::string(number < command.fewest ? "missing" : "too many") +
                         " arguments; the usage is: transferctl " + command.name + " " +
                         command.arguments);
    }
}

}  // namespace

unsigned optionGroups(const Command* command) {
    return kCommonOptions | (command != nullptr ? command->options : kProgramOptions);
}

std::vector<GOptionEntry> optionEntries(unsigned groups) {
    Slots unused;
    return entriesOf(groups, &unused);
}

const Command* parseCommandLine(const std::vector<std::string>& arguments, Options* options) {
    const Command* const command = commandIn(arguments);
    const std::string usage = command != nullptr
                                  ? command->name + (" " + std::string(command->arguments))
                                  : "COMMAND [ARGUMENT...]";
    g_autoptr(GOptionContext) context = g_option_context_new(usage.c_str());
    g_option_context_set_summary(context, helpOf(command).c_str());
    Slots slots;
    parse(context, optionGroups(command), arguments, &slots);
    if (slots.version != FALSE) {
        print("transferctl " TRANSFERCTL_VERSION "\n");
        return nullptr;
    }
    if (command == nullptr) {
        throw wrongUsage("no command; see transferctl --help");
    }
    options->wait = slots.wait != FALSE;
    options->force = slots.force != FALSE;
    options->kind = slots.type != nullptr ? kindNamed(slots.type) : BackupKind::kFull;
    if (slots.name != nullptr) {
        options->name = slots.name;
    }
    options->limit = limitIn(slots);
    options->arguments.assign(slots.rest + 1, slots.rest + g_strv_length(slots.rest));
    requireNumberOfArguments(*command, options->arguments.size());
    options->json = slots.json != FALSE;
    return command;
}

}  // namespace transferctl
