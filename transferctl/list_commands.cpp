// The commands that show what is there: sticks, directories, backups, updates.
#include <algorithm>

#include "transferctl/commands.h"
#include "transferctl/json_text.h"
#include "transferctl/looking.h"
#include "transferctl/output.h"
#include "transferctl/shown_text.h"
#include "transferctl/transfer_client.h"
#include "transferctl/units.h"

namespace transferctl {
namespace {

// From here on a level of a tree is left out by the service.
constexpr std::size_t kTreeListLimit = 30;

using Side = Column::Side;

Cell sizeCell(std::uint64_t bytes) {
    return {humanSize(bytes), std::to_string(bytes)};
}

// Directories have no size that says anything.
Cell sizeCell(const File& file) {
    return file.isDirectory ? Cell{"-", "-"} : sizeCell(file.size);
}

void printFiles(const std::vector<File>& files, const Options& options) {
    if (options.json) {
        print(listToJson("files", files).line());
        return;
    }
    Table table({{"NAME", Side::kLeft}, {"SIZE", Side::kRight}});
    for (const File& file : files) {
        table.add({textCell(file.name + (file.isDirectory ? "/" : "")), sizeCell(file)});
    }
    print(table);
}

void printPackages(const std::vector<File>& files, const Options& options) {
    if (options.json) {
        print(listToJson("files", files).line());
        return;
    }
    Table table({{"FILE", Side::kLeft}, {"SIZE", Side::kRight}});
    for (const File& file : files) {
        table.add({textCell(file.place.text() + (file.isDirectory ? "/" : "")), sizeCell(file)});
    }
    print(table);
}

void sortByKindAndName(std::vector<File>* files) {
    std::sort(files->begin(), files->end(), [](const File& left, const File& right) {
        return left.isDirectory != right.isDirectory ? left.isDirectory : left.name < right.name;
    });
}

// The places that a command was given, or all sticks.
std::vector<StickPath> placesIn(const Options& options, TransferClient* client) {
    std::vector<StickPath> places;
    for (const std::string& argument : options.arguments) {
        places.push_back(parseStickPath(argument));
    }
    if (places.empty()) {
        for (const Stick& stick : client->sticks()) {
            places.push_back({stick.name, ""});
        }
    }
    return places;
}

// An empty listing may mean that there is no such directory: looks again, more closely.
std::vector<File> directoryOrFile(TransferClient* client, const StickPath& place) {
    std::vector<File> files = client->directory(place);
    if (!files.empty()) {
        return files;
    }
    requireMounted(*client, place.stick);
    if (place.isRoot() || place.isHidden()) {
        return files;
    }
    const std::optional<File> itself = findFile(*client, place);
    if (!itself) {
        throw Failure(ExitStatus::kRefused, "no such file or directory: " + place.text());
    }
    return itself->isDirectory ? files : std::vector<File>{*itself};
}

using Listing = std::vector<File> (TransferClient::*)(const StickPath& path);

void listPackages(const Options& options, Listing listing) {
    for (const std::string& argument : options.arguments) {
        parseStickPath(argument);  // wrong usage needs no service
    }
    TransferClient client{Deadline(options.limit())};
    std::vector<File> all;
    bool mayBeCut = false;
    for (const StickPath& place : placesIn(options, &client)) {
        const std::vector<File> files = (client.*listing)(place);
        if (files.empty()) {
            requireMounted(client, place.stick);
        }
        mayBeCut = mayBeCut || files.size() >= kTreeListLimit;
        all.insert(all.end(), files.begin(), files.end());
    }
    printPackages(all, options);
    if (mayBeCut) {
        note("the service ends its lists at about 30 files; there may be more: name a directory");
    }
}

}  // namespace

void listSticks(const Options& options) {
    TransferClient client{Deadline(options.limit())};
    const std::vector<Stick> sticks = client.sticks();
    if (options.json) {
        print(listToJson("sticks", sticks).line());
        return;
    }
    Table table({{"STICK", Side::kLeft},
                 {"SIZE", Side::kRight},
                 {"FREE", Side::kRight},
                 {"USED", Side::kRight}});
    for (const Stick& stick : sticks) {
        const std::uint64_t used = stick.size - std::min(stick.size, stick.free);
        table.add({textCell(stick.name),
                   sizeCell(stick.size),
                   sizeCell(stick.free),
                   {humanShare(used, stick.size), std::to_string(used)}});
    }
    print(table);
}

void listDirectory(const Options& options) {
    const StickPath place = parseStickPath(options.arguments.front());
    TransferClient client{Deadline(options.limit())};
    std::vector<File> files = directoryOrFile(&client, place);
    sortByKindAndName(&files);
    printFiles(files, options);
}

void listBackups(const Options& options) {
    listPackages(options, &TransferClient::backups);
}

void listUpdates(const Options& options) {
    listPackages(options, &TransferClient::updates);
}

}  // namespace transferctl
