// What holds for every method of both interfaces, whatever it does.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "tests/support/bus/interface_description.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/device/device_double.h"
#include "tests/support/files/golden.h"
#include "tests/support/files/paths.h"
#include "tests/support/process/service_process.h"

namespace test_support {
namespace {

// The signatures next to `types` that are not `types`: one argument more, one less, another type
// in each place, a variant around each.
std::vector<std::string> nearMisses(const std::string& types) {
    std::vector<std::string> misses = {types + "s"};
    for (std::size_t i = 0; i < types.size(); ++i) {
        misses.push_back(types.substr(0, i) + types.substr(i + 1));
        for (const char other : {'i', 'v', types[i] == 's' ? 'u' : 's'}) {
            misses.push_back(types);
            misses.back()[i] = other;
        }
    }
    return misses;
}

class EveryMethod : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(service_.waitUntilAnswers()); }

    Reply call(const Method& method, const std::string& types) const {
        const char* const path =
            method.interface == kTransferInterface ? kTransferPath : kControlPath;
        return bus_.call(path, method.interface, method.name, harmlessArguments(types));
    }

    static std::vector<Method> all() {
        std::vector<Method> methods = transferMethods();
        methods.insert(methods.end(), controlMethods().begin(), controlMethods().end());
        return methods;
    }

    DeviceDouble device_;
    ServiceProcess service_{{{}, device_.environment()}};
    SystemBus bus_;
};

TEST_F(EveryMethod, answersWithItsOutSignature) {
    for (const Method& method : all()) {
        const Reply reply = call(method, method.in);
        EXPECT_EQ(reply.type(), "(" + method.out + ")") << method.name << ": " << reply.message;
    }
}

TEST_F(EveryMethod, refusesOtherArguments) {
    for (const Method& method : all()) {
        for (const std::string& types : nearMisses(method.in)) {
            EXPECT_EQ(call(method, types).error, "org.freedesktop.DBus.Error.InvalidArgs")
                << method.name << "(" << types << ")";
        }
    }
    EXPECT_THAT(device_.calls(), testing::IsEmpty());
}

// A title of a golden reply begins with the method's name.
TEST(TransferMethods, haveGoldenReplies) {
    std::set<std::string> golden;
    for (const auto& file : std::filesystem::directory_iterator(sourcePath("tests/golden"))) {
        for (const auto& [title, reply] : goldenReplies(file.path().filename())) {
            golden.insert(title.substr(0, title.find('(')));
        }
    }
    for (const Method& method : transferMethods()) {
        EXPECT_THAT(golden, testing::Contains(method.name));
    }
}

}  // namespace
}  // namespace test_support
