// The commands that change a stick's directories, and the one that proposes a name.
#include "transferctl/commands.h"
#include "transferctl/json_text.h"
#include "transferctl/looking.h"
#include "transferctl/output.h"
#include "transferctl/shown_text.h"
#include "transferctl/transfer_client.h"

namespace transferctl {
namespace {

[[noreturn]] void refused(const std::string& message) {
    throw Failure(ExitStatus::kRefused, message);
}

StickPath placeBelowRoot(const std::string& argument) {
    StickPath place = parseStickPath(argument);
    if (place.isRoot()) {
        throw Failure(ExitStatus::kUsage, "'" + argument + "' names the stick itself");
    }
    return place;
}

void printPlace(const char* word, const StickPath& place, const Options& options) {
    if (options.json) {
        JsonBuilding json;
        json.text(word, place.text());
        print(json.line());
    } else {
        print(std::string(word) + " " + shownSafely(place.text()) + "\n");
    }
}

// Why a removal was refused, as far as a listing tells.
std::string reasonToKeep(TransferClient* client, const StickPath& place) {
    const std::optional<File> file = findFile(*client, place);
    if (!file) {
        return place.isHidden() ? "not there or not allowed: " : "no such file or directory: ";
    }
    if (!file->isDirectory) {
        return "not allowed: ";
    }
    return client->directory(place).empty() ? "not allowed, or hidden files are in it: "
                                            : "directory not empty: ";
}

}  // namespace

void makeDirectory(const Options& options) {
    const StickPath place = placeBelowRoot(options.arguments.front());
    checkNewName(place.name());
    checkNewDirectory(place);
    TransferClient client{Deadline(options.limit())};
    requireMounted(client, place.stick);
    if (!client.createDirectory(place)) {
        refused("exists already: " + place.text());
    }
    // The service's yes means that it has tried.
    const std::optional<File> made = findFile(client, place);
    if (!made || !made->isDirectory) {
        refused(
            "the service has tried, but the directory is not there (stick full or read-only?): " +
            place.text());
    }
    printPlace("created", place, options);
}

void removeFile(const Options& options) {
    const StickPath place = placeBelowRoot(options.arguments.front());
    TransferClient client{Deadline(options.limit())};
    requireMounted(client, place.stick);
    if (!client.deleteFile(place)) {
        refused(reasonToKeep(&client, place) + place.text());
    }
    printPlace("removed", place, options);
}

void proposeName(const Options& options) {
    TransferClient client{Deadline(options.limit())};
    const std::string name = client.backupName();
    if (name.empty()) {
        refused("the device's name cannot be read, so there is no proposal");
    }
    if (options.json) {
        JsonBuilding json;
        json.text("name", name);
        print(json.line());
    } else {
        print(shownSafely(name) + "\n");
    }
}

}  // namespace transferctl
