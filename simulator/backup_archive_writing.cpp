// Writing sealed tar archives, and how large they become.
#include <archive.h>
#include <archive_entry.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <memory>
#include <system_error>

#include "simulator/archive_file.h"
#include "simulator/archive_manifest.h"
#include "simulator/backup_archive.h"

namespace {

constexpr std::size_t kTarRecord = 512;

struct EntryFree {
    void operator()(archive_entry* entry) const { archive_entry_free(entry); }
};
struct WriterFree {
    void operator()(archive* writer) const { archive_write_free(writer); }
};
using Writer = std::unique_ptr<archive, WriterFree>;

// The file being written. libarchive hands it the compressed blocks.
class SealedFile {
public:
    SealedFile(const std::string& path, std::uint64_t limit, const Pace& pace)
        : path_(path), file_(openRegular(path, "wbe")), limit_(limit), pace_(pace) {
        std::setvbuf(file_.get(), nullptr, _IONBF, 0);
    }

    void add(const void* bytes, std::size_t count) {
        write(bytes, count);
        checksum_.add(bytes, count);
        step(std::min(size_, limit_));
    }

    // Ends the file; returns its size.
    std::uint64_t seal() {
        step(limit_);
        const auto digest = checksum_.digest();
        write(kSealHead.data(), kSealHead.size());
        write(digest.data(), digest.size());
        if (fsync(fileno(file_.get())) != 0) {
            failWithErrno("cannot write");
        }
        return size_;
    }

    // Removes what has been written, and no other file that has taken its place.
    void discard() {
        if (isInPlace(file_.get(), path_)) {
            std::error_code ignored;
            std::filesystem::remove(path_, ignored);
        }
    }

    // Keeps what a callback threw on its way through libarchive, which knows no exceptions.
    std::exception_ptr failure;

private:
    void write(const void* bytes, std::size_t count) {
        if (std::fwrite(bytes, 1, count, file_.get()) != count) {
            failWithErrno("cannot write");
        }
        size_ += count;
    }

    void step(std::uint64_t done) {
        if (pace_) {
            pace_(done, limit_);
        }
        requireInPlace(file_.get(), path_);
    }

    const std::string path_;
    ArchiveFile file_;
    Sha256 checksum_;
    std::uint64_t size_ = 0;
    std::uint64_t limit_;
    const Pace& pace_;
};

la_ssize_t writeBlock(archive* writer, void* target, const void* bytes, std::size_t count) {
    auto* const file = static_cast<SealedFile*>(target);
    try {
        file->add(bytes, count);
        return static_cast<la_ssize_t>(count);
    } catch (...) {
        file->failure = std::current_exception();
        archive_set_error(writer, EIO, "stopped");
        return -1;
    }
}

void addMember(archive* writer, const std::string& name, const std::string& bytes) {
    const std::unique_ptr<archive_entry, EntryFree> entry(archive_entry_new());
    archive_entry_set_pathname(entry.get(), name.c_str());
    archive_entry_set_filetype(entry.get(), AE_IFREG);
    archive_entry_set_perm(entry.get(), 0644);
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(bytes.size()));
    if (archive_write_header(writer, entry.get()) != ARCHIVE_OK ||
        archive_write_data(writer, bytes.data(), bytes.size()) !=
            static_cast<la_ssize_t>(bytes.size())) {
        failWithLibrary("cannot add " + name, writer);
    }
}

// GNU tar takes long names and any bytes in them without asking for a locale.
void writeContainer(SealedFile& file, const std::string& manifest,
                    const std::vector<ArchiveMember>& members) {
    const Writer writer(archive_write_new());
    if (archive_write_set_format_gnutar(writer.get()) != ARCHIVE_OK ||
        archive_write_add_filter_zstd(writer.get()) != ARCHIVE_OK ||
        archive_write_set_bytes_per_block(writer.get(), kArchiveBlock) != ARCHIVE_OK ||
        archive_write_set_bytes_in_last_block(writer.get(), 1) != ARCHIVE_OK ||
        archive_write_open(writer.get(), &file, nullptr, writeBlock, nullptr) != ARCHIVE_OK) {
        failWithLibrary("cannot begin the archive", writer.get());
    }
    addMember(writer.get(), kManifestName, manifest);
    for (const ArchiveMember& member : members) {
        addMember(writer.get(), member.name, member.bytes);
    }
    if (archive_write_close(writer.get()) != ARCHIVE_OK) {
        failWithLibrary("cannot finish the archive", writer.get());
    }
}

ArchiveManifest describe(ArchiveManifest head, const std::vector<ArchiveMember>& members) {
    head.members.clear();
    for (const ArchiveMember& member : members) {
        Sha256 checksum;
        checksum.add(member.bytes.data(), member.bytes.size());
        head.members.push_back({member.name, member.bytes.size(), checksum.text()});
    }
    return head;
}

std::uint64_t sizeLimit(const std::string& manifest, const std::vector<ArchiveMember>& members) {
    // A header, and two more records for a name too long for it.
    const auto inTar = [](std::size_t name, std::size_t bytes) {
        const std::size_t longName = name < 100 ? 0 : 2 * kTarRecord + name;
        return kTarRecord + longName + (bytes + kTarRecord - 1) / kTarRecord * kTarRecord;
    };
    std::uint64_t tar = inTar(std::strlen(kManifestName), manifest.size()) + kArchiveBlock;
    for (const ArchiveMember& member : members) {
        tar += inTar(member.name.size(), member.bytes.size());
    }
    // What cannot be compressed is stored, with three bytes more for each block of at most 128 KiB.
    return tar + tar / 1024 + 64 + kSealBytes;
}

}  // namespace

std::uint64_t archiveSizeLimit(const ArchiveManifest& head,
                               const std::vector<ArchiveMember>& members) {
    return sizeLimit(manifestText(describe(head, members)), members);
}

std::uint64_t writeArchive(const std::string& path, const ArchiveManifest& head,
                           const std::vector<ArchiveMember>& members, const Pace& pace) {
    const ArchiveManifest manifest = describe(head, members);
    requireSafe(manifest.members);
    const std::string text = manifestText(manifest);
    SealedFile file(path, sizeLimit(text, members), pace);
    try {
        writeContainer(file, text, members);
        return file.seal();
    } catch (...) {
        file.discard();
        if (file.failure != nullptr) {
            std::rethrow_exception(file.failure);
        }
        throw;
    }
}
