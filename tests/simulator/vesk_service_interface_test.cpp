// The stub of the settings library: reads the simulated device's settings.
#include "transfer/platform/vesk_service_interface.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "simulator/device_folder.h"
#include "simulator/simulated_device.h"
#include "tests/support/files/files.h"

namespace test_support {
namespace {

constexpr const char* kName = "DEVICE_INFO/transfername";

// The sandbox has a /mnt of its own.
class VeskServiceInterface : public testing::Test {
protected:
    VeskServiceInterface() { std::filesystem::remove_all(kDefaultStateFolder); }

    static void writeSettings(const std::string& text) {
        const std::string path = std::string(kDefaultStateFolder) + "/" + kSettingsFile;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        writeFile(path, text);
    }

    ::VeskServiceInterface& service_ = *::VeskServiceInterface::getSingleton();
    std::string value_ = "untouched";
};

TEST_F(VeskServiceInterface, readsSettingsOfSimulatedDevice) {
    const ::SimulatedDevice device(kDefaultStateFolder);
    ASSERT_EQ(service_.startTransaction(true, true), 0);
    EXPECT_EQ(service_.getValue(kName, value_), 0);
    EXPECT_EQ(value_, device.name());
    service_.stopTransaction();
}

TEST_F(VeskServiceInterface, failsWithoutReadableSettings) {
    EXPECT_NE(service_.startTransaction(true, true), 0);
    writeSettings("no settings");
    EXPECT_NE(service_.startTransaction(true, true), 0);
    EXPECT_NE(service_.getValue(kName, value_), 0);
    EXPECT_EQ(value_, "untouched");
}

TEST_F(VeskServiceInterface, failsForUnknownKey) {
    writeSettings("[DEVICE_INFO]\ntransfername=Kitchen\nbad=\xFF\n");
    ASSERT_EQ(service_.startTransaction(true, true), 0);
    for (const char* key :
         {"", "/", "DEVICE_INFO", "DEVICE_INFO/", "/transfername", "DEVICE_INFO/other",
          "OTHER/transfername", "transfername", "DEVICE_INFO/transfername/", "DEVICE_INFO/bad"}) {
        EXPECT_NE(service_.getValue(key, value_), 0) << key;
        EXPECT_EQ(value_, "untouched");
    }
    EXPECT_EQ(service_.getValue(kName, value_), 0);
    EXPECT_EQ(value_, "Kitchen");
    service_.stopTransaction();
}

TEST_F(VeskServiceInterface, answersInsideTransactionOnly) {
    writeSettings("[DEVICE_INFO]\ntransfername=Kitchen\n");
    EXPECT_NE(service_.getValue(kName, value_), 0);
    ASSERT_EQ(service_.startTransaction(true, true), 0);
    EXPECT_EQ(service_.getValue(kName, value_), 0);
    service_.stopTransaction();
    EXPECT_NE(service_.getValue(kName, value_), 0);
    service_.stopTransaction();
}

TEST_F(VeskServiceInterface, readsSettingsAsTransactionFoundThem) {
    writeSettings("[DEVICE_INFO]\ntransfername=Kitchen\n");
    ASSERT_EQ(service_.startTransaction(true, true), 0);
    writeSettings("[DEVICE_INFO]\ntransfername=Cellar\n");
    EXPECT_EQ(service_.getValue(kName, value_), 0);
    EXPECT_EQ(value_, "Kitchen");

    ASSERT_EQ(service_.startTransaction(true, true), 0) << "one left open is replaced";
    EXPECT_EQ(service_.getValue(kName, value_), 0);
    EXPECT_EQ(value_, "Cellar");
    service_.stopTransaction();
}

}  // namespace
}  // namespace test_support
