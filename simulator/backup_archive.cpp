// Backup and update files, written and read by libarchive. Its Zstandard filter checks a frame's
// checksum but writes none, so the frame is made by the Zstandard library itself.
#include "simulator/backup_archive.h"

#include <archive.h>
#include <archive_entry.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zstd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

namespace {

constexpr std::size_t kBlock = 16384;
constexpr std::size_t kLastBytes = 16;
constexpr const char* kManifestName = "manifest";
constexpr const char* kManifestGroup = "Archive";

constexpr std::pair<const char*, std::string Archive::*> kManifestKeys[] = {
    {"Kind", &Archive::kind},
    {"Device", &Archive::device},
    {"Time", &Archive::time},
    {"Firmware", &Archive::firmware},
};

template <auto Release>
struct ReleaseWith {
    template <typename Object>
    void operator()(Object* object) const {
        Release(object);
    }
};
using Reader = std::unique_ptr<archive, ReleaseWith<archive_read_free>>;
using Writer = std::unique_ptr<archive, ReleaseWith<archive_write_free>>;
using Entry = std::unique_ptr<archive_entry, ReleaseWith<archive_entry_free>>;
using Compressor = std::unique_ptr<ZSTD_CCtx, ReleaseWith<ZSTD_freeCCtx>>;

[[noreturn]] void refuseArchive(const std::string& reason) {
    throw DeviceError(DeviceManagerStatus::unusableFile, reason);
}

[[noreturn]] void failWithErrno(const char* action, DeviceManagerStatus status) {
    throw DeviceError(status, std::string(action) + ": " + std::generic_category().message(errno));
}

void require(bool done, archive* handle) {
    if (!done) {
        const char* const reason = archive_error_string(handle);
        refuseArchive(reason == nullptr ? "not a backup or update file" : reason);
    }
}

std::string manifestText(const Archive& content) {
    g_autoptr(GKeyFile) file = g_key_file_new();
    for (const auto& [key, value] : kManifestKeys) {
        g_key_file_set_string(file, kManifestGroup, key, (content.*value).c_str());
    }
    gsize length = 0;
    g_autofree char* text = g_key_file_to_data(file, &length, nullptr);
    return {text, length};
}

void parseManifest(const std::string& text, Archive& content) {
    g_autoptr(GKeyFile) file = g_key_file_new();
    g_key_file_load_from_data(file, text.data(), text.size(), G_KEY_FILE_NONE, nullptr);
    for (const auto& [key, value] : kManifestKeys) {
        g_autofree char* found = g_key_file_get_string(file, kManifestGroup, key, nullptr);
        if (found == nullptr) {
            refuseArchive(std::string("bad manifest: no ") + key);
        }
        content.*value = found;
    }
}

la_ssize_t appendBlock(archive* /*writer*/, void* target, const void* bytes, std::size_t count) {
    static_cast<std::string*>(target)->append(static_cast<const char*>(bytes), count);
    return static_cast<la_ssize_t>(count);
}

void addMember(archive* writer, const std::string& name, const std::string& bytes) {
    const Entry entry(archive_entry_new());
    archive_entry_set_pathname(entry.get(), name.c_str());
    archive_entry_set_filetype(entry.get(), AE_IFREG);
    archive_entry_set_perm(entry.get(), 0644);
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(bytes.size()));
    require(archive_write_header(writer, entry.get()) == ARCHIVE_OK &&
                archive_write_data(writer, bytes.data(), bytes.size()) ==
                    static_cast<la_ssize_t>(bytes.size()),
            writer);
}

// GNU tar takes long names and any bytes in them without asking for a locale.
std::string tarOf(const Archive& content) {
    std::string tar;
    const Writer writer(archive_write_new());
    require(archive_write_set_format_gnutar(writer.get()) == ARCHIVE_OK &&
                archive_write_open(writer.get(), &tar, nullptr, appendBlock, nullptr) == ARCHIVE_OK,
            writer.get());
    addMember(writer.get(), kManifestName, manifestText(content));
    for (const auto& [name, bytes] : content.members) {
        addMember(writer.get(), name, bytes);
    }
    require(archive_write_close(writer.get()) == ARCHIVE_OK, writer.get());
    return tar;
}

std::string compressed(const std::string& bytes) {
    const Compressor context(ZSTD_createCCtx());
    ZSTD_CCtx_setParameter(context.get(), ZSTD_c_checksumFlag, 1);
    std::string frame(ZSTD_compressBound(bytes.size()), '\0');
    const std::size_t size =
        ZSTD_compress2(context.get(), frame.data(), frame.size(), bytes.data(), bytes.size());
    if (ZSTD_isError(size) != 0) {
        throw DeviceError(DeviceManagerStatus::failed, ZSTD_getErrorName(size));
    }
    frame.resize(size);
    return frame;
}

}  // namespace

// Devices and pipes are turned away before they are opened: opening one may wait for ever.
OpenFile::OpenFile(std::string path, const char* mode)
    : path_(std::move(path)),
      failure_(*mode == 'w' ? DeviceManagerStatus::failed : DeviceManagerStatus::unusableFile) {
    struct stat status {};
    if (stat(path_.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        throw DeviceError(failure_, "not a regular file");
    }
    file_.reset(std::fopen(path_.c_str(), mode));
    if (file_ == nullptr) {
        failWithErrno("cannot open", failure_);
    }
}

bool OpenFile::isInPlace() const {
    std::error_code gone;
    const auto opened = "/proc/self/fd/" + std::to_string(fileno(file_.get()));
    return std::filesystem::equivalent(path_, opened, gone);
}

void OpenFile::requireInPlace() const {
    if (!isInPlace()) {
        throw DeviceError(failure_, "the file is gone");
    }
}

std::uint64_t archiveSizeLimit(const Archive& content) {
    return ZSTD_compressBound(tarOf(content).size());
}

std::uint64_t writeArchive(const std::string& path, const Archive& content, const Pace& pace) {
    const std::string bytes = compressed(tarOf(content));
    const OpenFile file(path, "wbe");
    std::setvbuf(file.get(), nullptr, _IONBF, 0);
    const auto write = [&](std::size_t begin, std::size_t end) {
        if (std::fwrite(bytes.data() + begin, 1, end - begin, file.get()) != end - begin) {
            failWithErrno("cannot write", DeviceManagerStatus::failed);
        }
    };
    try {
        // The end of the frame comes after the time of the job: until then no check takes the file.
        const std::size_t most = bytes.size() - kLastBytes;
        for (std::size_t done = 0; done < most;) {
            const std::size_t next = std::min(done + kBlock, most);
            write(done, next);
            done = next;
            if (pace) {
                pace(done, most);
            }
            file.requireInPlace();
        }
        write(most, bytes.size());
        if (fsync(fileno(file.get())) != 0) {
            failWithErrno("cannot write", DeviceManagerStatus::failed);
        }
        return bytes.size();
    } catch (...) {
        // Another file may have taken its place.
        if (file.isInPlace()) {
            std::error_code ignored;
            std::filesystem::remove(path, ignored);
        }
        throw;
    }
}

// Reads on behind the end of the tar, so that nothing counts before the checksum has been compared.
Archive readArchive(const OpenFile& file) {
    const Reader reader(archive_read_new());
    require(
        archive_read_support_filter_zstd(reader.get()) == ARCHIVE_OK &&
            archive_read_support_format_tar(reader.get()) == ARCHIVE_OK &&
            archive_read_set_options(reader.get(), "read_concatenated_archives") == ARCHIVE_OK &&
            archive_read_open_FILE(reader.get(), file.get()) == ARCHIVE_OK,
        reader.get());
    Archive content;
    archive_entry* entry = nullptr;
    int result = ARCHIVE_OK;
    while ((result = archive_read_next_header(reader.get(), &entry)) == ARCHIVE_OK) {
        const char* const name = archive_entry_pathname(entry);
        require(archive_filter_code(reader.get(), 0) == ARCHIVE_FILTER_ZSTD, reader.get());
        if (name == nullptr || archive_entry_filetype(entry) != AE_IFREG) {
            refuseArchive("a member is not a plain file");
        }
        std::array<char, kBlock> block{};
        la_ssize_t count = 0;
        std::string bytes;
        while ((count = archive_read_data(reader.get(), block.data(), block.size())) > 0) {
            bytes.append(block.data(), static_cast<std::size_t>(count));
        }
        require(count == 0, reader.get());
        content.members[name] = bytes;
    }
    require(result == ARCHIVE_EOF, reader.get());
    const auto manifest = content.members.extract(kManifestName);
    parseManifest(manifest.empty() ? "" : manifest.mapped(), content);
    return content;
}
