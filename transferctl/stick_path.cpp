// Places on sticks, written STICK:dir/file.
#include "transferctl/stick_path.h"

#include <glib.h>

#include <algorithm>

#include "transferctl/failure.h"

namespace transferctl {
namespace {

constexpr std::string_view kStickPrefix = "USB_X60.";
constexpr std::string_view kMountBase = "/media/usb/";
constexpr std::size_t kLongestNewDirectory = 255;  // of the whole path, what the service uses

[[noreturn]] void misused(const std::string& message) {
    throw Failure(ExitStatus::kUsage, message);
}

void checkText(std::string_view text) {
    if (g_utf8_validate_len(text.data(), text.size(), nullptr) == FALSE) {
        misused("not UTF-8, which is all that the message bus carries: " + std::string(text));
    }
}

// The path without empty and "." parts.
std::string cleaned(std::string_view path) {
    std::string clean;
    while (!path.empty()) {
        const std::size_t end = std::min(path.find('/'), path.size());
        const std::string_view part = path.substr(0, end);
        path.remove_prefix(std::min(end + 1, path.size()));
        if (part == "..") {
            misused("'..' may lead off the stick and is not passed on");
        }
        if (!part.empty() && part != ".") {
            clean += (clean.empty() ? "" : "/") + std::string(part);
        }
    }
    return clean;
}

}  // namespace

std::string_view StickPath::name() const {
    const std::size_t slash = path.rfind('/');
    return std::string_view(path).substr(slash == std::string::npos ? 0 : slash + 1);
}

StickPath StickPath::parent() const {
    const std::size_t slash = path.rfind('/');
    return {stick, slash == std::string::npos ? "" : path.substr(0, slash)};
}

StickPath StickPath::child(std::string_view name) const {
    return {stick, path + (isRoot() ? "" : "/") + std::string(name)};
}

std::string stickNamed(std::string_view text) {
    if (text.substr(0, kStickPrefix.size()) == kStickPrefix) {
        text.remove_prefix(kStickPrefix.size());
    }
    const bool known = text.size() == 1 && text[0] >= '1' && text[0] <= '4';
    return known ? std::string(kStickPrefix) + text[0] : "";
}

StickPath parseStickPath(const std::string& text) {
    checkText(text);
    const std::size_t colon = std::min(text.find(':'), text.size());
    const std::string stick = stickNamed(text.substr(0, colon));
    if (stick.empty()) {
        misused(
            "'" + text +
            "' does not begin with a stick: write USB_X60.1:dir/file or 1:dir/file, sticks are 1 "
            "to 4");
    }
    const std::string_view rest = std::string_view(text).substr(std::min(colon + 1, text.size()));
    return {stick, cleaned(rest)};
}

void checkNewName(std::string_view text) {
    checkText(text);
    if (text.empty() || text.find('/') != std::string_view::npos) {
        misused("'" + std::string(text) + "' is not a name");
    }
    if (text[0] == '.') {
        misused("the service lists nothing whose name begins with '.'");
    }
}

void checkNewDirectory(const StickPath& directory) {
    if (kMountBase.size() + directory.stick.size() + 1 + directory.path.size() >
        kLongestNewDirectory) {
        misused("the path is too long: the service would cut it off");
    }
}

}  // namespace transferctl
