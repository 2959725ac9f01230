// A stick that fails between any two system calls of a listing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <limits>
#include <map>
#include <memory>

#include "tests/support/process/process_table.h"
#include "tests/unit/listing.h"
#include "tests/unit/watched_calls.h"

namespace test_support {
namespace {

constexpr std::size_t kNever = std::numeric_limits<std::size_t>::max();

// What happens to the stick: told of every call, with its index and that of the call before which
// the fault strikes. Returns as WatchedCalls::Before.
struct Fault {
    const char* name;
    std::function<int(Stick& stick, std::size_t index, std::size_t strike)> act;
};

void pull(Stick& stick) {
    stick.pull();
}

void pullAndRemoveTheFolder(Stick& stick) {
    stick.pull();
    rmdir(stick.path().c_str());
}

void replaceTheDirectoryByAFile(Stick& stick) {
    std::rename(stick.path("a").c_str(), stick.path(".a").c_str());
    stick.addFile("a");
}

Fault once(const char* name, void (*happen)(Stick&)) {
    return {name, [happen](Stick& stick, std::size_t index, std::size_t strike) {
                if (index == strike) {
                    happen(stick);
                }
                return 0;
            }};
}

struct ManagerOperation {
    const char* name;
    std::function<std::vector<FileEntry>(TfMngr&)> run;
};

class FaultyListing : public testing::Test {
protected:
    // One run on a fresh stick, with the fault before the call of index `strike`.
    struct Run {
        std::vector<FileEntry> list;
        std::vector<WatchedCall> calls;
    };

    Run run(const ManagerOperation& operation, const Fault& fault, std::size_t strike) {
        Stick stick(1);
        fill(stick);
        device_.clearRecord();
        const std::vector<std::string> open = openDescriptorsOf(getpid());
        Run result;
        {
            const WatchedCalls watched([&](const WatchedCall& /*call*/, std::size_t index) {
                return fault.act(stick, index, strike);
            });
            result = {operation.run(manager_), watched.calls()};
        }
        EXPECT_EQ(openDescriptorsOf(getpid()), open);
        EXPECT_EQ(controllersLeft(), 0);
        return result;
    }

    static void fill(const Stick& stick) {
        for (const char* path : {"a/1.psb", "a/set.psb/2", "a/set.psb/3.fwf", "a/d/e/4.psb",
                                 "a/d/5.fwf", "a/.hidden", "a/6.fwf", "a/plain"}) {
            stick.addFile(path);
        }
    }

    int controllersLeft() const {
        int left = 0;
        for (const std::string& call : device_.calls()) {
            left += call.find("CreateController()") != std::string::npos ? 1 : 0;
            left -= call.find("DestroyController(") != std::string::npos ? 1 : 0;
        }
        return left;
    }

    DeviceDouble device_;
    TfMngr manager_;
};

std::string pathOf(const FileEntry& entry) {
    return stickPath(1) + "/" + entry.location + "/" + entry.name;
}

// What of a whole list had been looked at before the call of index `strike`.
std::vector<FileEntry> seenBefore(std::size_t strike, const std::vector<FileEntry>& whole,
                                  const std::vector<WatchedCall>& calls) {
    std::vector<FileEntry> seen;
    for (const FileEntry& entry : whole) {
        const auto looked = std::find_if(calls.begin(), calls.end(), [&](const WatchedCall& call) {
            return call.name == "stat64" && call.path == pathOf(entry);
        });
        if (static_cast<std::size_t>(looked - calls.begin()) < strike) {
            seen.push_back(entry);
        }
    }
    return seen;
}

const std::vector<Fault>& faults() {
    static const std::vector<Fault> all{
        once("Pulled", pull), once("PulledWithItsFolder", pullAndRemoveTheFolder),
        once("WithAFileInPlaceOfTheDirectory", replaceTheDirectoryByAFile),
        Fault{"AnsweringErrorsFromThenOn", [](Stick&, std::size_t index, std::size_t strike) {
                  return index >= strike ? EIO : 0;
              }}};
    return all;
}

const std::vector<ManagerOperation>& operations() {
    static const std::vector<ManagerOperation> all{
        {"RestoreListing", [](TfMngr& m) { return m.getRestoreFilesList("USB_X60.1", "a"); }},
        {"BackupListing", [](TfMngr& m) { return m.getBackupFilesList("USB_X60.1", "a"); }},
        {"UpdateListing", [](TfMngr& m) { return m.getUpdateFilesList("USB_X60.1", "a"); }}};
    return all;
}

class PermanentFault : public FaultyListing,
                       public testing::WithParamInterface<std::tuple<Fault, ManagerOperation>> {};

TEST_P(PermanentFault, leavesWhatWasSeenBefore) {
    const auto& [fault, operation] = GetParam();
    const Run whole = run(operation, fault, kNever);
    ASSERT_GE(whole.list.size(), 3U);
    for (std::size_t strike = 0; strike < whole.calls.size(); ++strike) {
        const Run faulty = run(operation, fault, strike);
        EXPECT_EQ(placesOf(faulty.list), placesOf(seenBefore(strike, whole.list, whole.calls)))
            << "before call " << strike << ", " << whole.calls[strike].name << " "
            << whole.calls[strike].path;
    }
}

INSTANTIATE_TEST_SUITE_P(During, PermanentFault,
                         testing::Combine(testing::ValuesIn(faults()),
                                          testing::ValuesIn(operations())),
                         [](const auto& one) {
                             return std::string(std::get<ManagerOperation>(one.param).name) +
                                    std::get<Fault>(one.param).name;
                         });

class SingleFault : public FaultyListing, public testing::WithParamInterface<ManagerOperation> {};

// In the order of the whole list.
bool isPartOf(const std::vector<std::string>& part, const std::vector<std::string>& whole) {
    auto from = whole.begin();
    return std::all_of(part.begin(), part.end(), [&](const std::string& place) {
        from = std::find(from, whole.end(), place);
        return from != whole.end();
    });
}

TEST_P(SingleFault, losesOnlyPartOfTheList) {
    const Fault oneCall{"", [](Stick&, std::size_t index, std::size_t strike) {
                            return index == strike ? EIO : 0;
                        }};
    const Run whole = run(GetParam(), oneCall, kNever);
    std::map<std::string, std::size_t> lost;
    for (std::size_t strike = 0; strike < whole.calls.size(); ++strike) {
        const Run faulty = run(GetParam(), oneCall, strike);
        EXPECT_TRUE(isPartOf(placesOf(faulty.list), placesOf(whole.list)))
            << testing::PrintToString(placesOf(faulty.list)) << " before call " << strike;
        lost[whole.calls[strike].name] += whole.list.size() - faulty.list.size();
    }
    EXPECT_EQ(lost["closedir"], 0U);
    EXPECT_EQ(lost["fstat64"], 0U);  // a directory of unknown identity is read
    for (const char* name : {"stat64", "opendir", "readdir64"}) {
        EXPECT_GT(lost[name], 0U) << name;
    }
}

INSTANTIATE_TEST_SUITE_P(During, SingleFault, testing::ValuesIn(operations()),
                         [](const auto& one) { return std::string(one.param.name); });

}  // namespace
}  // namespace test_support
