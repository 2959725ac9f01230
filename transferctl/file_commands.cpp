// The commands that change a stick's directories, and the one that proposes a name.
#include "transferctl/commands.h"
#include "transferctl/output.h"

namespace transferctl {
namespace {

StickPath placeBelowRoot(const Options& options) {
    StickPath place = parseStickPath(options.arguments.front());
    if (place.path.empty()) {
        throw wrongUsage("'" + place.text() + "' is the stick itself");
    }
    return place;
}

void printDone(const char* word, const StickPath& place, const Options& options) {
    if (options.json) {
        printJson(g_variant_new_parsed("{%s: <%s>}", word, place.text().c_str()));
    } else {
        print(word + (" " + safeText(place.text())) + "\n");
    }
}

// Why the service has refused to remove the place, as far as listings tell.
std::string reasonToKeep(TransferClient* client, const StickPath& place) {
    const std::optional<File> file = client->find(place);
    if (!file) {
        return place.isHidden() ? "not there, or not allowed" : "no such file or directory";
    }
    if (!file->isDirectory) {
        return "not allowed (stick read-only?)";
    }
    return client->directory(place).empty() ? "not allowed, or hidden files are in it"
                                            : "directory not empty";
}

}  // namespace

void makeDirectory(const Options& options) {
    const StickPath place = placeBelowRoot(options);
    checkNewName(place.path.filename());
    checkNewDirectory(place);
    TransferClient client{Deadline(options.limit)};
    client.requireMounted(place.stick);
    if (!client.createDirectory(place)) {
        throw refused("exists already: " + place.text());
    }
    const std::optional<File> made = client.find(place);
    if (!made || !made->isDirectory) {
        throw refused("the service has not been able to make it (stick full or read-only?): " +
                      place.text());
    }
    printDone("created", place, options);
}

void removeFile(const Options& options) {
    const StickPath place = placeBelowRoot(options);
    TransferClient client{Deadline(options.limit)};
    client.requireMounted(place.stick);
    if (!client.deleteFile(place)) {
        throw refused(reasonToKeep(&client, place) + ": " + place.text());
    }
    printDone("removed", place, options);
}

void proposeName(const Options& options) {
    const std::string name = TransferClient(Deadline(options.limit)).proposedName();
    if (options.json) {
        printJson(g_variant_new_parsed("{'name': <%s>}", name.c_str()));
    } else {
        print(safeText(name) + "\n");
    }
}

}  // namespace transferctl
