// Reading sealed tar archives, and refusing whatever is not a whole, unaltered one.
#include <archive.h>
#include <archive_entry.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <memory>

#include "simulator/archive_file.h"
#include "simulator/archive_manifest.h"
#include "simulator/backup_archive.h"

namespace {

// One that states more is not of ours: it would only keep the device busy.
constexpr std::uint64_t kMaxManifestBytes = 4ULL << 20U;

struct ReaderFree {
    void operator()(archive* reader) const { archive_read_free(reader); }
};
using Reader = std::unique_ptr<archive, ReaderFree>;

std::uint64_t requireSeal(std::FILE* file) {
    struct stat status = {};
    if (fstat(fileno(file), &status) != 0) {
        failWithErrno("cannot read");
    }
    const auto size = static_cast<std::uint64_t>(status.st_size);
    if (size < kSealBytes) {
        throw ArchiveError("not a whole archive");
    }
    Sha256 checksum;
    std::array<char, kArchiveBlock> block{};
    for (std::uint64_t left = size - kSealBytes; left > 0;) {
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left, block.size()));
        if (std::fread(block.data(), 1, wanted, file) != wanted) {
            throw ArchiveError("cannot read the whole file");
        }
        checksum.add(block.data(), wanted);
        left -= wanted;
    }
    std::array<unsigned char, kSealBytes> seal{};
    const auto digest = checksum.digest();
    if (std::fread(seal.data(), 1, seal.size(), file) != seal.size() ||
        !std::equal(kSealHead.begin(), kSealHead.end(), seal.begin()) ||
        !std::equal(digest.begin(), digest.end(), seal.begin() + kSealHead.size())) {
        throw ArchiveError("not a whole, unaltered archive");
    }
    std::rewind(file);
    return size;
}

Reader openContainer(std::FILE* file) {
    Reader reader(archive_read_new());
    if (archive_read_support_filter_zstd(reader.get()) != ARCHIVE_OK ||
        archive_read_support_format_tar(reader.get()) != ARCHIVE_OK ||
        archive_read_open_FILE(reader.get(), file) != ARCHIVE_OK) {
        failWithLibrary("not an archive", reader.get());
    }
    return reader;
}

// Null at the end. A member that is anything but a plain file, links included, is refused.
archive_entry* nextMember(archive* reader) {
    archive_entry* entry = nullptr;
    const int result = archive_read_next_header(reader, &entry);
    if (result == ARCHIVE_EOF) {
        return nullptr;
    }
    if (result != ARCHIVE_OK) {
        failWithLibrary("not an archive", reader);
    }
    if (archive_filter_code(reader, 0) != ARCHIVE_FILTER_ZSTD) {
        throw ArchiveError("not a compressed archive");
    }
    if (archive_entry_pathname(entry) == nullptr || archive_entry_filetype(entry) != AE_IFREG ||
        archive_entry_hardlink(entry) != nullptr || archive_entry_size_is_set(entry) == 0) {
        throw ArchiveError("a member is not a plain file");
    }
    return entry;
}

std::string readManifestText(archive* reader) {
    archive_entry* const entry = nextMember(reader);
    if (entry == nullptr || std::strcmp(archive_entry_pathname(entry), kManifestName) != 0) {
        throw ArchiveError("the manifest is missing");
    }
    const auto size = static_cast<std::uint64_t>(archive_entry_size(entry));
    if (size > kMaxManifestBytes) {
        throw ArchiveError("the manifest is too long");
    }
    std::string text(static_cast<std::size_t>(size), '\0');
    if (archive_read_data(reader, text.data(), text.size()) !=
        static_cast<la_ssize_t>(text.size())) {
        failWithLibrary("cannot read the manifest", reader);
    }
    return text;
}

// Reads the content of `member`, which the container has announced with the size stated.
void readMember(archive* reader, const MemberRecord& member, MemberReceiver* receiver,
                const std::function<void()>& step) {
    Sha256 checksum;
    std::array<char, kArchiveBlock> block{};
    la_ssize_t count = 0;
    if (receiver != nullptr) {
        receiver->begin(member);
    }
    while ((count = archive_read_data(reader, block.data(), block.size())) > 0) {
        const auto bytes = static_cast<std::size_t>(count);
        checksum.add(block.data(), bytes);
        if (receiver != nullptr) {
            receiver->data(block.data(), bytes);
        }
        step();
    }
    if (count < 0) {
        failWithLibrary("cannot read " + member.name, reader);
    }
    if (checksum.text() != member.sha256) {
        throw ArchiveError("member " + member.name + " differs from its checksum");
    }
    if (receiver != nullptr) {
        receiver->end();
    }
}

void readMembers(archive* reader, const ArchiveManifest& manifest, MemberReceiver* receiver,
                 const std::function<void()>& step) {
    for (const MemberRecord& member : manifest.members) {
        archive_entry* const entry = nextMember(reader);
        if (entry == nullptr) {
            throw ArchiveError("member " + member.name + " is missing");
        }
        if (member.name != archive_entry_pathname(entry)) {
            throw ArchiveError("a member is not the one that the manifest names");
        }
        if (static_cast<std::uint64_t>(archive_entry_size(entry)) != member.size) {
            throw ArchiveError("member " + member.name + " has another size");
        }
        readMember(reader, member, receiver, step);
    }
    if (nextMember(reader) != nullptr) {
        throw ArchiveError("a member that the manifest does not name");
    }
}

}  // namespace

ArchiveManifest readArchive(const std::string& path, const std::vector<ArchiveKind>& kinds,
                            MemberReceiver* receiver, const Pace& pace) {
    const ArchiveFile file = openRegular(path, "rbe");
    const std::uint64_t size = requireSeal(file.get());
    const Reader reader = openContainer(file.get());
    ArchiveManifest manifest = parseManifest(readManifestText(reader.get()));
    requireSafe(manifest.members);
    requireKind(manifest, kinds);
    const auto step = [&](std::uint64_t done) {
        if (pace) {
            pace(std::min(done, size), size);
        }
        requireInPlace(file.get(), path);
    };
    readMembers(reader.get(), manifest, receiver,
                [&] { step(static_cast<std::uint64_t>(archive_filter_bytes(reader.get(), -1))); });
    step(size);
    return manifest;
}
