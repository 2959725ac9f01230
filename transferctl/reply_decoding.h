// The service's flat lists as records, whatever a reply may hold.
#pragma once

#include <gio/gio.h>

#include <string>
#include <vector>

#include "transferctl/records.h"

namespace transferctl {

// Both take an "av", four elements a record, and throw Failure (no service) when the elements are
// others than promised. A null list is wrong, too.
std::vector<Stick> decodeSticks(GVariant* list);

// `stick` is the one that was listed; the places are on it.
std::vector<File> decodeFiles(GVariant* list, const std::string& stick);

}  // namespace transferctl
