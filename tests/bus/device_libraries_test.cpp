// How the built executable is tied to the two device libraries, and that others can take their
// places.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "tests/support/files/paths.h"
#include "tests/support/process/child_process.h"

namespace test_support {
namespace {

constexpr const char* kService = "com-morvane-transfer-service";

// Its name says which layout of the string crosses the boundary.
#if _GLIBCXX_USE_CXX11_ABI
constexpr const char* kGetValue =
    "_ZN20VeskServiceInterface8getValueERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEERS5_";
#else
constexpr const char* kGetValue = "_ZN20VeskServiceInterface8getValueERKSsRSs";
#endif

std::string textOf(const std::vector<std::string>& command) {
    const CommandResult result = runCommand(command);
    EXPECT_EQ(result.end, exited(0)) << command.front() << ": " << result.error;
    return result.output;
}

std::string dynamicSection(const std::string& file) {
    return textOf({"readelf", "--dynamic", "--wide", buildPath(file)});
}

// Every text that `pattern`'s group finds.
std::vector<std::string> found(const std::string& text, const std::string& pattern) {
    const std::regex wanted(pattern);
    std::vector<std::string> all;
    for (auto at = std::sregex_iterator(text.begin(), text.end(), wanted);
         at != std::sregex_iterator(); ++at) {
        all.push_back((*at)[1]);
    }
    return all;
}

TEST(DeviceLibraries, areFoundBesideExecutable) {
    const std::string section = dynamicSection(kService);
    EXPECT_THAT(found(section, R"(\(RUNPATH\).*\[(.*)\])"), testing::ElementsAre("$ORIGIN"));
    EXPECT_THAT(found(section, R"(\((RPATH)\))"), testing::IsEmpty())
        << "it would come before LD_LIBRARY_PATH";
}

TEST(DeviceLibraries, areCalledByPublishedNamesOnly) {
    const std::string symbols = textOf({"readelf", "--dyn-syms", "--wide", buildPath(kService)});
    EXPECT_THAT(found(symbols, R"(UND ((?:BR|FU)\w*Controller))"),
                testing::UnorderedElementsAre("BRCreateController", "BRDestroyController",
                                              "FUCreateController", "FUDestroyController"));
    EXPECT_THAT(
        found(symbols, R"(UND (_ZN20VeskServiceInterface\w+))"),
        testing::UnorderedElementsAre("_ZN20VeskServiceInterface12getSingletonEv",
                                      "_ZN20VeskServiceInterface16startTransactionEbb", kGetValue,
                                      "_ZN20VeskServiceInterface15stopTransactionEv"));
}

TEST(DeviceLibraries, haveTheirNamesAsStubsAndDoubles) {
    for (const std::string folder : {"", "tests/doubles/"}) {
        for (const std::string name : {"libDeviceManagerClient.so", "libVesk.so"}) {
            EXPECT_THAT(found(dynamicSection(folder + name), R"(\(SONAME\).*\[(.*)\])"),
                        testing::ElementsAre(name));
        }
    }
}

}  // namespace
}  // namespace test_support
