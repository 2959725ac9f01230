// A second implementation of what the service does to files, on a model of them.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <utility>

#include "tests/support/files/model_files.h"

namespace test_support {

enum class Request {
    DeleteFile,
    CreateDirectory,
    Backup,
    Restore,
    Update,
    ListDirectory,
    ListBackups,
    ListUpdates
};

// One call of a client.
struct Operation {
    Request request = Request::DeleteFile;
    std::string mount;
    std::string path;
    std::uint32_t backupType = 0;
};
std::string describe(const Operation& operation);

// What the device manager and the stick do with a job.
struct JobCircumstances {
    bool refused = false;  // the manager does not say that there is room
    std::optional<std::string> writes;  // into the file of a backup that has begun
    // Happens between a backup's checks and its launch; answers whether there is room still.
    std::function<bool()> lastCheck = [] { return true; };
};

// One life of the service. Answers 1 and 0 for true and false, a job's code, and 0 for a listing.
class ModelService {
public:
    explicit ModelService(ModelFiles& files) : files_(files) {}

    int answer(const Operation& operation, const JobCircumstances& job = {});

    // Whether the job of a backup that has its way writes into a pipe, where it would stay.
    bool wouldWriteIntoAPipe(const Operation& operation) const;

    // What the service has printed since the last time.
    std::string takePrinted() { return std::exchange(printed_, {}); }
    // The jobs that have begun.
    int jobs() const { return jobs_; }

private:
    bool stickExists(const std::string& mount) const;
    bool deleteFile(const std::string& mount, const std::string& path);
    bool createDirectory(const std::string& mount, const std::string& path);
    void makePath(const std::string& path);
    int refusalOf(const Operation& operation, const char* marker) const;
    int backup(const Operation& operation, const JobCircumstances& job);
    int restore(const Operation& operation);
    int update(const Operation& operation);
    void store(std::uint32_t type, const std::string& mount, const std::string& path);
    void work(const JobCircumstances& job);

    ModelFiles& files_;
    std::string printed_;
    int jobs_ = 0;
    std::uint32_t jobType_ = 0;
    std::string jobMount_;
    std::string jobFile_;
};

// Calls of every kind on things that are there, that are not, and that nobody should name.
class HostileCaller {
public:
    enum class Text { AnyBytes, Utf8 };  // what texts may hold

    HostileCaller(std::uint32_t seed, Text text) : random_(seed), text_(text) {}

    // `files` is what is there by now.
    Operation next(const ModelFiles& files);
    Operation next(const ModelFiles& files, Request request);

    // The size of the contents that a backup writes, and whatever else is left to chance.
    int number(int least, int most) {
        return std::uniform_int_distribution<int>(least, most)(random_);
    }
    bool happens(int percent) { return number(1, 100) <= percent; }

    // Makes a small tree with links, pipes, sockets, odd names and modes.
    void growStick(const std::string& directory);

private:
    std::string word();
    std::string mount();
    std::string composedPath();
    std::string existingPath(const ModelFiles& files, const std::string& mount);
    std::string path(const ModelFiles& files, const std::string& mount);
    std::string suited(Request request, const std::string& path);
    bool mayBeSent(const Operation& operation) const;
    void growTree(const std::string& directory, int depth);
    void growEntry(const std::string& path, int depth);

    std::mt19937 random_;
    Text text_;
    int links_ = 0;
};

}  // namespace test_support
