// The command line of transferctl.
#include "transferctl/options.h"

#include <glib.h>

#include <array>
#include <cmath>
#include <memory>

#include "transferctl/failure.h"
#include "transferctl/units.h"

namespace transferctl {
namespace {

constexpr std::chrono::seconds kLimit{120};
constexpr std::chrono::hours kLimitOfWaiting{1};
constexpr double kLongestSeconds = 1e6;

struct FreeContext {
    void operator()(GOptionContext* context) const { g_option_context_free(context); }
};
using Context = std::unique_ptr<GOptionContext, FreeContext>;

struct FreeTexts {
    void operator()(gchar** texts) const { g_strfreev(texts); }
};
using Texts = std::unique_ptr<gchar*, FreeTexts>;

// What GOption writes to; one parse, one object.
struct Slots {
    gboolean json = FALSE;
    gboolean wait = FALSE;
    gboolean force = FALSE;
    gboolean version = FALSE;
    gdouble timeout = 0;
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

GOptionEntry entry(const char* name, char letter, GOptionArg kind, gpointer slot,
                   const char* description, const char* value = nullptr) {
    return {name, letter, 0, kind, slot, description, value};
}

void addEntry(GOptionContext* context, const GOptionEntry& one) {
    const std::array<GOptionEntry, 2> entries{one, GOptionEntry{}};
    g_option_context_add_main_entries(context, entries.data(), nullptr);
}

void addCommonEntries(GOptionContext* context, Slots* slots) {
    addEntry(context,
             entry("json", 0, G_OPTION_ARG_NONE, &slots->json, "Print JSON instead of text"));
    addEntry(context, entry("timeout", 0, G_OPTION_ARG_DOUBLE, &slots->timeout,
                            "Give up after so long (120, with --wait 3600)", "SECONDS"));
}

// Names may be any bytes, and FILENAME is the kind of value that GOption leaves as it is.
void addCommandEntries(GOptionContext* context, unsigned knows, Slots* slots) {
    if ((knows & kBackupOptions) != 0) {
        addEntry(context, entry("type", 't', G_OPTION_ARG_FILENAME, &slots->type,
                                "What to save: full (the default), recipes or users", "TYPE"));
        addEntry(context, entry("name", 'n', G_OPTION_ARG_FILENAME, &slots->name,
                                "Name of the file instead of the proposed one", "NAME"));
        addEntry(context, entry("wait", 'w', G_OPTION_ARG_NONE, &slots->wait,
                                "Wait until the device manager accepts the finished file"));
    }
    if ((knows & kForce) != 0) {
        addEntry(context, entry("force", 'f', G_OPTION_ARG_NONE, &slots->force,
                                "Go on where transferctl would refuse"));
    }
    addEntry(context,
             entry(G_OPTION_REMAINING, 0, G_OPTION_ARG_FILENAME_ARRAY, &slots->rest, nullptr));
}

std::vector<std::string> textsIn(gchar** texts) {
    std::vector<std::string> result;
    for (gchar** text = texts; text != nullptr && *text != nullptr; ++text) {
        result.emplace_back(*text);
    }
    return result;
}

// Parses and returns what is left over, the program's name not included.
std::vector<std::string> parse(GOptionContext* context, const std::string& program,
                               const std::vector<std::string>& arguments) {
    g_set_prgname(program.c_str());
    auto** texts = g_new0(gchar*, arguments.size() + 2);
    texts[0] = g_strdup(program.c_str());
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        texts[i + 1] = g_strdup(arguments[i].c_str());
    }
    g_autoptr(GError) error = nullptr;
    const bool understood = g_option_context_parse_strv(context, &texts, &error) != FALSE;
    const Texts owner(texts);
    if (!understood) {
        throw Failure(ExitStatus::kUsage, error->message);
    }
    return textsIn(texts + 1);
}

void takeOver(const Slots& slots, Options* options) {
    options->json = options->json || slots.json != FALSE;
    options->wait = slots.wait != FALSE;
    options->force = slots.force != FALSE;
    options->type = slots.type != nullptr ? slots.type : options->type;
    if (slots.name != nullptr) {
        options->name = slots.name;
    }
    if (slots.timeout == 0) {
        return;
    }
    if (!(slots.timeout > 0 && slots.timeout <= kLongestSeconds)) {
        throw Failure(ExitStatus::kUsage, "the time limit is a number of seconds above 0");
    }
    options->timeout = std::chrono::milliseconds(
        static_cast<std::int64_t>(std::ceil(slots.timeout * kMillisecondsPerSecond)));
}

void checkNumber(const Command& command, std::size_t number) {
    if (number >= command.fewest && number <= command.most) {
        return;
    }
    throw Failure(ExitStatus::kUsage,
                  std::string(number < command.fewest ? "missing" : "too many") +
                      " arguments: transferctl " + command.name + " " + command.arguments);
}

}  // namespace

std::chrono::milliseconds Options::limit() const {
    return timeout.value_or(wait ? std::chrono::milliseconds(kLimitOfWaiting) : kLimit);
}

GlobalLine parseGlobalLine(const std::vector<std::string>& arguments,
                           const std::string& commandList) {
    Slots slots;
    const Context context(g_option_context_new("COMMAND [ARGUMENT...]"));
    g_option_context_set_strict_posix(context.get(), TRUE);
    g_option_context_set_summary(context.get(), commandList.c_str());
    addCommonEntries(context.get(), &slots);
    addEntry(context.get(),
             entry("version", 0, G_OPTION_ARG_NONE, &slots.version, "Print the version and end"));
    GlobalLine line;
    line.rest = parse(context.get(), "transferctl", arguments);
    if (!line.rest.empty() && line.rest.front() == "--") {
        line.rest.erase(line.rest.begin());
    }
    takeOver(slots, &line.options);
    line.version = slots.version != FALSE;
    return line;
}

Options parseCommandLine(const Command& command, const Options& global,
                         const std::vector<std::string>& arguments) {
    Slots slots;
    const Context context(g_option_context_new(command.arguments));
    g_option_context_set_summary(context.get(), command.description);
    addCommonEntries(context.get(), &slots);
    addCommandEntries(context.get(), command.knows, &slots);
    parse(context.get(), std::string("transferctl ") + command.name, arguments);
    Options options = global;
    takeOver(slots, &options);
    options.arguments = textsIn(slots.rest);
    checkNumber(command, options.arguments.size());
    return options;
}

}  // namespace transferctl
