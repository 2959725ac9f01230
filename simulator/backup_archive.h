// The files that the simulated device manager writes and reads: sealed tar archives with a
// manifest.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

// Why a file cannot be written, or is not one to be trusted; what() says it in words.
class ArchiveError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Called again and again while an archive is written or unpacked, with bytes of its file: how many
// are done and how many there will be at most. It may sleep, and it ends the work by throwing.
using Pace = std::function<void(std::uint64_t done, std::uint64_t total)>;

// What an archive of a kind may hold: files below these folders and nothing else.
struct ArchiveKind {
    std::string word;
    std::vector<std::string> folders;
};

struct ArchiveMember {
    std::string name;  // relative, with forward slashes
    std::string bytes;
};

struct MemberRecord {
    std::string name;
    std::uint64_t size = 0;
    std::string sha256;  // lower-case hexadecimal digits
};

// The first member of each archive.
struct ArchiveManifest {
    std::string kind;
    std::string device;
    std::string time;  // ISO 8601, UTC
    std::string firmware;  // of the device that was saved, or contained in an update
    std::vector<MemberRecord> members;
};

// Takes the members of an archive while it is being verified. Nothing of it counts until
// readArchive has returned: the checksum of a member is known only after its last byte.
class MemberReceiver {
public:
    MemberReceiver() = default;
    MemberReceiver(const MemberReceiver&) = delete;
    MemberReceiver& operator=(const MemberReceiver&) = delete;
    virtual ~MemberReceiver() = default;
    virtual void begin(const MemberRecord& member) = 0;
    virtual void data(const char* bytes, std::size_t count) = 0;
    virtual void end() = 0;
};

// The most bytes that an archive with these members takes up.
std::uint64_t archiveSizeLimit(const ArchiveManifest& head,
                               const std::vector<ArchiveMember>& members);

// Writes `path` from the first byte to the last, so that its size shows the progress; until the
// seal at its end is written readArchive refuses the file. `head.members` is not looked at. Returns
// the size of the file. On failure throws ArchiveError, or what `pace` throws, and removes the
// file.
std::uint64_t writeArchive(const std::string& path, const ArchiveManifest& head,
                           const std::vector<ArchiveMember>& members, const Pace& pace = {});

// Verifies `path` completely and returns its manifest. The kind must be one of `kinds`. Throws
// ArchiveError for whatever is not a whole, unaltered archive, and what `receiver` or `pace` throw.
ArchiveManifest readArchive(const std::string& path, const std::vector<ArchiveKind>& kinds,
                            MemberReceiver* receiver = nullptr, const Pace& pace = {});
