// The working list of the listings.
#include "transfer/entry_list.h"

#include <algorithm>

FileEntryView EntryList::operator[](std::size_t index) const {
    const Item& item = items[index];
    return {item.kind, names.c_str() + item.name, item.size, locations[item.location]};
}

void EntryList::append(std::uint32_t kind, std::string_view name, std::int64_t bytes,
                       const std::string& location) {
    if (locations.empty() || locations.back() != location) {
        locations.push_back(location);
    }
    items.push_back({bytes, names.size(), kind, static_cast<std::uint32_t>(locations.size() - 1)});
    names += name;
    names += '\0';
}

void EntryList::putDirectoriesFirst(std::size_t begin) {
    const auto isDirectory = [](const Item& item) { return item.kind == FileEntry::kDirectory; };
    const auto from = items.begin() + static_cast<std::ptrdiff_t>(begin);
    if (!std::is_partitioned(from, items.end(), isDirectory)) {
        std::stable_partition(from, items.end(), isDirectory);
    }
}

void EntryList::clear() {
    *this = {};
}

std::vector<FileEntry> EntryList::records() const {
    std::vector<FileEntry> result;
    result.reserve(size());
    for (std::size_t i = 0; i < size(); ++i) {
        const FileEntryView entry = (*this)[i];
        result.push_back(
            {entry.kind, std::string(entry.name), entry.size, std::string(entry.location), {}});
    }
    return result;
}
