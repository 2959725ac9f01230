// A stick that fails between any two system calls of a listing.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <functional>
#include <map>
#include <tuple>

#include "tests/support/process/process_table.h"
#include "tests/unit/listing.h"
#include "tests/unit/watched_calls.h"

namespace test_support {
namespace {

// What happens before one call, and the errno of that and all further calls (0: none).
struct Fault {
    const char* name;
    void (*happen)(Stick& stick);
    int error;
};

const Fault kLastingFaults[] = {
    {"Pulled", [](Stick& stick) { stick.pull(); }, 0},
    {"PulledWithItsFolder",
     [](Stick& stick) {
         stick.pull();
         rmdir(stick.path().c_str());
     },
     0},
    {"WithAFileInPlaceOfTheDirectory",
     [](Stick& stick) {
         std::rename(stick.path("a").c_str(), stick.path(".a").c_str());
         stick.addFile("a");
     },
     0},
    {"AnsweringErrorsFromThenOn", [](Stick& /*stick*/) {}, EIO},
};

struct ManagerOperation {
    const char* name;
    std::vector<FileEntry> (*run)(TfMngr&);
};

const ManagerOperation kListings[] = {
    {"RestoreListing", [](TfMngr& m) { return m.getRestoreFilesList("USB_X60.1", "a"); }},
    {"BackupListing", [](TfMngr& m) { return m.getBackupFilesList("USB_X60.1", "a"); }},
    {"UpdateListing", [](TfMngr& m) { return m.getUpdateFilesList("USB_X60.1", "a"); }},
};

class FaultyListing : public testing::Test {
protected:
    struct Run {
        std::vector<FileEntry> list;
        std::vector<WatchedCall> calls;
    };

    // One run on a fresh stick, on which `before` acts as in WatchedCalls.
    Run run(const ManagerOperation& operation,
            const std::function<int(Stick& stick, std::size_t index)>& before) {
        Stick stick(1);
        fill(stick);
        device_.clearRecord();
        const std::vector<std::string> open = openDescriptorsOf(getpid());
        Run result;
        {
            const WatchedCalls watched([&](const WatchedCall& /*call*/, std::size_t index) {
                return before(stick, index);
            });
            result = {operation.run(manager_), watched.calls()};
        }
        EXPECT_EQ(openDescriptorsOf(getpid()), open);
        EXPECT_EQ(controllersLeft(), 0);
        return result;
    }
    Run run(const ManagerOperation& operation) {
        return run(operation, [](Stick& /*stick*/, std::size_t /*index*/) { return 0; });
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

// What of a whole list had been looked at before the call of index `strike`.
std::vector<FileEntry> seenBefore(std::size_t strike, const std::vector<FileEntry>& whole,
                                  const std::vector<WatchedCall>& calls) {
    std::vector<FileEntry> seen;
    for (const FileEntry& entry : whole) {
        const std::string path = stickPath(1) + "/" + entry.location + "/" + entry.name;
        const auto looked = std::find_if(calls.begin(), calls.end(), [&](const WatchedCall& call) {
            return call.name == "stat64" && call.path == path;
        });
        if (static_cast<std::size_t>(looked - calls.begin()) < strike) {
            seen.push_back(entry);
        }
    }
    return seen;
}

class LastingFault : public FaultyListing,
                     public testing::WithParamInterface<std::tuple<Fault, ManagerOperation>> {};

TEST_P(LastingFault, leavesWhatWasSeenBefore) {
    const Fault& fault = std::get<Fault>(GetParam());
    const ManagerOperation& operation = std::get<ManagerOperation>(GetParam());
    const Run whole = run(operation);
    ASSERT_GE(whole.list.size(), 3U);
    for (std::size_t strike = 0; strike < whole.calls.size(); ++strike) {
        const Run faulty = run(operation, [&](Stick& stick, std::size_t index) {
            if (index == strike) {
                fault.happen(stick);
            }
            return index < strike ? 0 : fault.error;
        });
        EXPECT_EQ(placesOf(faulty.list), placesOf(seenBefore(strike, whole.list, whole.calls)))
            << "before call " << strike << ", " << whole.calls[strike].name << " "
            << whole.calls[strike].path;
    }
}

INSTANTIATE_TEST_SUITE_P(During, LastingFault,
                         testing::Combine(testing::ValuesIn(kLastingFaults),
                                          testing::ValuesIn(kListings)),
                         [](const auto& one) {
                             return std::string(std::get<ManagerOperation>(one.param).name) +
                                    std::get<Fault>(one.param).name;
                         });

class SingleFault : public FaultyListing, public testing::WithParamInterface<ManagerOperation> {};

TEST_P(SingleFault, losesOnlyPartOfTheList) {
    const Run whole = run(GetParam());
    std::map<std::string, std::size_t> lost;
    for (std::size_t strike = 0; strike < whole.calls.size(); ++strike) {
        const Run faulty = run(GetParam(), [&](Stick& /*stick*/, std::size_t index) {
            return index == strike ? EIO : 0;
        });
        EXPECT_THAT(placesOf(faulty.list), testing::IsSubsetOf(placesOf(whole.list)))
            << "before call " << strike;
        lost[whole.calls[strike].name] += whole.list.size() - faulty.list.size();
    }
    EXPECT_EQ(lost["closedir"], 0U);
    EXPECT_EQ(lost["fstat64"], 0U);  // a directory of unknown identity is read
    for (const char* name : {"stat64", "opendir", "readdir64"}) {
        EXPECT_GT(lost[name], 0U) << name;
    }
}

INSTANTIATE_TEST_SUITE_P(During, SingleFault, testing::ValuesIn(kListings),
                         [](const auto& one) { return std::string(one.param.name); });

}  // namespace
}  // namespace test_support
