// What writing and reading of archives share: the open file, the checksum, and the seal that marks
// a file as whole.
#pragma once

#include <glib.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>

struct archive;  // libarchive's handle for writing or reading

constexpr std::size_t kArchiveBlock = 16384;

// The seal is a skippable frame of the Zstandard format, so that common tools pass over it: magic
// number and content size (little endian), then the SHA-256 of every byte before the frame.
constexpr std::size_t kDigestBytes = 32;
constexpr std::array<unsigned char, 8> kSealHead = {0x5E, 0x2A, 0x4D, 0x18, kDigestBytes, 0, 0, 0};
constexpr std::size_t kSealBytes = kSealHead.size() + kDigestBytes;

class Sha256 {
public:
    void add(const void* bytes, std::size_t count);
    // Either ends it: nothing can be added after that. The text is in hexadecimal digits.
    std::string text();
    std::array<unsigned char, kDigestBytes> digest();

private:
    struct Free {
        void operator()(GChecksum* checksum) const { g_checksum_free(checksum); }
    };
    std::unique_ptr<GChecksum, Free> checksum_{g_checksum_new(G_CHECKSUM_SHA256)};
};

struct FileClose {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using ArchiveFile = std::unique_ptr<std::FILE, FileClose>;

// Opens a regular file as fopen does. Throws ArchiveError.
ArchiveFile openRegular(const std::string& path, const char* mode);

// Whether `path` still names the open file. Pulling a stick takes its files out of the folders,
// while those that are open could be used on.
bool isInPlace(std::FILE* file, const std::string& path);
// Throws ArchiveError when it does not.
void requireInPlace(std::FILE* file, const std::string& path);

// Throw ArchiveError with the action and its reason: that of errno, or that of libarchive.
[[noreturn]] void failWithErrno(const std::string& action);
[[noreturn]] void failWithLibrary(const std::string& action, archive* handle);
