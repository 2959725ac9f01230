// The hidden command that the completion of bash asks.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "transferctl/commands.h"
#include "transferctl/output.h"

namespace transferctl {
namespace {

constexpr const char* kReplacement = "\uFFFD";  // stands for bytes that cannot be passed back

bool beginsWith(std::string_view text, std::string_view beginning) {
    return text.substr(0, beginning.size()) == beginning;
}

// The word to complete: what the shell would make of it, and the quote that is still open in it.
struct Word {
    std::string text;
    std::string quote;
};

Word unquoted(const std::string& typed) {
    for (const char* const quote : {"", "\"", "'"}) {
        g_autofree gchar* text = g_shell_unquote((typed + quote).c_str(), nullptr);
        if (text != nullptr) {
            return {text, quote};
        }
    }
    return {typed, ""};
}

// The characters that lose their meaning behind a backslash.
const char* specialIn(const std::string& quote) {
    if (quote.empty()) {
        return " \t!\"#$&'()*;<>?[\\]^`{|}~";
    }
    return quote == "\"" ? "\"$\\`" : "";
}

// Prints the candidate, if the word is its beginning, as it is to be typed behind the open quote.
void offer(const std::string& candidate, const Word& word) {
    if (!beginsWith(candidate, word.text)) {
        return;
    }
    std::string quoted;
    for (const char character : candidate) {
        if (word.quote == "'" && character == '\'') {
            quoted += "'\\'";
        } else if (std::strchr(specialIn(word.quote), character) != nullptr) {
            quoted += '\\';
        }
        quoted += character;
    }
    print(quoted + "\n");
}

// A shell would show or run more than a name if it were handed such characters.
bool canBeTyped(const std::string& name) {
    return safeJson(name) == name && name.find(kReplacement) == std::string::npos;
}

bool isNamedBy(Argument argument, const File& file) {
    const std::string name = file.place.path.filename();
    switch (argument) {
        case Argument::kAnything:
            return true;
        case Argument::kBackup:
            return file.isDirectory || hasMarker(name, kBackupMarker);
        case Argument::kUpdate:
            return file.isDirectory || hasMarker(name, kUpdateMarker);
        default:
            return file.isDirectory;
    }
}

void offerSticks(TransferClient* client, const Word& word) {
    for (const Stick& stick : client->sticks()) {
        offer(stick.name + ":", word);
        const std::string number = stick.name.substr(stick.name.rfind('.') + 1);
        if (!word.text.empty()) {
            offer(number + ":", word);
        }
    }
}

void offerPlaces(Argument argument, const Word& word, const Options& options) {
    if (argument == Argument::kNothing) {
        return;
    }
    TransferClient client{Deadline(options.limit)};
    if (word.text.find(':') == std::string::npos) {
        offerSticks(&client, word);
        return;
    }
    // What has been typed up to the last slash stays as it is.
    const std::string typed =
        word.text.substr(0, std::max(word.text.rfind('/') + 1, word.text.find(':') + 1));
    for (const File& file : client.directory(parseStickPath(typed))) {
        const std::string name = file.place.path.filename();
        if (isNamedBy(argument, file) && canBeTyped(name)) {
            offer(typed + name + (file.isDirectory ? "/" : ""), word);
        }
    }
}

// The option whose value comes after the word; null for another word.
const GOptionEntry* optionBefore(const std::vector<GOptionEntry>& entries,
                                 const std::string& word) {
    const auto found = std::find_if(entries.begin(), entries.end(), [&word](const auto& entry) {
        return entry.arg_description != nullptr && (word == std::string("--") + entry.long_name ||
                                                    word == std::string{'-', entry.short_name});
    });
    return found != entries.end() ? &*found : nullptr;
}

void offerValues(const GOptionEntry& option, const Word& word) {
    const std::string words = option.arg_description;
    if (words.find('|') != std::string::npos) {
        g_auto(GStrv) values = g_strsplit(words.c_str(), "|", -1);
        std::for_each(values, values + g_strv_length(values),
                      [&word](const gchar* value) { offer(value, word); });
    }
}

void offerOptions(const std::vector<GOptionEntry>& entries, const Word& word) {
    const std::size_t equals = word.text.find('=');
    if (equals != std::string::npos) {
        const GOptionEntry* const option = optionBefore(entries, word.text.substr(0, equals));
        if (option != nullptr) {
            // For readline a word begins behind "=".
            offerValues(*option, {word.text.substr(equals + 1), word.quote});
        }
        return;
    }
    offer("--help", word);
    for (const GOptionEntry& entry : entries) {
        if (entry.description != nullptr) {
            offer(std::string("--") + entry.long_name, word);
        }
    }
}

// The last of the words is the one to complete.
void offerCandidates(const Options& options) {
    const std::vector<GOptionEntry> entries = optionEntries(kEveryOption);
    const Command* command = nullptr;
    const GOptionEntry* option = nullptr;  // whose value comes next
    for (auto word = options.arguments.begin(); word != options.arguments.end() - 1; ++word) {
        option = optionBefore(entries, unquoted(*word).text);
        if (command == nullptr) {
            command = findCommand(unquoted(*word).text);
        }
    }
    const Word word = unquoted(options.arguments.back());
    if (option != nullptr) {
        offerValues(*option, word);
    } else if (beginsWith(word.text, "-")) {
        offerOptions(optionEntries(optionGroups(command)), word);
    } else if (command != nullptr) {
        offerPlaces(command->argument, word, options);
    } else {
        for (const std::string& name : commandNames()) {
            offer(name, word);
        }
    }
}

}  // namespace

void printCandidates(const Options& options) {
    try {
        offerCandidates(options);
    } catch (const Failure&) {
        // A prompt is no place for messages.
    }
}

}  // namespace transferctl
