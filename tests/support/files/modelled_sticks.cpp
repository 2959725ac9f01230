// Two sticks full of odd things, and the model that goes with them.
#include "tests/support/files/modelled_sticks.h"

#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "tests/support/files/files.h"

namespace test_support {

namespace fs = std::filesystem;

namespace {

constexpr const char* kBase = "/media/usb";

std::vector<std::string> entriesOfRootButMedia() {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator("/")) {
        if (entry.path() != "/media") {
            names.push_back(entry.path().filename());
        }
    }
    return names;
}

mode_t currentMask() {
    const mode_t mask = umask(0);
    umask(mask);
    return mask;
}

// "path: what one side has, what the other has" for each path in which they differ.
std::string differences(const FileList& machine, const FileList& model) {
    std::string text;
    const auto compare = [&text](const FileList& one, const FileList& other, const char* missing) {
        for (const auto& [path, description] : one) {
            if (other.count(path) == 0) {
                text += path + ": " + missing + ": " + description + "\n";
            }
        }
    };
    compare(model, machine, "gone from the machine");
    compare(machine, model, "not in the model");
    for (const auto& [path, description] : machine) {
        const auto other = model.find(path);
        if (other != model.end() && other->second != description) {
            text += path + ": " + description + ", in the model " + other->second + "\n";
        }
    }
    return text;
}

}  // namespace

ModelledSticks::ModelledSticks(HostileCaller& caller)
    : caller_(caller), others_(entriesOfRootButMedia()), model_(currentMask()) {
    for (const int number : {1, 2}) {
        makeDirectories(stickPath(number));
    }
    model_.adopt("/media");
    for (const int number : {1, 2}) {
        plug(number);
    }
}

ModelledSticks::~ModelledSticks() {
    for (std::optional<Mount>& mount : mounts_) {
        mount.reset();
    }
    fs::remove_all(kBase);
    for (const auto& [path, description] : filesOfMachine(others_)) {
        if (path != "/" && path != "/media" && fs::path(path).parent_path() == "/") {
            fs::remove_all(path);
        }
    }
}

std::optional<Mount>& ModelledSticks::mountOf(int number) {
    return mounts_.at(static_cast<std::size_t>(number - 1));
}

void ModelledSticks::plug(int number) {
    mountOf(number).emplace(stickPath(number), "/dev/sd" + std::string(1, "ab"[number - 1]) + "1",
                            "tmpfs", 0, "size=4m,mode=755");
    caller_.growStick(stickPath(number));
    model_.adoptMount(stickPath(number));
}

void ModelledSticks::exchange(int number) {
    if (mountOf(number)) {
        pullFromMachine(number);
        pullFromModel(number);
    } else if (exists(stickPath(number))) {
        plug(number);
    }
}

void ModelledSticks::pullFromMachine(int number) {
    if (mountOf(number)) {
        mountOf(number)->unmountLazily();
    }
}

void ModelledSticks::pullFromModel(int number) {
    if (mountOf(number)) {
        model_.uncover(stickPath(number));
        mountOf(number).reset();
    }
}

void ModelledSticks::setReadOnly(int number, bool readOnly) {
    if (mountOf(number)) {
        mountOf(number)->remount(readOnly ? MS_RDONLY : 0);
        model_.setReadOnly(stickPath(number), readOnly);
    }
}

testing::AssertionResult ModelledSticks::agree() const {
    const std::string text = differences(filesOfMachine(others_), model_.files());
    return text.empty() ? testing::AssertionSuccess() : testing::AssertionFailure() << text;
}

}  // namespace test_support
