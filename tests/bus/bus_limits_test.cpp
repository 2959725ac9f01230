// Sticks that hold more than a reply can carry, or names that a message cannot: the client gets a
// well-formed reply, and the service goes on.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/bus/steady_service.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"
#include "tests/support/process/syslog_socket.h"
#include "tests/support/process/unique_fd.h"

namespace test_support {
namespace {

constexpr std::size_t kMessageLimit = 32U * 1024 * 1024;
constexpr std::size_t kHeaderRoom = 1024;
const std::string kReplacement = "\xEF\xBF\xBD";

std::string repeated(const std::string& text, std::size_t times) {
    std::string result;
    for (std::size_t i = 0; i < times; ++i) {
        result += text;
    }
    return result;
}

// The strings at `place` of each record of a flat list, in order.
std::vector<std::string> stringsAt(GVariant* flat, std::size_t place) {
    std::vector<std::string> strings;
    EXPECT_EQ(g_variant_n_children(flat) % 4, 0U);
    for (std::size_t i = place; i < g_variant_n_children(flat); i += 4) {
        g_autoptr(GVariant) element = g_variant_get_child_value(flat, i);
        if (g_variant_is_of_type(element, G_VARIANT_TYPE_VARIANT) != FALSE) {
            GVariant* const content = g_variant_get_variant(element);
            g_variant_unref(element);
            element = content;
        }
        strings.emplace_back(g_variant_get_string(element, nullptr));
    }
    return strings;
}

struct LogBeforeService {
    SyslogSocket log_;
};

class ReplyLimit : protected LogBeforeService, public SteadyServiceWithDouble {
protected:
    Reply list(const std::string& method, const std::string& directory) const {
        return bus_.transfer(method, g_variant_new("(ss)", "USB_X60.1", directory.c_str()));
    }

    // Names (1) or locations (3) in an index.
    std::vector<std::string> indexed(const std::string& method, const std::string& directory,
                                     std::size_t place) const {
        const Reply index = list(method, directory);
        EXPECT_EQ(index.type(), "(av)") << index.error << " " << index.message;
        if (!index.error.empty()) {
            return {};
        }
        g_autoptr(GVariant) boxes = g_variant_get_child_value(index.value.get(), 0);
        return stringsAt(boxes, place);
    }

    // Names in a list, whose count and type have to fit.
    std::vector<std::string> listed(const std::string& method, const std::string& directory,
                                    const std::string& record) const {
        const Reply reply = list(method, directory);
        EXPECT_EQ(reply.type(), "(vi)");
        g_autoptr(GVariant) tuple = nullptr;
        gint32 count = 0;
        g_variant_get(reply.value.get(), "(vi)", &tuple, &count);
        EXPECT_EQ(g_variant_get_type_string(tuple),
                  "(" + repeated(record, static_cast<std::size_t>(count)) + ")");
        return stringsAt(tuple, 1);
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

    Stick stick_{1, {"64m"}};
};

TEST_F(ReplyLimit, cutsFileTupleAfter63Records) {
    for (const std::size_t files : {63U, 64U, 200U}) {
        const std::string directory = std::to_string(files);
        for (std::size_t i = 0; i < files; ++i) {
            stick_.addFile(directory + "/f" + std::to_string(i), "");
        }
        // The index carries everything, and the list is its beginning.
        std::vector<std::string> names = indexed("GetDirectoryIndex", directory, 1);
        EXPECT_EQ(names.size(), files);
        names.resize(63);
        EXPECT_EQ(listed("GetRestoreFilesList", directory, "usts"), names);
    }
    ASSERT_TRUE(log_.waitFor("137 of 200"));
    EXPECT_THAT(omissions(), testing::ElementsAre(
                                 "GetRestoreFilesList: 1 of 64 entries left out of the reply",
                                 "GetRestoreFilesList: 137 of 200 entries left out of the reply"));
    EXPECT_TRUE(service_.waitForOutput(
        "[NFO] GetRestoreFilesList: 137 of 200 entries left out of the reply\n"));
}

// Each level of a tree adds at least its own directory, so a chain of n is listed as n.
TEST_F(ReplyLimit, cutsPackageTupleAfter63Records) {
    for (const std::string kind : {"Backup", "Update"}) {
        const std::string link = kind == "Backup" ? "/d.psb" : "/d.fwf";
        for (const std::size_t depth : {63U, 64U, 200U}) {
            const std::string top = kind + std::to_string(depth);
            stick_.addDirectory(top + repeated(link, depth));
            EXPECT_EQ(listed("Get" + kind + "FilesList", top, "ists").size(), 63U);
            EXPECT_EQ(indexed("GetDirectoryIndexFor" + kind, top, 1).size(), depth);
        }
    }
    ASSERT_TRUE(log_.waitFor("GetUpdateFilesList: 137 of 200"));
    EXPECT_EQ(omissions().size(), 4U);
}

TEST_F(ReplyLimit, mendsNamesThatAreNotUtf8) {
    const std::string& r = kReplacement;
    stick_.addDirectory("names");
    for (const char* const name :
         {"\xFFstart", "mid\xC3(dle", "end\xE2\x82", "\x80", "\xF0\x9F\x98\x80"}) {
        stick_.addFile(std::string("names/") + name);
    }
    const auto expected = testing::UnorderedElementsAre(r + "start", "mid" + r + "(dle",
                                                        "end" + r + r, r, "\xF0\x9F\x98\x80");
    EXPECT_THAT(indexed("GetDirectoryIndex", "names", 1), expected);
    EXPECT_THAT(listed("GetRestoreFilesList", "names", "usts"), expected);
}

TEST_F(ReplyLimit, mendsLocationsThatAreNotUtf8) {
    const std::string& r = kReplacement;
    stick_.addFile("\xFF.psb/mid\xFE/x\xFD/a.fwf");
    EXPECT_THAT(
        indexed("GetDirectoryIndexForBackup", "", 3),
        testing::ElementsAre(r + ".psb/mid" + r + "/x" + r, r + ".psb/mid" + r, r + ".psb", "/"));
}

TEST_F(ReplyLimit, mendsDeviceNameThatIsNotUtf8) {
    device_.order("Vesk.getValue", "value", "\xFF-DEV\xC3ICE\xE2\x82");
    const Reply reply = bus_.transfer("GetBackupFileName", g_variant_new("(u)", 1U));
    const std::string& r = kReplacement;
    EXPECT_THAT(reply.text(), testing::StartsWith("('" + r + "-DEV" + r + "ICE" + r + r + "-"));
}

// Long locations make the reply large with few files; they are part of every record.
class FullMessage : public ReplyLimit {
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
TEST_F(FullMessage, endsAfterWholeRecord) {
    const std::size_t fitting = fittingFiles();
    while (files_ < fitting + 1) {
        ASSERT_NO_FATAL_FAILURE(addFile());
    }
    const std::vector<std::string> locations = indexed("GetDirectoryIndex", directory_, 3);
    EXPECT_LE(locations.size(), fitting);
    EXPECT_GE(locations.size(), fitting * 99 / 100);
    EXPECT_EQ(locations, std::vector<std::string>(locations.size(), directory_));
    EXPECT_TRUE(log_.waitFor("GetDirectoryIndex: " + std::to_string(files_ - locations.size()) +
                             " of " + std::to_string(files_) + " entries left out of the reply"));
}

}  // namespace
}  // namespace test_support
