// Places on sticks, written STICK:dir/file.
#include "transferctl/stick_path.h"

#include <glib.h>

#include <algorithm>
#include <string_view>

#include "transfer/contract.h"
#include "transferctl/failure.h"

namespace transferctl {
namespace {

constexpr std::size_t kLongestNewDirectory = 255;  // of the whole path, what the service uses

void requireUtf8(const std::string& text) {
    if (g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr) == FALSE) {
        throw wrongUsage("'" + text + "' is not UTF-8: the message bus cannot carry it");
    }
}

// The name of the stick that the text names in full or by its number; empty for any other text.
std::string stickNamed(std::string_view text) {
    for (int number = kFirstStick; number <= kLastStick; ++number) {
        const std::string digits = std::to_string(number);
        std::string name = kStickPrefix + digits;
        if (text == name || text == digits) {
            return name;
        }
    }
    return {};
}

}  // namespace

StickPath parseStickPath(const std::string& text) {
    requireUtf8(text);
    const std::size_t colon = std::min(text.find(':'), text.size());
    StickPath place{stickNamed(text.substr(0, colon)), {}};
    if (place.stick.empty()) {
        throw wrongUsage("'" + text + "' does not begin with a stick: write " + kStickPrefix +
                         "1:dir/file or 1:dir/file; sticks are 1 to " + std::to_string(kLastStick));
    }
    for (const std::filesystem::path& part :
         std::filesystem::path(text.substr(std::min(colon + 1, text.size()))).relative_path()) {
        if (part == "..") {
            throw wrongUsage("'" + text + "' contains '..', which may lead off the stick");
        }
        if (!part.empty() && part != ".") {
            place.path /= part;
        }
    }
    return place;
}

void checkNewName(const std::string& name) {
    requireUtf8(name);
    if (name.empty() || name.find('/') != std::string::npos) {
        throw wrongUsage("'" + name + "' is not the name of a file");
    }
    if (name[0] == '.') {
        throw wrongUsage("'" + name + "' begins with a dot: the service would never list it");
    }
}

void checkNewDirectory(const StickPath& directory) {
    const std::size_t length = (kMountBase + ("/" + directory.text())).size();
    if (length > kLongestNewDirectory) {
        throw wrongUsage("the path is too long by " +
                         std::to_string(length - kLongestNewDirectory) +
                         " bytes: the service would cut it off");
    }
}

}  // namespace transferctl
