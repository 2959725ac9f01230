// The working list of the listings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "transfer/records.h"

// Entries in two pieces of memory, a third of what as many FileEntry take: a directory of 100,000
// files fits a small device twice. Views of entries are good until the list changes.
class EntryList {
public:
    std::size_t size() const { return items.size(); }
    bool empty() const { return items.empty(); }

    FileEntryView operator[](std::size_t index) const;

    // `name` has no zero byte in it. Equal locations that follow each other are kept once.
    void append(std::uint32_t kind, std::string_view name, std::int64_t bytes,
                const std::string& location);

    // Puts the directories among the entries from `begin` on before the others of them; both groups
    // keep their order.
    void putDirectoriesFirst(std::size_t begin);

    // Empties the list and gives its memory back.
    void clear();

    // A copy that stays as it is.
    std::vector<FileEntry> records() const;

private:
    struct Item {
        std::int64_t size;
        std::size_t name;  // where in `names`
        std::uint32_t kind;
        std::uint32_t location;  // which of `locations`
    };

    std::vector<Item> items;
    std::string names;  // each ended by a zero byte
    std::vector<std::string> locations;
};
