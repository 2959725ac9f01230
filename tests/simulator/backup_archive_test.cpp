// Sealed archives: what is written can be read, and nothing else can.
#include "simulator/backup_archive.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <random>

#include "tests/simulator/crafted_archive.h"
#include "tests/support/device/stick.h"
#include "tests/support/files/files.h"

namespace {

using test_support::readFile;
using test_support::TemporaryDirectory;
using test_support::writeFile;
using testing::HasSubstr;

const std::vector<ArchiveKind>& kinds() {
    static const std::vector<ArchiveKind> kKinds = {{"food", {"recipes", "drinks"}},
                                                    {"people", {"users"}}};
    return kKinds;
}

// Bytes that do not compress.
std::string noise(std::size_t count, unsigned seed = 1) {
    std::mt19937 generator(seed);
    std::string bytes(count, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(generator()); });
    return bytes;
}

class MapReceiver final : public MemberReceiver {
public:
    void begin(const MemberRecord& member) override { current_ = &contents[member.name]; }
    void data(const char* bytes, std::size_t count) override { current_->append(bytes, count); }
    void end() override { ++ended; }

    std::map<std::string, std::string> contents;
    int ended = 0;

private:
    std::string* current_ = nullptr;
};

class BackupArchive : public testing::Test {
protected:
    // The reason why readArchive refuses the file; empty when it takes it.
    std::string refusal() const { return refusalOf(file_); }
    static std::string refusalOf(const std::string& path) {
        try {
            readArchive(path, kinds());
            return {};
        } catch (const ArchiveError& error) {
            return error.what();
        }
    }

    std::uint64_t write(const std::vector<ArchiveMember>& members, const Pace& pace = {}) const {
        return writeArchive(file_, head_, members, pace);
    }

    const TemporaryDirectory folder_;
    const std::string file_ = folder_.path("a.psb");
    const ArchiveManifest head_ = {"food", "Kitchen", "2026-01-05T09:07:03Z", "1.4.0", {}};
    const std::vector<ArchiveMember> few_ = {{"drinks/tea", std::string(700, 't')},
                                             {"recipes/soup", "hot"}};
};

TEST_F(BackupArchive, givesBackEveryMemberAndTheManifest) {
    const std::string binary("\0\xFF\n\0", 4);
    const std::string longName = "recipes/" + std::string(150, 'n') + "/" + std::string(150, 'm');
    const std::map<std::string, std::string> members = {
        {"drinks/empty", ""},
        {"recipes/Nudeln mit S\xC3\xB6\xC3\x9F", binary},
        {"recipes/ blank ", "b"},
        {longName, std::string(100000, 'x')}};
    std::vector<ArchiveMember> list;
    std::transform(members.begin(), members.end(), std::back_inserter(list), [](const auto& each) {
        return ArchiveMember{each.first, each.second};
    });
    const std::uint64_t size = write(list);
    EXPECT_EQ(size, std::filesystem::file_size(file_));

    MapReceiver receiver;
    const ArchiveManifest manifest = readArchive(file_, kinds(), &receiver);
    EXPECT_EQ(receiver.contents, members);
    EXPECT_EQ(receiver.ended, 4);
    EXPECT_EQ(manifest.kind, "food");
    EXPECT_EQ(manifest.device, "Kitchen");
    EXPECT_EQ(manifest.time, "2026-01-05T09:07:03Z");
    EXPECT_EQ(manifest.firmware, "1.4.0");
    EXPECT_EQ(manifest.members.size(), members.size());
}

TEST_F(BackupArchive, mayHoldNothing) {
    write({});
    EXPECT_EQ(refusal(), "");
}

TEST_F(BackupArchive, isRefusedWhenCutAnywhere) {
    write(few_);
    const std::string whole = readFile(file_);
    ASSERT_EQ(refusal(), "");
    for (std::size_t length = 0; length < whole.size(); ++length) {
        writeFile(file_, whole.substr(0, length));
        ASSERT_NE(refusal(), "") << "cut to " << length << " of " << whole.size() << " bytes";
    }
}

TEST_F(BackupArchive, isRefusedWhenAnyBitIsAltered) {
    write(few_);
    const std::string whole = readFile(file_);
    for (std::size_t at = 0; at < whole.size(); ++at) {
        std::string altered = whole;
        altered[at] = static_cast<char>(altered[at] ^ (1 << (at % 8)));
        writeFile(file_, altered);
        ASSERT_NE(refusal(), "") << "altered at " << at << " of " << whole.size() << " bytes";
    }
}

TEST_F(BackupArchive, isRefusedWithAnythingBehindIt) {
    write(few_);
    writeFile(file_, readFile(file_) + "x");
    EXPECT_NE(refusal(), "");
    writeFile(file_, sealed(readFile(file_)));
    EXPECT_NE(refusal(), "");
}

TEST_F(BackupArchive, isRefusedWhenCutAndSealedAgain) {
    write({{"recipes/soup", noise(300000)}});
    const std::string whole = readFile(file_);
    for (const std::size_t length : {whole.size() / 8, whole.size() / 2, whole.size() * 7 / 8}) {
        writeFile(file_, sealed(whole.substr(0, length)));
        EXPECT_NE(refusal(), "") << "cut to " << length << " of " << whole.size() << " bytes";
    }
}

TEST_F(BackupArchive, foreignFilesAreRefused) {
    for (const std::string& bytes :
         {std::string(), std::string("not an archive"), std::string(100000, '\0'),
          std::string("\x28\xB5\x2F\xFD", 4), noise(50000)}) {
        writeFile(file_, bytes);
        EXPECT_NE(refusal(), "");
        writeFile(file_, sealed(bytes));
        EXPECT_NE(refusal(), "");
    }
}

TEST_F(BackupArchive, whatIsNoRegularFileIsRefusedWithoutWaiting) {
    EXPECT_THAT(refusalOf(folder_.path("missing")), HasSubstr("No such file"));
    EXPECT_EQ(refusalOf(folder_.path()), "not a regular file");
    const std::string pipe = folder_.path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(refusalOf(pipe), "not a regular file");
    EXPECT_THROW(writeArchive(pipe, head_, few_), ArchiveError);
    EXPECT_TRUE(test_support::exists(pipe)) << "what was never opened is not removed";
}

TEST_F(BackupArchive, anotherKindIsRefused) {
    write(few_);
    EXPECT_NO_THROW(readArchive(file_, {kinds().front()}));
    EXPECT_THROW(readArchive(file_, {kinds().back()}), ArchiveError);
    writeWithManifest(file_, "nonsense", {});
    EXPECT_EQ(refusal(), "an archive of another kind");
}

TEST_F(BackupArchive, craftedButTrueIsAccepted) {
    writeWithManifest(file_, "food", {{"recipes/soup", "hot"}, {"drinks/tea", "cold"}});
    EXPECT_EQ(refusal(), "") << "the other tests would prove nothing";
}

TEST_F(BackupArchive, withoutSealIsRefused) {
    const std::vector<CraftedMember> members = {{"recipes/soup", "hot"}};
    writeUnsealed(file_, {{"manifest", craftedManifest("food", members)}, members.front()});
    EXPECT_NE(refusal(), "");
}

TEST_F(BackupArchive, withoutCompressionIsRefused) {
    const std::vector<CraftedMember> members = {{"recipes/soup", "hot"}};
    writeCrafted(file_, {{"manifest", craftedManifest("food", members)}, members.front()},
                 Compression::none);
    EXPECT_NE(refusal(), "");
}

TEST_F(BackupArchive, hostileNamesAreRefused) {
    for (const std::string name :
         {"/etc/passwd", "../recipes/soup", "recipes/../users/soup", "recipes/..", "recipes/.",
          "recipes//soup", "recipes/", "recipes", "./recipes/soup", "recipes/./soup", "manifest",
          "users/soup", "recipesoup", "Recipes/soup", "recipes/a\x1B[2J", "recipes/\xFF", ".", "..",
          "/"}) {
        writeWithManifest(file_, "food", {{name, "hot"}});
        EXPECT_NE(refusal(), "") << name;
    }
    writeWithManifest(file_, "food", {{"recipes/" + std::string(2000, 'n'), "hot"}});
    EXPECT_NE(refusal(), "");
}

TEST_F(BackupArchive, isNotWrittenWithHostileNames) {
    for (const std::string name : {"/etc/passwd", "../recipes/soup", "recipes/\xFF", ""}) {
        EXPECT_THROW(write({{name, "hot"}}), ArchiveError) << name;
        EXPECT_FALSE(test_support::exists(file_));
    }
}

TEST_F(BackupArchive, linksAndFoldersAreRefused) {
    using Type = CraftedMember::Type;
    const CraftedMember soup = {"recipes/soup", ""};
    for (const CraftedMember& member : {CraftedMember{soup.name, "/etc/passwd", Type::symbolicLink},
                                        CraftedMember{soup.name, "manifest", Type::hardLink},
                                        CraftedMember{soup.name, "", Type::directory}}) {
        writeCrafted(file_, {{"manifest", craftedManifest("food", {soup})}, member});
        EXPECT_EQ(refusal(), "a member is not a plain file");
    }
}

TEST_F(BackupArchive, membersAndManifestMustAgree) {
    const CraftedMember soup = {"recipes/soup", "hot"};
    const CraftedMember cold = {"recipes/soup", "icy"};
    const CraftedMember longer = {"recipes/soup", "hotter"};
    const CraftedMember tea = {"drinks/tea", soup.bytes};  // told apart by its name only
    const CraftedMember manifest = {"manifest", craftedManifest("food", {soup, tea})};

    const std::vector<std::pair<const char*, std::vector<CraftedMember>>> cases = {
        {"missing member", {manifest, soup}},
        {"foreign member", {manifest, soup, tea, {"drinks/beer", ""}}},
        {"another order", {manifest, tea, soup}},
        {"a member twice", {manifest, soup, soup, tea}},
        {"altered member", {manifest, cold, tea}},
        {"longer member", {manifest, longer, tea}},
        {"manifest not first", {soup, manifest, tea}},
        {"no manifest", {soup, tea}},
        {"named twice", {{"manifest", craftedManifest("food", {soup, soup})}, soup, soup}},
        {"file and folder",
         {{"manifest", craftedManifest("food", {soup, {"recipes/soup/x", ""}})},
          soup,
          {"recipes/soup/x", ""}}},
    };
    for (const auto& [title, members] : cases) {
        writeCrafted(file_, members);
        EXPECT_NE(refusal(), "") << title;
    }
    writeCrafted(file_, {manifest, soup, tea});
    EXPECT_EQ(refusal(), "");
}

TEST_F(BackupArchive, brokenManifestsAreRefused) {
    const CraftedMember soup = {"recipes/soup", "hot"};
    const std::string good = craftedManifest("food", {soup});
    const auto with = [&](const std::string& from, const std::string& to) {
        std::string text = good;
        return text.replace(text.find(from), from.size(), to);
    };
    for (const std::string& text :
         {std::string(), std::string("[Archive"), with("Format=1", "Format=2"),
          with("Format=1", ""), with("Kind=food", ""), with("Device=Crafted", "Device=\xFF"),
          with("Device=Crafted", "Device=" + std::string(5000, 'd')),
          with("Members=1", "Members=2"), with("Members=1", "Members=-1"),
          with("Members=1", "Members=x"), with("Members=1", "Members=4000000000"),
          with("Size=3", "Size=4"), with("Size=3", "Size=-3"),
          with("Size=3", "Size=18446744073709551615"), with("SHA256=", "SHA256=0"),
          with("[Member 1]", "[Member 2]")}) {
        writeCrafted(file_, {{"manifest", text}, soup});
        EXPECT_NE(refusal(), "") << text;
    }
    writeCrafted(file_, {{"manifest", good}, soup});
    EXPECT_EQ(refusal(), "");
}

TEST_F(BackupArchive, statingTooMuchIsRefusedBeforeItIsRead) {
    const CraftedMember soup = {"recipes/soup", "hot"};
    std::string text = craftedManifest("food", {soup});
    text.replace(text.find("Size=3"), 6, "Size=1073741825");
    writeCrafted(file_, {{"manifest", text}, soup});
    EXPECT_EQ(refusal(), "too large a content");

    std::vector<CraftedMember> many;
    many.reserve(10001);
    for (int i = 0; i <= 10000; ++i) {
        many.push_back({"recipes/" + std::to_string(i), ""});
    }
    writeWithManifest(file_, "food", many);
    EXPECT_EQ(refusal(), "too many members");
    many.pop_back();
    writeWithManifest(file_, "food", many);
    EXPECT_EQ(refusal(), "");
}

TEST_F(BackupArchive, neverTakesMoreThanItsLimit) {
    std::vector<ArchiveMember> members;
    for (std::size_t i = 0; i < 50; ++i) {
        members.push_back(
            {"recipes/" + std::to_string(i) + std::string(i * 8, 'n'), noise(i * 99)});
    }
    for (const auto& list : {members, few_, std::vector<ArchiveMember>(),
                             std::vector<ArchiveMember>{{"recipes/soup", noise(3000000)}}}) {
        EXPECT_LE(write(list), archiveSizeLimit(head_, list));
    }
}

TEST_F(BackupArchive, growsWhileItIsWrittenAndIsRefusedUntilItIsWhole) {
    std::vector<std::uint64_t> sizes;
    const std::vector<ArchiveMember> members = {{"recipes/soup", noise(300000)}};
    const std::uint64_t limit = archiveSizeLimit(head_, members);
    std::uint64_t last = 0;
    write(members, [&](std::uint64_t done, std::uint64_t total) {
        EXPECT_EQ(total, limit);
        EXPECT_GE(done, last);
        EXPECT_LE(done, total);
        EXPECT_NE(refusal(), "");
        last = done;
        sizes.push_back(std::filesystem::file_size(file_));
    });
    EXPECT_EQ(last, limit);
    EXPECT_GT(sizes.size(), 10U);
    EXPECT_LT(sizes.front(), sizes.back() / 4);
    EXPECT_EQ(refusal(), "");
}

TEST_F(BackupArchive, isRemovedWhenItsWritingIsGivenUp) {
    struct GivenUp {};
    EXPECT_THROW(write(few_, [](std::uint64_t, std::uint64_t) { throw GivenUp(); }), GivenUp);
    EXPECT_FALSE(test_support::exists(file_));
}

TEST_F(BackupArchive, isRemovedWhenItDoesNotFit) {
    const test_support::Mount small(folder_.path("small"), "tmpfs", "tmpfs", 0, "size=64k");
    const std::string path = folder_.path("small/a.psb");
    EXPECT_THROW(writeArchive(path, head_, {{"recipes/soup", noise(1000000)}}), ArchiveError);
    EXPECT_FALSE(test_support::exists(path));
}

TEST_F(BackupArchive, readingCanBeGivenUp) {
    struct GivenUp {};
    write(few_);
    EXPECT_THROW(
        readArchive(file_, kinds(), nullptr, [](std::uint64_t, std::uint64_t) { throw GivenUp(); }),
        GivenUp);
}

}  // namespace
