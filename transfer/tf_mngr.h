// The transfer manager: everything the service does, free of the bus.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "transfer/console_log.h"
#include "transfer/contract.h"
#include "transfer/records.h"

// Device and inode: what tells a directory from every other.
using DirectoryId = std::pair<dev_t, ino64_t>;

// One object for each process, owned by DBusInterface. A mount identifier (`mntId`) names a stick
// as enumerateUsbSticks reports it; paths are relative to the stick and joined unchanged, ".."
// included. Every operation runs on the main-loop thread unless it says otherwise.
// Nothing is locked: the workers read the job fields while the main thread may already append the
// next job to them.
class TfMngr {
public:
    // Creates /tmp/transfer.enabled and tells the transfer script that the service starts. Failures
    // are ignored.
    TfMngr();
    TfMngr(const TfMngr&) = delete;
    TfMngr& operator=(const TfMngr&) = delete;
    // Tells the transfer script that the service stops. Kept: it releases no cached controllers.
    virtual ~TfMngr();

    // --- Life of the service (tf_mngr.cpp) ---

    // The start-up action, which the constructor runs; returns the script's status as system()
    // gives it.
    int announceStart();

    // Ends the process with status 0, and every process that it may signal, for each applet id but
    // the five during which transfers go on. Returns only for those.
    void appletHasChanged(std::int32_t id);

    // --- Paths (paths.cpp); any thread ---

    // A printf-style string of at most 1023 bytes; a longer one is cut.
    static std::string formatString(const char* format, ...) __attribute__((format(printf, 1, 2)));

    // "/media/usb/<mntId>".
    static std::string mountPath(const std::string& mntId);

    // "/media/usb/<mntId>/<relative>", joined unchanged.
    static std::string pathOnStick(const std::string& mntId, const std::string& relative);

    // The same, but the mount path alone when `relative` is empty.
    static std::string pathOrMountPath(const std::string& mntId, const std::string& relative);

    // `entryPath` without the first "/media/usb/<mntId>/" in it; throws std::out_of_range without
    // one.
    static std::string relativePath(std::string entryPath, const std::string& mntId);

    // Everything before the last "/"; all of it without one.
    static std::string parentPath(const std::string& path);

    // Whether stat succeeds, so links are followed; false on any failure of it.
    static bool exists(const std::string& path);

    // --- Sticks (usb_sticks.cpp) ---

    // The mounted sticks in ascending number; a stick with any problem is left out.
    std::vector<UsbStickInfo> enumerateUsbSticks();

    // Whether the mount table has a /dev/sd device on `path` or on a directory whose name `path`
    // begins with.
    bool isMountedUsbDevice(const std::string& path);

    // --- Listings (file_lists.cpp); an empty list is the answer to every failure ---

    // One directory level: sub-directories first, then the rest. Kept: each in the file system's
    // order. Returns the working list, which keeps these entries until the next listing.
    const std::vector<FileEntry>& getRestoreFilesList(const std::string& mntId,
                                                      const std::string& dirPath);

    // The backup or update files in the tree below `dirPath` that the device manager accepts, depth
    // first, some 30 at most. Each listing makes a connection of its own and waits for the verdict
    // on each file.
    std::vector<FileEntry> getBackupFilesList(const std::string& mntId, const std::string& dirPath);
    std::vector<FileEntry> getUpdateFilesList(const std::string& mntId, const std::string& dirPath);

    // The scans behind the listings. Each appends to the working list and returns a copy of it. The
    // restore listing reads the directory once for both of the first two, with the same result.
    std::vector<FileEntry> scanDirectories(const std::string& mntId, const std::string& dirPath);
    std::vector<FileEntry> scanFiles(const std::string& mntId, const std::string& dirPath);
    std::vector<FileEntry> scanTree(const std::string& mntId, const std::string& directory,
                                    const std::string& marker);

    // --- Package checks by the device manager (transfer_file_checks.cpp) ---

    // Whether the device manager accepts the file: the update controller decides when `marker`
    // contains ".fwf", the backup controller otherwise. False when it cannot be asked.
    bool checkTransferFile(const std::string& path, const std::string& marker);
    bool checkUpdateFile(const std::string& path);
    bool checkRestoreFile(const std::string& path);

    // --- File operations (file_operations.cpp) ---

    // Removes a file or an empty directory; returns whether it removed it. Any thread.
    bool DeleteFile(const std::string& mntId, const std::string& filePath);

    // Creates a directory with its missing parents, mode 0700. Returns true when nothing was there
    // and the creation was tried, whether or not it succeeded.
    bool CreateDirectory(const std::string& mntId, const std::string& dirPath);

    // Creates every directory of `path`, of which 255 bytes are kept; returns the last mkdir's
    // result. Any thread.
    static int makeDirectoryPath(const char* path);

    // --- Backup (backup.cpp) ---

    // The device's transfer name from its settings; empty without a transaction, and what the read
    // has left in it when the read fails.
    std::string getDeviceName();

    // A proposed file name, "<device name>-<local time>.psb"; empty without a device name. The kind
    // of the backup makes no difference.
    std::string GetBackupFileName(std::uint32_t backupType);

    // Always true: the real check is part of DoBackup.
    bool ValidateBackupSize(std::uint32_t backupType, const std::string& mntId);

    // Checks name, stick and space, in this order, and starts the backup. Blocks while the device
    // manager answers the size query, and for a second more when all checks pass.
    JobResult DoBackup(const std::string& mntId, std::uint32_t backupType,
                       const std::string& backupFilePath);

    // The device manager's word for a backup type; empty for an unknown one. Any thread.
    static const char* backupTypeWord(std::uint32_t backupType);

    // --- Restore (restore.cpp) and update (os_update.cpp) ---

    // Checks name and stick and starts the restore. Blocks for a second when both checks pass.
    JobResult DoRestore(const std::string& mntId, const std::string& filePath);

    // Checks name, stick and file and starts the update. Blocks for a second when all checks pass.
    JobResult DoOSUpdate(const std::string& mntId, const std::string& filePath);

private:
    // What a worker works on: its own copy of the job fields.
    struct Job {
        std::uint32_t backupType;
        std::string mountId;
        std::string file;
        std::string updateFile;
    };

    // Which entries of a directory a one-level scan keeps.
    enum class Level { Directories, Files, DirectoriesThenFiles };

    // The backup type that marks a restore. Kept: a backup of this type is one.
    static constexpr std::uint32_t kRestoreJob = 0;

    using Worker = void* (*)(void* tfMngr);

    // Creates the worker thread, waits a second, answers Started or NoThread.
    JobResult launchWorker(Worker worker);
    // Stores a backup or (type 0) restore job, unless a string is empty, and launches it.
    JobResult launchBackupRestore(const std::string& mntId, std::uint32_t backupType,
                                  const std::string& filePath);
    // The worker's first act. Kept: no lock guards the fields, which a worker reads here only.
    Job copyJob() const;
    static void* backupRestoreWorker(void* tfMngr);
    static void* osUpdateWorker(void* tfMngr);

    static std::string makeTimestamp();
    static bool hasBackupSpace(const std::string& mntId, std::uint32_t backupType);
    static void ensureParentDirectory(const Job& job);
    static bool runBackupRestore(std::uint32_t backupType, const std::string& target);
    static bool fileExistsOnStick(const std::string& mntId, const std::string& filePath);
    static bool runOsUpdate(const std::string& target);

    void scanLevel(const std::string& mntId, const std::string& dirPath, Level level);
    void scanTreeLevel(const std::string& mntId, const std::string& directory,
                       const std::string& marker, std::vector<DirectoryId>& enclosing);
    std::vector<FileEntry> listPackages(const std::string& mntId, const std::string& dirPath,
                                        const std::string& marker);
    void releaseBackupController();
    void releaseUpdateController();

    std::int32_t controllerConnected_ = 0;  // Kept: one flag for both cached controllers
    IFUController* cachedUpdateController_ = nullptr;
    IBRController* cachedBackupController_ = nullptr;
    // What the library may use until the controller is destroyed.
    std::unique_ptr<CConsoleLog> cachedUpdateLog_;
    std::unique_ptr<CConsoleLog> cachedBackupLog_;
    // The job fields. Kept: strings are only ever appended to, so a second job in the same process
    // works on joined strings.
    std::uint32_t jobBackupType_ = kRestoreJob;
    std::string jobFile_;
    std::string jobMountId_;
    std::string updateFile_;
    pid_t quitSignalTarget_ = -1;  // never assigned: every process that may be signalled
    std::vector<UsbStickInfo> sticks_;  // stays empty: each enumeration returns its own list
    std::vector<FileEntry> entries_;  // the working list of the listings
};
