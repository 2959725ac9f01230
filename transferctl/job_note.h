// A note of the last job that this user has started, and in which life of the service.
//
// The service appends the texts of a second job to those of the first, so a client that started one
// must know whether the service still lives that life.
#pragma once

#include <optional>
#include <string>

namespace transferctl {

// Tells lives of the service apart: unique names are given anew by each message bus, the bus's id
// is anew at each of its starts, and the boot's id at each start of the machine.
struct Life {
    std::string owner;
    std::string bus;
    std::string boot;

    bool operator==(const Life& other) const {
        return owner == other.owner && bus == other.bus && boot == other.boot;
    }
};

struct JobNote {
    Life life;
    std::string job;  // "backup" and so on
    std::string file;  // "USB_X60.1:a.psb"
};

std::string encodeNote(const JobNote& note);

// Nothing when the text is no note.
std::optional<JobNote> decodeNote(const std::string& text);

// The boot's id; empty when the system does not tell.
std::string currentBoot();

// Where the note belongs: below XDG_RUNTIME_DIR, otherwise /run for root and /tmp for others.
std::string noteFolder();

// The folder with the note, private to the user; held locked against other processes of the user
// from construction to destruction. All operations throw std::system_error, with words, when the
// folder or the file cannot be used or belongs to somebody else.
class JobNoteFile {
public:
    // Waits for nothing: a lock held by somebody else is an error (EWOULDBLOCK).
    explicit JobNoteFile(const std::string& folder);
    ~JobNoteFile();
    JobNoteFile(const JobNoteFile&) = delete;
    JobNoteFile& operator=(const JobNoteFile&) = delete;

    // Nothing when there is none, or none that can be understood.
    std::optional<JobNote> read() const;

    void write(const JobNote& note) const;
    void remove() const;

private:
    int folder_ = -1;
};

// The note for showing, without a lock; nothing when there is none or it cannot be read.
std::optional<JobNote> readJobNote(const std::string& folder);

}  // namespace transferctl
