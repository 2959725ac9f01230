// Sealed tar archives: the manifest, the container (libarchive), and the seal that marks a file as
// whole.
#include "simulator/backup_archive.h"

#include <archive.h>
#include <archive_entry.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <memory>
#include <set>
#include <string_view>

namespace {

constexpr const char* kManifestName = "manifest";
constexpr const char* kHeadGroup = "Archive";
constexpr std::uint64_t kFormat = 1;

// An archive that states more than this is not one of ours: it would only keep the device busy.
constexpr std::uint64_t kMaxContentBytes = 1ULL << 30U;
constexpr std::uint64_t kMaxManifestBytes = 4ULL << 20U;
constexpr std::size_t kMaxMembers = 10000;
constexpr std::size_t kMaxTextBytes = 1000;

constexpr std::size_t kBlock = 16384;
constexpr std::size_t kTarRecord = 512;

// The seal is a skippable frame of the Zstandard format, so that common tools pass over it: magic
// number and content size (little endian), then the SHA-256 of every byte before the frame.
constexpr std::size_t kDigestBytes = 32;
constexpr std::array<unsigned char, 8> kSealHead = {0x5E, 0x2A, 0x4D, 0x18, kDigestBytes, 0, 0, 0};
constexpr std::size_t kSealBytes = kSealHead.size() + kDigestBytes;

struct ChecksumFree {
    void operator()(GChecksum* checksum) const { g_checksum_free(checksum); }
};
struct KeyFileUnref {
    void operator()(GKeyFile* file) const { g_key_file_unref(file); }
};
struct FileClose {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
struct EntryFree {
    void operator()(archive_entry* entry) const { archive_entry_free(entry); }
};
struct WriterFree {
    void operator()(archive* writer) const { archive_write_free(writer); }
};
struct ReaderFree {
    void operator()(archive* reader) const { archive_read_free(reader); }
};
using KeyFile = std::unique_ptr<GKeyFile, KeyFileUnref>;
using File = std::unique_ptr<std::FILE, FileClose>;
using Writer = std::unique_ptr<archive, WriterFree>;
using Reader = std::unique_ptr<archive, ReaderFree>;

class Sha256 {
public:
    void add(const void* bytes, std::size_t count) {
        g_checksum_update(checksum_.get(), static_cast<const guchar*>(bytes),
                          static_cast<gssize>(count));
    }
    std::string text() { return g_checksum_get_string(checksum_.get()); }
    std::array<unsigned char, kDigestBytes> digest() {
        std::array<unsigned char, kDigestBytes> bytes{};
        gsize count = bytes.size();
        g_checksum_get_digest(checksum_.get(), bytes.data(), &count);
        return bytes;
    }

private:
    std::unique_ptr<GChecksum, ChecksumFree> checksum_{g_checksum_new(G_CHECKSUM_SHA256)};
};

[[noreturn]] void failWithErrno(const std::string& action) {
    throw ArchiveError(action + ": " + std::generic_category().message(errno));
}

[[noreturn]] void failWithLibrary(const std::string& action, archive* handle) {
    const char* const reason = archive_error_string(handle);
    throw ArchiveError(action + ": " + (reason == nullptr ? "unknown reason" : reason));
}

// Devices and pipes are turned away before they are opened: opening one may wait for ever.
File openRegular(const std::string& path, const char* mode) {
    struct stat status = {};
    if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        throw ArchiveError("not a regular file");
    }
    File file(std::fopen(path.c_str(), mode));
    if (file == nullptr) {
        failWithErrno("cannot open");
    }
    return file;
}

// The manifest

std::string memberGroup(std::size_t index) {
    return "Member " + std::to_string(index + 1);
}

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

// What a manifest may state

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

// Whether `path` still names the open file. Pulling a stick takes its files out of the folders,
// while those that are open could be used on.
bool isInPlace(std::FILE* file, const std::string& path) {
    struct stat opened {};
    struct stat named {};
    return fstat(fileno(file), &opened) == 0 && stat(path.c_str(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

void requireInPlace(std::FILE* file, const std::string& path) {
    if (!isInPlace(file, path)) {
        throw ArchiveError("the file is gone");
    }
}

// Writing

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
    File file_;
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
        archive_write_set_bytes_per_block(writer.get(), kBlock) != ARCHIVE_OK ||
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
    std::uint64_t tar = inTar(std::strlen(kManifestName), manifest.size()) + kBlock;
    for (const ArchiveMember& member : members) {
        tar += inTar(member.name.size(), member.bytes.size());
    }
    // What cannot be compressed is stored, with three bytes more for each block of at most 128 KiB.
    return tar + tar / 1024 + 64 + kSealBytes;
}

// Reading

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
    std::array<char, kBlock> block{};
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
    std::array<char, kBlock> block{};
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

ArchiveManifest readArchive(const std::string& path, const std::vector<ArchiveKind>& kinds,
                            MemberReceiver* receiver, const Pace& pace) {
    const File file = openRegular(path, "rbe");
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
