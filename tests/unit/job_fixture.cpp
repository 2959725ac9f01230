// The ground of the jobs' unit tests.
#include "tests/unit/job_fixture.h"

#include <algorithm>
#include <filesystem>
#include <thread>

#include "tests/support/process/waiting.h"

namespace test_support {
namespace {

bool beginsWith(const std::string& text, const std::string& beginning) {
    return text.compare(0, beginning.size(), beginning) == 0;
}

// The last that the device libraries see of a worker.
bool isLastCall(const DoubleRecord& record) {
    return !record.onMainThread && (beginsWith(record.text, "BRDestroyController(") ||
                                    beginsWith(record.text, "FUDestroyController(") ||
                                    record.text == "BRCreateController() = null");
}

bool threadExists(int id) {
    return exists("/proc/self/task/" + std::to_string(id));
}

}  // namespace

JobTest::~JobTest() {
    // Jobs on joined names make directories beside the sticks.
    std::filesystem::remove_all("/media/usb");
}

void JobTest::TearDown() {
    device_.openGate();
    waitForWorkers();
}

int JobTest::backup(const std::string& mntId, std::uint32_t type, const std::string& file) {
    const JobResult result = manager_.DoBackup(mntId, type, file);
    waitForWorkers();
    return numberOf(result);
}

int JobTest::restore(const std::string& mntId, const std::string& file) {
    const JobResult result = manager_.DoRestore(mntId, file);
    waitForWorkers();
    return numberOf(result);
}

int JobTest::update(const std::string& mntId, const std::string& file) {
    const JobResult result = manager_.DoOSUpdate(mntId, file);
    waitForWorkers();
    return numberOf(result);
}

void JobTest::during(const std::string& operation, const std::function<void()>& meanwhile,
                     const std::function<void()>& job) {
    device_.order(operation, "hang", device_.gate());
    const std::string name = operation.substr(operation.find('.') + 1);
    std::thread other([&] {
        const bool reached = waitUntil([&] {
            const std::vector<std::string> calls = device_.calls();
            return !calls.empty() && calls.back().find(name) != std::string::npos;
        });
        EXPECT_TRUE(reached) << "nobody called " << operation;
        meanwhile();
        device_.openGate();
    });
    job();
    other.join();
}

void JobTest::waitForWorkers() {
    // Every launch sleeps once.
    const auto launched = static_cast<std::ptrdiff_t>(clock_.sleeps().size() - forgotten_);
    const auto allHaveGone = [&] {
        const std::vector<DoubleRecord> records = device_.records();
        return std::count_if(records.begin(), records.end(), isLastCall) == launched &&
               std::none_of(records.begin(), records.end(), [](const DoubleRecord& record) {
                   return !record.onMainThread && threadExists(record.thread);
               });
    };
    EXPECT_TRUE(eventually(allHaveGone, "the workers end"));
}

void JobTest::forgetJobs() {
    forgotten_ = clock_.sleeps().size();
    device_.clearRecord();
}

}  // namespace test_support
