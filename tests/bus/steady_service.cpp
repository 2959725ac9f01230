// A service that has to come out of a test as it went in.
#include "tests/bus/steady_service.h"

#include <algorithm>

#include "tests/support/process/waiting.h"

namespace test_support {

void SteadyService::SetUp() {
    ASSERT_TRUE(service_.waitUntilAnswers());
    process_ = service_.processId();
    descriptors_ = sortedDescriptors();
}

void SteadyService::TearDown() {
    EXPECT_EQ(bus_.transfer("GetUSBStickDetails").error, "");
    EXPECT_EQ(service_.processId(), process_);
    EXPECT_TRUE(eventually([this] { return sortedDescriptors() == descriptors_; },
                           "the descriptors of the beginning"))
        << testing::PrintToString(descriptors_) << " became "
        << testing::PrintToString(sortedDescriptors());
}

std::vector<std::string> SteadyService::sortedDescriptors() const {
    std::vector<std::string> all = service_.openDescriptors();
    std::sort(all.begin(), all.end());
    return all;
}

}  // namespace test_support
