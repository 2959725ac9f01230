// The commands that show and change what is there: the service, sticks, directories, files.
#include <algorithm>
#include <iterator>

#include "transferctl/commands.h"
#include "transferctl/jobs.h"
#include "transferctl/output.h"

namespace transferctl {
namespace {

GVariant* jsonOf(const File& file) {
    return g_variant_new_parsed(
        "{'place': <%s>, 'stick': <%s>, 'path': <%s>, 'name': <%s>, 'kind': <%s>, 'size': <%x>}",
        file.place.text().c_str(), file.place.stick.c_str(), file.place.path.c_str(),
        file.place.path.filename().c_str(), file.isDirectory ? "directory" : "file",
        jsonNumber(file.size));
}

template <typename Record>
void printJsonList(const char* name, const std::vector<Record>& records) {
    GVariantBuilder list;
    g_variant_builder_init(&list, G_VARIANT_TYPE("aa{sv}"));
    for (const Record& record : records) {
        g_variant_builder_add_value(&list, jsonOf(record));
    }
    printJson(g_variant_new_parsed("{%s: <%@aa{sv}>}", name, g_variant_builder_end(&list)));
}

void printFiles(const std::vector<File>& files, const char* title, const Options& options,
                std::string (*nameOf)(const StickPath& place)) {
    if (options.json) {
        printJsonList("files", files);
        return;
    }
    Table table({title, "SIZE"});
    for (const File& file : files) {
        const std::string name = safeText(nameOf(file.place));
        file.isDirectory ? table.add({name + "/", "-"}) : table.add({name, table.size(file.size)});
    }
    print(table.text());
}

// An empty listing may mean that there is no such directory.
std::vector<File> directoryOrFile(TransferClient* client, const StickPath& place) {
    std::vector<File> files = client->directory(place);
    if (!files.empty()) {
        return files;
    }
    client->requireMounted(place.stick);
    if (place.path.empty() || place.isHidden()) {
        return files;
    }
    const std::optional<File> itself = client->find(place);
    if (!itself) {
        throw refused("no such file or directory: " + place.text());
    }
    return itself->isDirectory ? files : std::vector<File>{*itself};
}

using Listing = std::vector<File> (TransferClient::*)(const StickPath& place);

void listPackages(const Options& options, Listing listing) {
    std::vector<StickPath> places;
    std::transform(options.arguments.begin(), options.arguments.end(), std::back_inserter(places),
                   parseStickPath);
    TransferClient client{Deadline(options.limit)};
    if (places.empty()) {
        for (const Stick& stick : client.sticks()) {
            places.push_back({stick.name, {}});
        }
    }
    std::vector<File> all;
    bool mayBeCut = false;
    for (const StickPath& place : places) {
        const std::vector<File> files = (client.*listing)(place);
        if (files.empty()) {
            client.requireMounted(place.stick);
        }
        mayBeCut = mayBeCut || files.size() >= kTreeListLimit;
        all.insert(all.end(), files.begin(), files.end());
    }
    printFiles(all, "FILE", options, [](const StickPath& place) { return place.text(); });
    if (mayBeCut) {
        note("the service ends a list at about " + std::to_string(kTreeListLimit) +
             " files, so there may be more: name a directory to see those below it");
    }
}

StickPath placeBelowRoot(const Options& options) {
    StickPath place = parseStickPath(options.arguments.front());
    if (place.path.empty()) {
        throw wrongUsage("'" + place.text() + "' is the stick itself");
    }
    return place;
}

void printChange(const char* word, const StickPath& place, const Options& options) {
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

void showStatus(const Options& options) {
    TransferClient client{Deadline(options.limit)};
    const std::string owner = client.owner();
    const unsigned process = client.process();
    const std::size_t sticks = client.sticks().size();
    const std::optional<StartedJob> job = startedJob(client);
    if (options.json) {
        GVariant* const jobJson = job ? g_variant_new_parsed("{'job': <%s>, 'file': <%s>}",
                                                             job->job.c_str(), job->file.c_str())
                                      : nullptr;
        printJson(g_variant_new_parsed(
            "{'running': <true>, 'owner': <%s>, 'pid': <%u>, 'sticks': <%x>, 'job': <%@ma{sv}>}",
            owner.c_str(), process, jsonNumber(sticks),
            g_variant_new_maybe(G_VARIANT_TYPE_VARDICT, jobJson)));
        return;
    }
    print("service  running as " + owner + ", process " + std::to_string(process) + "\nsticks   " +
          std::to_string(sticks) + "\njob      " +
          (job ? job->job + " of " + safeText(job->file) + ", started by you"
               : "none started by you") +
          "\n");
}

void listSticks(const Options& options) {
    TransferClient client{Deadline(options.limit)};
    const std::vector<Stick> sticks = client.sticks();
    if (options.json) {
        printJsonList("sticks", sticks);
        return;
    }
    Table table({"STICK", "SIZE", "FREE", "USED"});
    for (const Stick& stick : sticks) {
        const std::uint64_t used = stick.size - std::min(stick.size, stick.free);
        table.add({safeText(stick.name), table.size(stick.size), table.size(stick.free),
                   table.used(used, stick.size)});
    }
    print(table.text());
}

void listDirectory(const Options& options) {
    const StickPath place = parseStickPath(options.arguments.front());
    TransferClient client{Deadline(options.limit)};
    std::vector<File> files = directoryOrFile(&client, place);
    std::sort(files.begin(), files.end(), [](const File& left, const File& right) {
        return std::make_pair(!left.isDirectory, left.place.path.native()) <
               std::make_pair(!right.isDirectory, right.place.path.native());
    });
    printFiles(files, "NAME", options, [](const StickPath& directoryEntry) -> std::string {
        return directoryEntry.path.filename();
    });
}

void listBackups(const Options& options) {
    listPackages(options, &TransferClient::backups);
}

void listUpdates(const Options& options) {
    listPackages(options, &TransferClient::updates);
}

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
    printChange("created", place, options);
}

void removeFile(const Options& options) {
    const StickPath place = placeBelowRoot(options);
    TransferClient client{Deadline(options.limit)};
    client.requireMounted(place.stick);
    if (!client.deleteFile(place)) {
        throw refused(reasonToKeep(&client, place) + ": " + place.text());
    }
    printChange("removed", place, options);
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
