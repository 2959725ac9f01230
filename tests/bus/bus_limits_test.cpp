// Sticks that hold more than a reply can carry: the client gets a well-formed reply, and the
// service goes on, the same process.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/bus/system_bus.h"
#include "tests/support/device/device_double.h"
#include "tests/support/device/stick.h"
#include "tests/support/process/service_process.h"
#include "tests/support/process/syslog_socket.h"
#include "tests/support/process/unique_fd.h"

namespace test_support {
namespace {

constexpr std::size_t kMessageLimit = 32U * 1024 * 1024;
constexpr std::size_t kHeaderRoom = 1024;
constexpr const char* kReplacement = "\xEF\xBF\xBD";

std::string repeated(const std::string& text, std::size_t times) {
    std::string result;
    for (std::size_t i = 0; i < times; ++i) {
        result += text;
    }
    return result;
}

class BusLimits : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(service_.waitUntilAnswers());
        process_ = service_.processId();
    }

    void TearDown() override {
        EXPECT_EQ(bus_.transfer("GetStickDetailsWithCount").type(), "(vu)");
        EXPECT_EQ(service_.processId(), process_);
        EXPECT_THAT(service_.ends(), testing::IsEmpty());
    }

    Reply list(const std::string& method, const std::string& directory) const {
        return bus_.transfer(method, g_variant_new("(ss)", "USB_X60.1", directory.c_str()));
    }

    // The messages about entries left out, by now.
    std::vector<std::string> omissions() const {
        std::vector<std::string> found;
        for (const LogMessage& message : log_.messages()) {
            if (message.text.find("left out") != std::string::npos) {
                EXPECT_EQ(message.priority, LOG_INFO);
                found.push_back(message.text);
            }
        }
        return found;
    }

    SyslogSocket log_;
    DeviceDouble device_;
    Stick stick_{1, {"64m", "/dev/sda1", false}};
    ServiceProcess service_{{{}, device_.environment(), {}, {}, {}}};
    SystemBus bus_;

private:
    std::optional<pid_t> process_;
};

// The tuple and the count of a "(vi)" reply.
struct CountedTuple {
    VariantPtr tuple;
    gint32 count = -1;
    std::string type;
};

CountedTuple countedTuple(const Reply& reply) {
    CountedTuple result;
    if (reply.type() == "(vi)") {
        GVariant* tuple = nullptr;
        g_variant_get(reply.value.get(), "(vi)", &tuple, &result.count);
        result.tuple.reset(tuple);
        result.type = g_variant_get_type_string(tuple);
    }
    return result;
}

std::string tupleType(const std::string& record, std::size_t records) {
    return "(" + repeated(record, records) + ")";
}

// The texts at `place` of each record of a flat list, in order.
std::vector<std::string> textsAt(GVariant* flat, std::size_t place) {
    std::vector<std::string> texts;
    for (std::size_t i = place; i < g_variant_n_children(flat); i += 4) {
        g_autoptr(GVariant) element = g_variant_get_child_value(flat, i);
        if (g_variant_is_of_type(element, G_VARIANT_TYPE_VARIANT) != FALSE) {
            GVariant* const content = g_variant_get_variant(element);
            g_variant_unref(element);
            element = content;
        }
        texts.emplace_back(g_variant_get_string(element, nullptr));
    }
    return texts;
}

std::vector<std::string> indexTexts(const Reply& index, std::size_t place) {
    if (index.type() != "(av)") {
        ADD_FAILURE() << index.error << " " << index.message;
        return {};
    }
    const VariantPtr boxes(g_variant_get_child_value(index.value.get(), 0));
    EXPECT_EQ(g_variant_n_children(boxes.get()) % 4, 0U);
    return textsAt(boxes.get(), place);
}

TEST_F(BusLimits, letATupleCarryTheFirst63RecordsOfADirectory) {
    for (const std::size_t files : {62U, 63U, 64U, 65U, 200U}) {
        const std::string directory = std::to_string(files);
        for (std::size_t i = 0; i < files; ++i) {
            stick_.addFile(directory + "/f" + std::to_string(i), "");
        }
        const std::size_t carried = std::min<std::size_t>(files, 63);
        const CountedTuple found = countedTuple(list("GetRestoreFilesList", directory));
        EXPECT_EQ(found.count, static_cast<gint32>(carried));
        ASSERT_EQ(found.type, tupleType("usts", carried));

        // The index carries everything, and the list is its beginning.
        std::vector<std::string> names = indexTexts(list("GetDirectoryIndex", directory), 1);
        ASSERT_EQ(names.size(), files);
        names.resize(carried);
        EXPECT_EQ(textsAt(found.tuple.get(), 1), names);
    }
    ASSERT_TRUE(log_.waitFor("137 of 200"));
    EXPECT_THAT(omissions(), testing::ElementsAre(
                                 "GetRestoreFilesList: 1 of 64 entries left out of the reply",
                                 "GetRestoreFilesList: 2 of 65 entries left out of the reply",
                                 "GetRestoreFilesList: 137 of 200 entries left out of the reply"));
    EXPECT_TRUE(service_.waitForOutput(
        "[NFO] GetRestoreFilesList: 137 of 200 entries left out of the reply\n"));
}

// Each level of a tree adds at least its own directory, so a chain of n is listed as n.
TEST_F(BusLimits, letATupleCarryTheFirst63RecordsOfATree) {
    for (const char* const kind : {"Backup", "Update"}) {
        const std::string link = std::string(kind) == "Backup" ? "/d.psb" : "/d.fwf";
        for (const std::size_t depth : {62U, 63U, 64U, 65U, 200U}) {
            const std::string top = kind + std::to_string(depth);
            stick_.addDirectory(top + repeated(link, depth));
            const std::size_t carried = std::min<std::size_t>(depth, 63);
            const std::string method = std::string("Get") + kind + "FilesList";
            const CountedTuple found = countedTuple(list(method, top));
            EXPECT_EQ(found.count, static_cast<gint32>(carried));
            ASSERT_EQ(found.type, tupleType("ists", carried));
            EXPECT_EQ(indexTexts(list(std::string("GetDirectoryIndexFor") + kind, top), 1).size(),
                      depth);
        }
    }
    ASSERT_TRUE(log_.waitFor("GetUpdateFilesList: 137 of 200"));
    EXPECT_EQ(omissions().size(), 6U);
}

TEST_F(BusLimits, sendFileNamesThatAreNoUtf8WithReplacementCharacters) {
    const std::string r = kReplacement;
    stick_.addDirectory("names");
    for (const char* const name :
         {"\xFFstart", "mid\xC3(dle", "end\xE2\x82", "\x80", "\xF0\x9F\x98\x80"}) {
        stick_.addFile(std::string("names/") + name);
    }
    const auto expected = testing::UnorderedElementsAre(r + "start", "mid" + r + "(dle",
                                                        "end" + r + r, r, "\xF0\x9F\x98\x80");
    EXPECT_THAT(indexTexts(list("GetDirectoryIndex", "names"), 1), expected);
    const CountedTuple found = countedTuple(list("GetRestoreFilesList", "names"));
    EXPECT_EQ(found.type, tupleType("usts", 5));
    EXPECT_THAT(textsAt(found.tuple.get(), 1), expected);
}

TEST_F(BusLimits, sendLocationsThatAreNoUtf8WithReplacementCharacters) {
    const std::string r = kReplacement;
    stick_.addFile("\xFF.psb/mid\xFE/x\xFD/a.fwf");
    const auto expected =
        testing::ElementsAre(r + ".psb/mid" + r + "/x" + r, r + ".psb/mid" + r, r + ".psb", "/");
    EXPECT_THAT(indexTexts(list("GetDirectoryIndexForBackup", ""), 3), expected);
    const CountedTuple found = countedTuple(list("GetBackupFilesList", ""));
    EXPECT_EQ(found.type, tupleType("ists", 4));
    EXPECT_THAT(textsAt(found.tuple.get(), 3), expected);
    EXPECT_THAT(indexTexts(list("GetDirectoryIndexForUpdate", ""), 3),
                testing::ElementsAre(r + ".psb/mid" + r + "/x" + r));
}

TEST_F(BusLimits, sendADeviceNameThatIsNoUtf8WithReplacementCharacters) {
    device_.order("Vesk.getValue", "value",
                  "\xFF"
                  "DEV\xC3ICE\xE2\x82");
    const Reply reply = bus_.transfer("GetBackupFileName", g_variant_new("(u)", 1U));
    const std::string r = kReplacement;
    EXPECT_THAT(reply.text(), testing::StartsWith("('" + r + "DEV" + r + "ICE" + r + r + "-"));
}

// Long locations make the reply large with few files; they are part of every record.
class FullMessage : public BusLimits {
protected:
    static constexpr std::size_t kNameLength = 8;

    FullMessage() : directory_(repeated(std::string(249, 'd') + "/", 15) + "last") {
        stick_.addDirectory(directory_);
        const std::string path = stick_.path(directory_);
        // Through a descriptor: the whole path is looked up only once.
        folder_ = UniqueFd(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    }

    void addFile() {
        std::string name = std::to_string(files_++);
        name.insert(0, kNameLength - name.size(), '0');
        const UniqueFd file(
            openat(folder_.get(), name.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
        ASSERT_TRUE(file) << name;
    }

    // How many of the files an index in a full message holds, by the rules of the wire format.
    std::size_t fittingFiles() const {
        std::size_t size = 4;  // the length of the array
        const auto add = [&size](std::size_t alignment, std::size_t bytes) {
            size += 3;  // the signature of the variant
            size = (size + alignment - 1) / alignment * alignment + bytes;
        };
        std::size_t files = 0;
        for (;; ++files) {
            add(4, 4);
            add(4, 4 + kNameLength + 1);
            add(8, 8);
            add(4, 4 + directory_.size() + 1);
            if (size > kMessageLimit - kHeaderRoom) {
                return files;
            }
        }
    }

    std::string directory_;
    UniqueFd folder_;
    std::size_t files_ = 0;
};

// The service counts with the most that alignment may cost, which is less than a hundredth here.
TEST_F(FullMessage, isCutAfterAWholeRecord) {
    const std::size_t fitting = fittingFiles();
    while (files_ < fitting + 1) {
        ASSERT_NO_FATAL_FAILURE(addFile());
    }
    const Reply cut = list("GetDirectoryIndex", directory_);
    std::vector<std::string> names = indexTexts(cut, 1);
    ASSERT_LE(names.size(), fitting);
    ASSERT_GE(names.size(), fitting * 99 / 100);
    EXPECT_EQ(indexTexts(cut, 3), std::vector<std::string>(names.size(), directory_));
    std::sort(names.begin(), names.end());
    EXPECT_EQ(std::unique(names.begin(), names.end()), names.end());

    const std::string omitted = "GetDirectoryIndex: " + std::to_string(files_ - names.size()) +
                                " of " + std::to_string(files_) + " entries left out of the reply";
    ASSERT_TRUE(log_.waitFor(omitted));
    EXPECT_THAT(omissions(), testing::ElementsAre(omitted));
}

}  // namespace
}  // namespace test_support
