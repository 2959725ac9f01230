// The hidden command that the shell's completion asks.
#include <algorithm>
#include <string_view>

#include "transferctl/commands.h"
#include "transferctl/output.h"
#include "transferctl/shown_text.h"
#include "transferctl/transfer_client.h"

namespace transferctl {
namespace {

constexpr const char* kReplacement = "\uFFFD";  // what came from bytes that cannot be passed back

bool beginsWith(std::string_view text, std::string_view beginning) {
    return text.substr(0, beginning.size()) == beginning;
}

// A shell would show or run more than a name if it were handed such characters.
bool canBeTyped(const std::string& name) {
    const std::string_view bytes = name;
    for (const char* at = bytes.data(); at < bytes.data() + bytes.size();
         at = g_utf8_next_char(at)) {
        if (isUnsafe(g_utf8_get_char(at))) {
            return false;
        }
    }
    return name.find(kReplacement) == std::string::npos;
}

bool isOfKind(const File& file, const std::string& kind) {
    if (file.isDirectory || kind == "any") {
        return true;
    }
    const char* const marker = kind == "backup" ? ".psb" : ".fwf";
    return kind != "directory" && file.name.find(marker) != std::string::npos;
}

void printSticks(TransferClient* client, const std::string& word) {
    for (const Stick& stick : client->sticks()) {
        const std::string number = stick.name.substr(stick.name.size() - 1);
        const bool isShort = !word.empty() && beginsWith(number, word);
        const std::string place = (isShort ? number : stick.name) + ":";
        if (!stickNamed(stick.name).empty() && beginsWith(place, word)) {
            print(place + "\n");
        }
    }
}

void printFiles(TransferClient* client, const std::string& kind, const std::string& word) {
    // What has been typed up to the last slash stays as it is.
    const std::size_t begun = std::max(word.rfind('/') + 1, word.find(':') + 1);
    const std::string typed = word.substr(0, begun);
    const std::string beginning = word.substr(begun);
    for (const File& file : client->directory(parseStickPath(typed))) {
        if (beginsWith(file.name, beginning) && isOfKind(file, kind) && canBeTyped(file.name)) {
            print(typed + file.name + (file.isDirectory ? "/" : "") + "\n");
        }
    }
}

}  // namespace

void printCandidates(const Options& options) {
    const std::string& kind = options.arguments[0];
    const std::string& word = options.arguments[1];
    try {
        TransferClient client{Deadline(options.limit())};
        if (word.find(':') == std::string::npos) {
            printSticks(&client, word);
        } else {
            printFiles(&client, kind, word);
        }
    } catch (const Failure&) {
        // No candidates then: a prompt is no place for messages.
    }
}

}  // namespace transferctl
