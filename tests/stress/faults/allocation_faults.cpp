// Allocations that fail.
#include "tests/stress/faults/allocation_faults.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "tests/support/files/paths.h"
#include "tests/support/process/errno_error.h"
#include "tests/support/process/unique_fd.h"

namespace faults {
namespace {

constexpr std::array<const char*, kAllocatingThreads> kThreadNames{"main", "gdbus", "job"};

}  // namespace

FailingAllocations::FailingAllocations() {
    const test_support::UniqueFd fd(
        open(folder_.path("page").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    void* mapped = MAP_FAILED;
    if (fd && ftruncate(fd.get(), sizeof(AllocationPage)) == 0) {
        mapped =
            mmap(nullptr, sizeof(AllocationPage), PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
    }
    if (mapped == MAP_FAILED) {
        test_support::throwErrno("a page to share");
    }
    page_ = static_cast<AllocationPage*>(mapped);  // all zero, as the file is
}

FailingAllocations::~FailingAllocations() {
    munmap(page_, sizeof(AllocationPage));
}

test_support::ServiceOptions FailingAllocations::serviceOptions() {
    page_->armed = 0;
    watch_ = std::make_unique<CallWatch>();
    test_support::ServiceOptions options;
    // Through env, so that pid-namespace itself is left alone. Small pieces of memory are not kept
    // by GLib.
    options.environment = {"LD_LIBRARY_PATH=" + test_support::buildPath("tests/stress/faults"),
                           "G_SLICE=always-malloc",
                           std::string(kAllocationPageVariable) + "=" + folder_.path("page")};
    options.prefix = watch_->prefix();
    options.prefix.insert(
        options.prefix.end(),
        {"/usr/bin/env",
         "LD_PRELOAD=" + test_support::buildPath("tests/stress/faults/libfailing_allocations.so")});
    return options;
}

void FailingAllocations::arm(const Fault* fault) {
    page_->armed = 0;
    page_->happened = 0;
    for (auto& count : page_->counts) {
        count = 0;
    }
    page_->thread = fault != nullptr ? static_cast<std::uint32_t>(fault->what) : 0;
    page_->nth = fault != nullptr ? fault->nth : 0;
    page_->armed = 1;
}

bool FailingAllocations::disarm() {
    page_->armed = 0;
    return page_->happened != 0;
}

std::vector<Fault> FailingAllocations::noted() const {
    std::vector<Fault> faults;
    for (std::uint32_t thread = 0; thread < kAllocatingThreads; ++thread) {
        const std::string name = kThreadNames.at(thread);
        for (unsigned nth = 1; nth <= page_->counts.at(thread); ++nth) {
            faults.push_back({name + " " + std::to_string(nth), "of thread " + name, "",
                              static_cast<long>(thread), nth, ENOMEM});
        }
    }
    return faults;
}

}  // namespace faults
