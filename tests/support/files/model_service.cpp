// A second implementation of what the service does to files.
#include "tests/support/files/model_service.h"

#include <gio/gio.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>

#include <filesystem>
#include <string_view>
#include <system_error>

#include "tests/support/files/files.h"
#include "tests/support/process/unique_fd.h"

namespace test_support {

namespace {

constexpr const char* kSticks = "/media/usb/";
constexpr std::string_view kRoot = "/media/usb";
constexpr int kMostLinksInTree = 4;  // in a tree, for each way through them is searched
constexpr std::size_t kLongestMadePath = 255;
constexpr mode_t kMadeMode = 0700;
constexpr int kDepth = 2;
constexpr const char* kUpdate = "u.fwf";

bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

}  // namespace

std::string describe(const Operation& operation) {
    constexpr const char* kNames[] = {
        "DeleteFile", "CreateDirectory",     "DoBackup",           "DoRestore",
        "DoOSUpdate", "GetRestoreFilesList", "GetBackupFilesList", "GetUpdateFilesList"};
    return std::string(kNames[static_cast<int>(operation.request)]) + " '" + operation.mount +
           "' '" + operation.path + "' " + std::to_string(operation.backupType);
}

// ---- the service ------------------------------------------------------------------------------

int ModelService::answer(const Operation& operation, const JobCircumstances& job) {
    switch (operation.request) {
        case Request::DeleteFile:
            return deleteFile(operation.mount, operation.path) ? 1 : 0;
        case Request::CreateDirectory:
            return createDirectory(operation.mount, operation.path) ? 1 : 0;
        case Request::Backup:
            return backup(operation, job);
        case Request::Restore:
            return restore(operation);
        case Request::Update:
            return update(operation);
        default:
            return 0;
    }
}

bool ModelService::stickExists(const std::string& mount) const {
    return files_.kindOf(kSticks + mount).has_value();
}

bool ModelService::deleteFile(const std::string& mount, const std::string& path) {
    const std::string target = kSticks + mount + "/" + path;
    const auto kind = stickExists(mount) ? files_.kindOf(target) : std::nullopt;
    const bool isFile = kind == ModelFiles::Kind::File || kind == ModelFiles::Kind::Socket;
    const bool isDirectory = kind == ModelFiles::Kind::Directory;
    if (isFile && files_.removeFile(target)) {
        printed_ += "\n The File " + target + " removed Successfully \n";
        return true;
    }
    if (isDirectory && files_.removeDirectory(target)) {
        printed_ += "\n The Directory " + target + " removed Successfully \n";
        return true;
    }
    return false;
}

bool ModelService::createDirectory(const std::string& mount, const std::string& path) {
    const std::string target = kSticks + mount + "/" + path;
    if (!stickExists(mount) || files_.kindOf(target)) {
        return false;
    }
    makePath(target);
    return true;
}

void ModelService::makePath(const std::string& path) {
    std::string whole = path.substr(0, kLongestMadePath);
    if (whole.back() == '/') {
        whole.pop_back();
    }
    for (std::size_t slash = whole.find('/', 1); slash != std::string::npos;
         slash = whole.find('/', slash + 1)) {
        files_.makeDirectory(whole.substr(0, slash), kMadeMode);
    }
    files_.makeDirectory(whole, kMadeMode);
}

// What every job is refused for: a path without `marker`, a stick that is not there. 0: for
// neither.
int ModelService::refusalOf(const Operation& operation, const char* marker) const {
    if (!holds(operation.path, marker)) {
        return 1;
    }
    return stickExists(operation.mount) ? 0 : 2;
}

int ModelService::backup(const Operation& operation, const JobCircumstances& job) {
    if (const int refusal = refusalOf(operation, ".psb"); refusal != 0) {
        return refusal;
    }
    if (job.refused || !job.lastCheck()) {
        return 3;
    }
    store(operation.backupType, operation.mount, operation.path);
    work(job);
    return 0;
}

int ModelService::restore(const Operation& operation) {
    if (const int refusal = refusalOf(operation, ".psb"); refusal != 0) {
        return refusal;
    }
    store(0, operation.mount, operation.path);
    work({});
    return 0;
}

int ModelService::update(const Operation& operation) {
    if (const int refusal = refusalOf(operation, ".fwf"); refusal != 0) {
        return refusal;
    }
    if (!files_.kindOf(kSticks + operation.mount + "/" + operation.path)) {
        return 5;
    }
    jobMount_ += operation.mount;  // the file of an update has a text of its own
    ++jobs_;
    return 0;
}

void ModelService::store(std::uint32_t type, const std::string& mount, const std::string& path) {
    if (!mount.empty()) {
        jobType_ = type;
        jobMount_ += mount;
        jobFile_ += path;
    }
}

void ModelService::work(const JobCircumstances& job) {
    ++jobs_;
    const std::string target = kSticks + jobMount_ + (jobFile_.empty() ? "" : "/" + jobFile_);
    const std::string inStick = kSticks + jobMount_ + "/" + jobFile_;
    const std::string parent = inStick.substr(0, inStick.rfind('/'));
    if (!files_.kindOf(parent)) {
        makePath(parent);
    }
    if (jobType_ == 0) {
        return;
    }
    deleteFile(jobMount_, jobFile_);
    if (job.writes) {
        files_.writeFile(target, *job.writes);
    }
}

bool ModelService::wouldWriteIntoAPipe(const Operation& operation) const {
    const bool stored = !operation.mount.empty();
    const std::string target = kSticks + jobMount_ + (stored ? operation.mount : "") + "/" +
                               jobFile_ + (stored ? operation.path : "");
    return files_.kindOf(target) == ModelFiles::Kind::Pipe;
}

// ---- its callers ------------------------------------------------------------------------------

std::string HostileCaller::word() {
    static const std::vector<std::string> kWords{"a",         "b",
                                                 "c",         "d",
                                                 "a.psb",     "b.psb",
                                                 kUpdate,     "set.psb",
                                                 "x.psb.old", "up",
                                                 "loop",      "lost",
                                                 "there",     "\xFF.psb",
                                                 "\xC3(",     " ",
                                                 "%n%s",      "\n",
                                                 ".hidden",   "-rf",
                                                 "*",         "\u00E4\u20AC.psb",
                                                 ".psb",      ".fwf",
                                                 "USB_X60.2", "a.psb.fwf"};
    if (happens(4)) {
        return std::string(static_cast<std::size_t>(number(200, 300)), 'x');
    }
    return kWords.at(random_() % kWords.size());
}

std::string HostileCaller::mount() {
    static const std::vector<std::string> kOdd{
        "", ".", "..", "USB_X60.3", "USB_X60.1/a", "USB_X60.1/..", "%n", "USB_X60.1USB_X60.1"};
    return happens(75) ? "USB_X60." + std::to_string(number(1, 2))
                       : kOdd.at(random_() % kOdd.size());
}

std::string HostileCaller::composedPath() {
    std::string path = happens(10) ? "/" : "";
    for (int left = number(0, 4); left > 0; --left) {
        path += happens(20) ? (happens(50) ? ".." : ".") : word();
        path += left > 1 || happens(15) ? (happens(15) ? "//" : "/") : "";
    }
    return path;
}

std::string HostileCaller::existingPath(const ModelFiles& files, const std::string& mount) {
    const bool elsewhere = happens(15);
    const std::string root = elsewhere ? kSticks : kSticks + mount + "/";
    std::vector<std::string> paths;
    for (const auto& [path, description] : files.files()) {
        if (path.compare(0, root.size(), root) == 0) {
            paths.push_back((elsewhere ? "../" : "") + path.substr(root.size()));
        }
    }
    return paths.empty() ? composedPath() : paths.at(random_() % paths.size());
}

std::string HostileCaller::path(const ModelFiles& files, const std::string& mount) {
    static const std::vector<std::string> kTails{"/", "/.", "/..", "//", "/new/deeper", "/../a"};
    std::string result = happens(55) ? existingPath(files, mount) : composedPath();
    if (happens(15)) {
        result += kTails.at(random_() % kTails.size());
    }
    return result;
}

// Most jobs are to get past their first checks.
std::string HostileCaller::suited(Request request, const std::string& path) {
    const bool isBackup = request == Request::Backup || request == Request::Restore;
    if (request == Request::Update && happens(60)) {
        return kUpdate;
    }
    const std::string marker = isBackup ? ".psb" : request == Request::Update ? ".fwf" : "";
    return holds(path, marker) || happens(15) ? path : path + (happens(50) ? "/n" : "") + marker;
}

Operation HostileCaller::next(const ModelFiles& files) {
    constexpr Request kRequests[] = {
        Request::DeleteFile,      Request::DeleteFile,      Request::DeleteFile,
        Request::DeleteFile,      Request::CreateDirectory, Request::CreateDirectory,
        Request::CreateDirectory, Request::Backup,          Request::Backup,
        Request::Backup,          Request::Restore,         Request::Update,
        Request::Update,          Request::ListDirectory,   Request::ListBackups,
        Request::ListUpdates};
    return next(files, kRequests[random_() % std::size(kRequests)]);
}

Operation HostileCaller::next(const ModelFiles& files, Request request) {
    Operation operation;
    do {
        operation.request = request;
        operation.mount = mount();
        operation.path = suited(request, path(files, operation.mount));
        operation.backupType = static_cast<std::uint32_t>(number(0, 4));
    } while (!mayBeSent(operation));
    return operation;
}

bool HostileCaller::mayBeSent(const Operation& operation) const {
    if (text_ == Text::Utf8 && g_utf8_validate(operation.path.c_str(), -1, nullptr) == 0) {
        return false;
    }
    // A search that climbs further would walk all of the machine, and the processes, too.
    std::error_code nothingThere;
    const std::string found =
        std::filesystem::canonical(kSticks + operation.mount + "/" + operation.path, nothingThere);
    return nothingThere || found.compare(0, kRoot.size(), kRoot) == 0 ||
           (operation.request != Request::ListBackups && operation.request != Request::ListUpdates);
}

void HostileCaller::growStick(const std::string& directory) {
    links_ = 0;
    growTree(directory, kDepth);
    if (!exists(directory + "/" + kUpdate)) {
        writeFile(directory + "/" + kUpdate, "update");
    }
}

void HostileCaller::growTree(const std::string& directory, int depth) {
    for (int left = number(2, 6); left > 0; --left) {
        const std::string name = word();
        const std::string path = directory + "/" + name;
        if (name.size() <= NAME_MAX && !exists(path)) {
            growEntry(path, depth);
        }
    }
}

void HostileCaller::growEntry(const std::string& path, int depth) {
    static const std::vector<std::string> kTargets{
        "..", ".", "missing.psb", "a", "../a.psb", "loop", "/media/usb/USB_X60.2", "b.psb"};
    static const std::vector<mode_t> kModes{0, 0400, 0555, 0600, 0644, 0700, 0755, 0777};
    const int kind = number(1, 100);
    if (kind <= 12 && ++links_ <= kMostLinksInTree) {
        std::filesystem::create_symlink(kTargets.at(random_() % kTargets.size()), path);
        return;
    }
    if (kind <= 18) {
        const mode_t special = happens(50) ? S_IFIFO : S_IFSOCK;
        if (mknod(path.c_str(), special | 0600U, 0) != 0) {
            throwErrno("mknod " + path);
        }
    } else if (kind <= 50 && depth > 0) {
        makeDirectories(path);
        if (happens(70)) {
            growTree(path, depth - 1);
        }
    } else {
        writeFile(path, std::string(static_cast<std::size_t>(number(0, 20)), 'o'));
    }
    chmod(path.c_str(), kModes.at(random_() % kModes.size()));
}

}  // namespace test_support
