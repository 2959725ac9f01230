// The open file of an archive, its checksum, and what can go wrong with either.
#include "simulator/archive_file.h"

#include <archive.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>

#include "simulator/backup_archive.h"

void Sha256::add(const void* bytes, std::size_t count) {
    g_checksum_update(checksum_.get(), static_cast<const guchar*>(bytes),
                      static_cast<gssize>(count));
}

std::string Sha256::text() {
    return g_checksum_get_string(checksum_.get());
}

std::array<unsigned char, kDigestBytes> Sha256::digest() {
    std::array<unsigned char, kDigestBytes> bytes{};
    gsize count = bytes.size();
    g_checksum_get_digest(checksum_.get(), bytes.data(), &count);
    return bytes;
}

// Devices and pipes are turned away before they are opened: opening one may wait for ever.
ArchiveFile openRegular(const std::string& path, const char* mode) {
    struct stat status = {};
    if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        throw ArchiveError("not a regular file");
    }
    ArchiveFile file(std::fopen(path.c_str(), mode));
    if (file == nullptr) {
        failWithErrno("cannot open");
    }
    return file;
}

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

void failWithErrno(const std::string& action) {
    throw ArchiveError(action + ": " + std::generic_category().message(errno));
}

void failWithLibrary(const std::string& action, archive* handle) {
    const char* const reason = archive_error_string(handle);
    throw ArchiveError(action + ": " + (reason == nullptr ? "unknown reason" : reason));
}
