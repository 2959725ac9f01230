// Archives that the simulator would never write.
#include "tests/simulator/crafted_archive.h"

#include <archive.h>
#include <archive_entry.h>
#include <glib.h>

#include <memory>
#include <stdexcept>

#include "tests/support/files/files.h"

namespace {

struct WriterFree {
    void operator()(archive* writer) const { archive_write_free(writer); }
};
struct EntryFree {
    void operator()(archive_entry* entry) const { archive_entry_free(entry); }
};

void require(int result, archive* writer) {
    if (result != ARCHIVE_OK) {
        throw std::runtime_error(archive_error_string(writer));
    }
}

std::string sha256(const std::string& bytes) {
    g_autofree char* text = g_compute_checksum_for_data(
        G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(bytes.data()), bytes.size());
    return text;
}

void addMember(archive* writer, const CraftedMember& member) {
    const std::unique_ptr<archive_entry, EntryFree> entry(archive_entry_new());
    const bool holdsBytes = member.type == CraftedMember::Type::file;
    archive_entry_set_pathname(entry.get(), member.name.c_str());
    archive_entry_set_perm(entry.get(), 0644);
    archive_entry_set_size(entry.get(),
                           holdsBytes ? static_cast<la_int64_t>(member.bytes.size()) : 0);
    archive_entry_set_filetype(entry.get(),
                               member.type == CraftedMember::Type::directory ? AE_IFDIR : AE_IFREG);
    if (member.type == CraftedMember::Type::symbolicLink) {
        archive_entry_set_filetype(entry.get(), AE_IFLNK);
        archive_entry_set_symlink(entry.get(), member.bytes.c_str());
    }
    if (member.type == CraftedMember::Type::hardLink) {
        archive_entry_set_hardlink(entry.get(), member.bytes.c_str());
    }
    require(archive_write_header(writer, entry.get()), writer);
    if (holdsBytes && archive_write_data(writer, member.bytes.data(), member.bytes.size()) !=
                          static_cast<la_ssize_t>(member.bytes.size())) {
        throw std::runtime_error("cannot craft " + member.name);
    }
}

}  // namespace

std::string craftedManifest(const std::string& kind, const std::vector<CraftedMember>& members,
                            const std::string& firmware) {
    std::string text = "[Archive]\nFormat=1\nKind=" + kind +
                       "\nDevice=Crafted\nTime=2026-01-05T09:07:03Z\nFirmware=" + firmware +
                       "\nMembers=" + std::to_string(members.size()) + "\n";
    for (std::size_t i = 0; i < members.size(); ++i) {
        text += "\n[Member " + std::to_string(i + 1) + "]\nName=" + members[i].name +
                "\nSize=" + std::to_string(members[i].bytes.size()) +
                "\nSHA256=" + sha256(members[i].bytes) + "\n";
    }
    return text;
}

void writeUnsealed(const std::string& path, const std::vector<CraftedMember>& members,
                   Compression compression) {
    const std::unique_ptr<archive, WriterFree> writer(archive_write_new());
    require(archive_write_set_format_gnutar(writer.get()), writer.get());
    if (compression == Compression::zstd) {
        require(archive_write_add_filter_zstd(writer.get()), writer.get());
    }
    require(archive_write_open_filename(writer.get(), path.c_str()), writer.get());
    for (const CraftedMember& member : members) {
        addMember(writer.get(), member);
    }
    require(archive_write_close(writer.get()), writer.get());
}

std::string sealed(const std::string& bytes) {
    std::string seal("\x5E\x2A\x4D\x18\x20\x00\x00\x00", 8);
    const std::string digits = sha256(bytes);
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        seal += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    }
    return bytes + seal;
}

void writeCrafted(const std::string& path, const std::vector<CraftedMember>& members,
                  Compression compression) {
    writeUnsealed(path, members, compression);
    test_support::writeFile(path, sealed(test_support::readFile(path)));
}

void writeWithManifest(const std::string& path, const std::string& kind,
                       const std::vector<CraftedMember>& members) {
    std::vector<CraftedMember> all = {{"manifest", craftedManifest(kind, members)}};
    all.insert(all.end(), members.begin(), members.end());
    writeCrafted(path, all);
}
