// Keeps a user from starting a second job in one life of the service.
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "transferctl/job_codes.h"
#include "transferctl/job_note.h"
#include "transferctl/transfer_client.h"

namespace transferctl {

// The life of the service that a client calls.
Life lifeOf(const TransferClient& client);

// The note's job when it was started in this life; nothing otherwise.
std::optional<JobNote> jobInThisLife(const TransferClient& client);

// From construction to destruction no other transferctl of the user can start a job. Where the note
// cannot be kept it says so on standard error and lets the job start.
class JobGuard {
public:
    // Writes the note before the job starts. Throws Failure (refused) when the user has started a
    // job in this life already, or is just starting one, unless forced.
    JobGuard(const TransferClient& client, Job job, const StickPath& file, bool force);

    // Throws as the constructor does for a job noted already, and changes nothing.
    static void check(const TransferClient& client, bool force);

    // Runs `start`, which returns the service's code, and returns that code. Where the service has
    // not taken in the job's texts, the note is put back.
    int settle(const std::function<int()>& start);

private:
    void prepare(const TransferClient& client, const JobNote& note, bool force);
    void putBack();

    std::unique_ptr<JobNoteFile> file_;  // null when the note cannot be kept
    std::optional<JobNote> before_;
};

}  // namespace transferctl
