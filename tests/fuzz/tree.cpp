// Any tree on a stick: the search for packages finds what the model finds, and asks what it asks.
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>
#include <vector>

#include "tests/doubles/plain_device_manager.h"
#include "tests/fuzz/target.h"
#include "tests/unit/listing.h"

namespace {

namespace fs = std::filesystem;
using fuzz::kStick;

constexpr int kMostEntries = 120;
constexpr int kMostLinks = 4;  // each way through them is walked
constexpr int kMostDepth = 12;
constexpr std::size_t kMostListed = 30;

// Reads a tree off the input: each byte says what comes next and how it is called.
class Grower {
public:
    explicit Grower(fuzz::Input& input) : input_(input) {}

    void grow(const std::string& directory, int depth) {
        test_support::makeDirectories(directory);
        seen_.push_back(directory);
        while (!input_.isEmpty() && entries_ < kMostEntries) {
            const std::uint8_t choice = input_.byte();
            if (choice % 8 == 7) {
                return;
            }
            addEntry(directory + "/" + name(choice), choice % 8, depth);
        }
    }

private:
    // Unlike any other.
    std::string name(std::uint8_t choice) {
        const char* const endings[] = {".psb", "", ".psb.old", ".PSB", "\xFF.psb", ".fwf"};
        return std::string(choice >= 0xF0 ? "." : "") + std::to_string(++entries_) +
               endings[choice / 8 % 6];
    }

    void addEntry(const std::string& path, int what, int depth) {
        if (what == 0 && depth < kMostDepth) {
            grow(path, depth + 1);
        } else if (what == 1 && links_ < kMostLinks) {
            ++links_;
            const std::vector<std::string> targets{seen_[input_.byte() % seen_.size()], path,
                                                   "missing", "..", "."};
            fs::create_symlink(targets[input_.byte() % targets.size()], path);
        } else {
            test_support::writeFile(path, std::string(input_.byte(), 'x'));
        }
    }

    fuzz::Input& input_;
    int entries_ = 0;
    int links_ = 0;
    std::vector<std::string> seen_;
};

// A second implementation of the search, one call for each directory on the way.
class Model {
public:
    explicit Model(std::string rejected) : rejected_(std::move(rejected)) {}

    void enter(const std::string& directory) {
        const fs::path real = fs::canonical(directory);
        if (std::find(inside_.begin(), inside_.end(), real) != inside_.end()) {
            return;
        }
        inside_.push_back(real);
        for (const std::string& name : test_support::deliveredNames(directory)) {
            const std::string path = directory + "/" + name;
            struct stat64 status {};
            if (stat64(path.c_str(), &status) != 0) {
                continue;
            }
            if (S_ISDIR(status.st_mode)) {
                enter(path);
            }
            if (path.find(".psb") != std::string::npos && accepts(path)) {
                listed.push_back(entryOf(path, status));
                if (listed.size() >= kMostListed) {
                    break;
                }
            }
        }
        inside_.pop_back();
    }

    std::vector<FileEntry> listed;
    std::vector<std::string> offered;  // the paths that the device manager is asked about

private:
    bool accepts(const std::string& path) {
        offered.push_back(path);
        return path.find(rejected_) == std::string::npos;
    }

    static FileEntry entryOf(const std::string& path, const struct stat64& status) {
        const std::string relative = path.substr(std::strlen(kStick) + 1);
        const std::size_t slash = relative.rfind('/');
        return {S_ISDIR(status.st_mode) ? 0U : 1U, relative.substr(slash + 1), status.st_size,
                slash == std::string::npos ? "/" : relative.substr(0, slash)};
    }

    std::string rejected_;  // part of the paths that the device manager rejects
    std::vector<fs::path> inside_;  // the directories on the current path
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    TfMngr& tested = fuzz::manager();
    fuzz::Input input(data, size);
    const std::string rejected = std::to_string(input.byte());
    const std::string directory = input.byte() % 2 == 0 ? "" : "tree";
    const std::string root = directory.empty() ? kStick : std::string(kStick) + "/" + directory;
    Grower(input).grow(root, 0);

    Model model(rejected);
    model.enter(root);
    const auto offered = std::make_shared<std::vector<std::string>>();
    plain_device_manager::accepts = [offered, rejected](const std::string& path) {
        offered->push_back(path);
        return path.find(rejected) == std::string::npos;
    };
    const std::vector<FileEntry> listed = tested.getBackupFilesList("USB_X60.1", directory);
    fuzz::require(test_support::wholly(listed) == test_support::wholly(model.listed),
                  "what is listed");
    fuzz::require(*offered == model.offered, "what the device manager is asked");
    fuzz::require(plain_device_manager::controllers == 0, "every controller is given back");
    fuzz::clearStick();
    return 0;
}
