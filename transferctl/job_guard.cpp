// Keeps a user from starting a second job in one life of the service.
#include "transferctl/job_guard.h"

#include <system_error>

#include "transferctl/output.h"

namespace transferctl {
namespace {

[[noreturn]] void refuseSecond(const JobNote& first) {
    throw Failure(
        ExitStatus::kRefused,
        "you have started a job in this life of the service (" + first.job + " of " + first.file +
            "); it would append the texts of a second one to it and work on a file of the "
            "joined name. The service has to be started anew first; --force goes on");
}

void sayThatNothingIsKept(const std::system_error& error) {
    note(std::string("cannot note the job, so a second one in this life of the service will not be "
                     "noticed: ") +
         error.what());
}

bool isHeldByAnother(const std::system_error& error) {
    return error.code() == std::errc::operation_would_block;
}

}  // namespace

Life lifeOf(const TransferClient& client) {
    return {client.owner(), g_dbus_connection_get_guid(client.connection()), currentBoot()};
}

std::optional<JobNote> jobInThisLife(const TransferClient& client) {
    const std::optional<JobNote> found = readJobNote(noteFolder());
    return found && found->life == lifeOf(client) ? found : std::nullopt;
}

void JobGuard::check(const TransferClient& client, bool force) {
    const std::optional<JobNote> first = jobInThisLife(client);
    if (first && !force) {
        refuseSecond(*first);
    }
}

JobGuard::JobGuard(const TransferClient& client, Job job, const StickPath& file, bool force) {
    const JobNote mine{lifeOf(client), nameOf(job), file.text()};
    try {
        prepare(client, mine, force);
    } catch (const std::system_error& error) {
        file_.reset();
        if (isHeldByAnother(error) && !force) {
            throw Failure(ExitStatus::kRefused, "you are just starting another job");
        }
        sayThatNothingIsKept(error);
    }
}

void JobGuard::prepare(const TransferClient& client, const JobNote& note, bool force) {
    file_ = std::make_unique<JobNoteFile>(noteFolder());
    before_ = file_->read();
    if (before_ && before_->life == lifeOf(client) && !force) {
        refuseSecond(*before_);
    }
    file_->write(note);
}

int JobGuard::settle(const std::function<int()>& start) {
    try {
        const int code = start();
        if (!leavesTexts(code)) {
            putBack();
        }
        return code;
    } catch (const Failure& failure) {
        // Refused by the bus, the call has not reached the service; after any other it may have.
        if (failure.status() == ExitStatus::kRefused) {
            putBack();
        }
        throw;
    }
}

void JobGuard::putBack() {
    if (!file_) {
        return;
    }
    try {
        before_ ? file_->write(*before_) : file_->remove();
    } catch (const std::system_error& error) {
        sayThatNothingIsKept(error);
    }
}

}  // namespace transferctl
