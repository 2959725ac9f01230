// The manifest of an archive: a GKeyFile with one group for the archive and one for each member.
#include "simulator/archive_manifest.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <set>
#include <string_view>

#include "simulator/key_file.h"

namespace {

constexpr const char* kHeadGroup = "Archive";
constexpr std::uint64_t kFormat = 1;

// An archive that states more than this is not one of ours: it would only keep the device busy.
constexpr std::uint64_t kMaxContentBytes = 1ULL << 30U;
constexpr std::size_t kMaxMembers = 10000;
constexpr std::size_t kMaxTextBytes = 1000;

std::string memberGroup(std::size_t index) {
    return "Member " + std::to_string(index + 1);
}

// Reads the values of a manifest; whatever is missing or malformed is an ArchiveError.
class ManifestReader {
public:
    explicit ManifestReader(const std::string& text) {
        g_autoptr(GError) error = nullptr;
        const gboolean loaded = g_key_file_load_from_data(file_.get(), text.data(), text.size(),
                                                          G_KEY_FILE_NONE, &error);
        require(loaded != FALSE, error);
    }

    std::string text(const std::string& group, const char* key) {
        g_autoptr(GError) error = nullptr;
        g_autofree char* value = g_key_file_get_string(file_.get(), group.c_str(), key, &error);
        require(value != nullptr, error);
        if (std::strlen(value) > kMaxTextBytes) {
            throw ArchiveError("bad manifest: too long a text");
        }
        return value;
    }

    std::uint64_t number(const std::string& group, const char* key) {
        g_autoptr(GError) error = nullptr;
        const std::uint64_t value = g_key_file_get_uint64(file_.get(), group.c_str(), key, &error);
        require(error == nullptr, error);
        return value;
    }

private:
    static void require(bool valid, const GError* error) {
        if (!valid) {
            throw ArchiveError(std::string("bad manifest: ") + error->message);
        }
    }

    KeyFile file_{g_key_file_new()};
};

bool isPlainComponent(std::string_view component) {
    return !component.empty() && component != "." && component != "..";
}

bool isSafeName(const std::string& name) {
    const auto isControl = [](unsigned char c) { return c < 0x20 || c == 0x7F; };
    if (name.empty() || name.size() > kMaxTextBytes ||
        g_utf8_validate(name.data(), static_cast<gssize>(name.size()), nullptr) == FALSE ||
        std::any_of(name.begin(), name.end(), isControl)) {
        return false;
    }
    std::string_view rest = name;
    for (std::size_t slash = rest.find('/'); slash != std::string_view::npos;
         slash = rest.find('/')) {
        if (!isPlainComponent(rest.substr(0, slash))) {
            return false;
        }
        rest.remove_prefix(slash + 1);
    }
    return isPlainComponent(rest);
}

bool belongsTo(const std::string& name, const ArchiveKind& kind) {
    return std::any_of(kind.folders.begin(), kind.folders.end(), [&](const std::string& folder) {
        return name.compare(0, folder.size() + 1, folder + "/") == 0;
    });
}

// A name cannot be that of a file and of a folder.
void requireNoMemberAbove(const std::string& name, const std::set<std::string>& names) {
    for (std::size_t slash = name.find('/'); slash != std::string::npos;
         slash = name.find('/', slash + 1)) {
        if (names.count(name.substr(0, slash)) != 0) {
            throw ArchiveError("member " + name + " lies below another one");
        }
    }
}

}  // namespace

std::string manifestText(const ArchiveManifest& manifest) {
    const KeyFile file(g_key_file_new());
    const auto setText = [&](const std::string& group, const char* key, const std::string& value) {
        g_key_file_set_string(file.get(), group.c_str(), key, value.c_str());
    };
    g_key_file_set_uint64(file.get(), kHeadGroup, "Format", kFormat);
    setText(kHeadGroup, "Kind", manifest.kind);
    setText(kHeadGroup, "Device", manifest.device);
    setText(kHeadGroup, "Time", manifest.time);
    setText(kHeadGroup, "Firmware", manifest.firmware);
    g_key_file_set_uint64(file.get(), kHeadGroup, "Members", manifest.members.size());
    for (std::size_t i = 0; i < manifest.members.size(); ++i) {
        const std::string group = memberGroup(i);
        setText(group, "Name", manifest.members[i].name);
        g_key_file_set_uint64(file.get(), group.c_str(), "Size", manifest.members[i].size);
        setText(group, "SHA256", manifest.members[i].sha256);
    }
    gsize length = 0;
    g_autofree char* text = g_key_file_to_data(file.get(), &length, nullptr);
    return {text, length};
}

ArchiveManifest parseManifest(const std::string& text) {
    ManifestReader reader(text);
    if (reader.number(kHeadGroup, "Format") != kFormat) {
        throw ArchiveError("bad manifest: unknown format number");
    }
    ArchiveManifest manifest;
    manifest.kind = reader.text(kHeadGroup, "Kind");
    manifest.device = reader.text(kHeadGroup, "Device");
    manifest.time = reader.text(kHeadGroup, "Time");
    manifest.firmware = reader.text(kHeadGroup, "Firmware");
    const std::uint64_t count = reader.number(kHeadGroup, "Members");
    for (std::size_t i = 0; i < count; ++i) {
        const std::string group = memberGroup(i);
        manifest.members.push_back({reader.text(group, "Name"), reader.number(group, "Size"),
                                    reader.text(group, "SHA256")});
    }
    return manifest;
}

void requireSafe(const std::vector<MemberRecord>& members) {
    std::set<std::string> names;
    std::uint64_t total = 0;
    for (const MemberRecord& member : members) {
        if (!isSafeName(member.name)) {
            throw ArchiveError("unsafe member name");
        }
        if (!names.insert(member.name).second) {
            throw ArchiveError("member " + member.name + " is named twice");
        }
        if (member.size > kMaxContentBytes - total) {
            throw ArchiveError("too large a content");
        }
        total += member.size;
    }
    if (members.size() > kMaxMembers) {
        throw ArchiveError("too many members");
    }
    std::for_each(names.begin(), names.end(),
                  [&](const std::string& name) { requireNoMemberAbove(name, names); });
}

void requireKind(const ArchiveManifest& manifest, const std::vector<ArchiveKind>& kinds) {
    const auto kind = std::find_if(kinds.begin(), kinds.end(), [&](const ArchiveKind& each) {
        return each.word == manifest.kind;
    });
    if (kind == kinds.end()) {
        throw ArchiveError("an archive of another kind");
    }
    for (const MemberRecord& member : manifest.members) {
        if (!belongsTo(member.name, *kind)) {
            throw ArchiveError("member " + member.name + " does not belong to this kind");
        }
    }
}
