// Questions about sticks and directories that several commands ask.
#include "transferctl/looking.h"

#include <algorithm>

namespace transferctl {

void requireMounted(TransferClient& client, const std::string& stick) {
    if (!client.isMounted(stick)) {
        throw Failure(ExitStatus::kRefused, "stick not mounted: " + stick);
    }
}

std::optional<File> findFile(TransferClient& client, const StickPath& place) {
    const std::vector<File> files = client.directory(place.parent());
    const auto found = std::find_if(files.begin(), files.end(), [&place](const File& file) {
        return file.name == place.name();
    });
    return found != files.end() ? std::make_optional(*found) : std::nullopt;
}

}  // namespace transferctl
