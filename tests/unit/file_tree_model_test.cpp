// The search of the tree compared with a second implementation of it, on generated trees.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "tests/support/files/paths.h"
#include "tests/unit/file_tree_model.h"
#include "tests/unit/listing.h"

namespace test_support {
namespace {

namespace fs = std::filesystem;

// ---- the trees --------------------------------------------------------------------------------

// One takes the emulator several times as long.
int trees() {
    return emulated() ? 160 : 320;
}

constexpr int kTreeShards = 4;  // each a test of its own, so that they can run side by side

// What a tree is grown by; chances are percentages.
struct Climate {
    int depth = 0;
    int mostEntries = 0;
    int directories = 0;
    int links = 0;
    int packages = 0;
    int rejections = 0;
};

constexpr Climate kOneFullDirectory{0, 140, 0, 5, 90, 0};

class Grower {
public:
    Grower(std::uint32_t seed, std::string root) : random_(seed), root_(std::move(root)) {
        climate_ = {number(1, 5),  number(3, 70), number(10, 45),
                    number(0, 15), number(5, 90), number(0, 1) * number(5, 40)};
        if (happens(10)) {
            climate_ = kOneFullDirectory;
        }
    }

    // Makes the tree on the stick.
    void grow() { growDirectory(root_, climate_.depth, climate_.mostEntries / 2); }

    // The texts that the device manager rejects a path for.
    const std::vector<std::string>& rejected() const { return rejected_; }

private:
    int number(int least, int most) {
        return std::uniform_int_distribution<int>(least, most)(random_);
    }
    bool happens(int percent) { return number(1, 100) <= percent; }

    // Unlike any other; in no order.
    std::string name() {
        const std::vector<std::string> packages{".psb", ".psb.old", ".fwf", ".psb", ".PSB"};
        const std::string plain = std::to_string(random_() % 1000) + "n" + std::to_string(++names_);
        if (happens(3)) {
            return "." + plain + ".psb";
        }
        return happens(climate_.packages) ? plain + packages.at(random_() % packages.size())
                                          : plain;
    }

    void growDirectory(const std::string& directory, int depth, int fewest) {
        makeDirectories(directory);
        seen_.push_back(directory);
        for (int left = number(fewest, climate_.mostEntries); left > 0 && names_ < kMostNames;
             --left) {
            const std::string path = directory + "/" + name();
            addEntry(path, depth);
            if (happens(climate_.rejections)) {
                rejected_.push_back(path.substr(path.size() / 2));  // of whatever goes on like this
            }
        }
    }

    void addEntry(const std::string& path, int depth) {
        if (depth > 0 && happens(climate_.directories)) {
            growDirectory(path, depth - 1, 0);
        } else if (links_ < kMostLinks && happens(climate_.links)) {
            ++links_;
            addLink(path);
        } else {
            writeFile(path, std::string(static_cast<std::size_t>(number(0, 100)), 'x'));
        }
    }

    // To a directory made already, itself, or nothing. Few, for each way through them is walked.
    void addLink(const std::string& path) {
        const std::vector<std::string> targets{seen_.at(random_() % seen_.size()), path, "missing",
                                               "..", "."};
        fs::create_symlink(targets.at(random_() % targets.size()), path);
    }

    static constexpr int kMostNames = 150;
    static constexpr int kMostLinks = 4;

    std::mt19937 random_;
    std::string root_;
    Climate climate_;
    int names_ = 0;
    int links_ = 0;
    std::vector<std::string> seen_;
    std::vector<std::string> rejected_;
};

// ---- the comparison ---------------------------------------------------------------------------

// Whether the trees have had what they are there for.
struct Coverage {
    int empty = 0;
    int below = 0;  // the limit of 30 entries
    int exact = 0;
    int above = 0;
    int looped = 0;
    int rejected = 0;
    int directories = 0;

    void add(const TreeModel& model) {
        const std::size_t size = model.list.size();
        empty += size == 0 ? 1 : 0;
        below += size > 0 && size < 30 ? 1 : 0;
        exact += size == 30 ? 1 : 0;
        above += size > 30 ? 1 : 0;
        looped += model.loops > 0 ? 1 : 0;
        rejected += model.offered.size() > size ? 1 : 0;
        for (const FileEntry& entry : model.entries()) {
            directories += entry.kind == FileEntry::kDirectory ? 1 : 0;
        }
    }

    bool isWide() const {
        return empty > 0 && below > 0 && exact > 0 && above > 0 && looped > 0 && rejected > 0 &&
               directories > 0;
    }
};

class GeneratedTrees : public Listing, public testing::WithParamInterface<int> {
protected:
    // Grows one tree, alone on the stick or in a directory, and compares. Returns the model.
    TreeModel compare(int seed) {
        const std::string directory = seed % 2 == 0 ? "" : "tree";
        const std::string root = directory.empty() ? stick_.path() : stick_.path(directory);
        Grower grower(static_cast<std::uint32_t>(seed), root);
        grower.grow();
        device_.clearOrders();
        device_.clearRecord();
        for (const std::string& text : grower.rejected()) {
            device_.order("BR.checkBackupFile", "reject", text);
        }
        TreeModel model{stick_.path(), grower.rejected()};
        model.enter(root);
        EXPECT_EQ(wholly(backup(directory)), wholly(model.entries())) << "seed " << seed;
        EXPECT_EQ(offeredPaths(device_), model.offered) << "seed " << seed;
        return model;
    }

    void clear() const {
        for (const fs::directory_entry& entry : fs::directory_iterator(stick_.path())) {
            fs::remove_all(entry.path());
        }
    }
};

TEST_P(GeneratedTrees, areListedAsTheModelSays) {
    Coverage coverage;
    for (int seed = GetParam(); seed < trees() && !HasFailure(); seed += kTreeShards) {
        coverage.add(compare(seed));
        clear();
    }
    EXPECT_TRUE(coverage.isWide())
        << coverage.empty << " empty, " << coverage.below << " below the limit, " << coverage.exact
        << " at it, " << coverage.above << " above it, " << coverage.looped << " with loops, "
        << coverage.rejected << " with rejections, " << coverage.directories << " directories";
}

INSTANTIATE_TEST_SUITE_P(Shard, GeneratedTrees, testing::Range(0, kTreeShards));

}  // namespace
}  // namespace test_support
