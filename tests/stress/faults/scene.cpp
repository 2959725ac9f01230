// The sticks that the requests work on, the requests, and what may be answered to them.
#include "tests/stress/faults/scene.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <iterator>

#include "tests/support/files/files.h"

namespace faults {
namespace {

namespace fs = std::filesystem;
using test_support::Reply;
using test_support::VariantPtr;

constexpr std::size_t kElementsPerRecord = 4;

std::string withoutDigits(std::string text) {
    text.erase(std::remove_if(text.begin(), text.end(),
                              [](unsigned char c) { return std::isdigit(c) != 0; }),
               text.end());
    return text;
}

// What the text of each element of a list is, whether or not each is boxed.
std::vector<std::string> elementsOf(GVariant* list) {
    std::vector<std::string> texts;
    for (gsize i = 0; i < g_variant_n_children(list); ++i) {
        VariantPtr child(g_variant_get_child_value(list, i));
        if (g_variant_is_of_type(child.get(), G_VARIANT_TYPE_VARIANT) != FALSE) {
            child.reset(g_variant_get_variant(child.get()));
        }
        texts.push_back(test_support::asText(child.get()));
    }
    return texts;
}

guint32 countIn(GVariant* reply) {
    const VariantPtr count(g_variant_get_child_value(reply, 1));
    return g_variant_is_of_type(count.get(), G_VARIANT_TYPE_UINT32) != FALSE
               ? g_variant_get_uint32(count.get())
               : static_cast<guint32>(g_variant_get_int32(count.get()));
}

// The records of a list, sorted; nothing when it is no list, or one that does not fit its count.
std::optional<std::vector<std::string>> recordsOf(const Reply& reply) {
    GVariant* const value = reply.value.get();
    const VariantPtr box(g_variant_get_child_value(value, 0));
    const bool counted = g_variant_is_of_type(box.get(), G_VARIANT_TYPE_VARIANT) != FALSE;
    const VariantPtr list(counted ? g_variant_get_variant(box.get()) : g_variant_ref(box.get()));
    const std::vector<std::string> elements = elementsOf(list.get());
    std::vector<std::string> records;
    for (std::size_t i = 0; i + kElementsPerRecord <= elements.size(); i += kElementsPerRecord) {
        std::string record;
        for (std::size_t j = 0; j < kElementsPerRecord; ++j) {
            record += elements[i + j] + " ";
        }
        records.push_back(record);
    }
    if (counted && countIn(value) == 0 && records.size() == 1) {
        records.clear();  // the placeholder
    } else if (counted && countIn(value) != records.size()) {
        return std::nullopt;
    }
    if (elements.size() % kElementsPerRecord != 0) {
        return std::nullopt;
    }
    std::sort(records.begin(), records.end());
    return records;
}

bool isList(const Reply& reply) {
    const std::string type = reply.type();
    return type == "(av)" || type == "(vu)" || type == "(vi)";
}

// A list that lacks records, all of whose others are those of the usual answer.
bool isPartOf(const Reply& usual, const Reply& reply) {
    const auto whole = recordsOf(usual);
    const auto part = recordsOf(reply);
    return whole && part && std::includes(whole->begin(), whole->end(), part->begin(), part->end());
}

// The failures that are no lists, by the methods that may answer them.
const std::map<std::string, std::set<std::string>>& failures() {
    static const auto* const kFailures = new std::map<std::string, std::set<std::string>>{
        {"GetBackupFileName", {"('',)"}},        {"DeleteFile", {"(false,)"}},
        {"CreateDirectory", {"(false,)"}},       {"DoOSUpdate", {"(-1,)", "(2,)", "(5,)"}},
        {"DoBackup", {"(-1,)", "(2,)", "(3,)"}}, {"DoRestore", {"(-1,)", "(2,)"}},
    };
    return *kFailures;
}

// The settings library gave what is no text.
bool isMendedName(const Reply& reply) {
    constexpr const char* kReplacement = "\xEF\xBF\xBD";
    return reply.type() == "(s)" && reply.text().find(kReplacement) != std::string::npos &&
           reply.text().find(".psb") != std::string::npos;
}

bool isDefinedFailure(const Method& method, const Reply& reply) {
    if (isMendedName(reply)) {
        return true;
    }
    const auto found = failures().find(method.name);
    return found != failures().end() && found->second.count(reply.text()) != 0;
}

}  // namespace

const std::vector<Method>& methods() {
    static const auto* const kMethods = new std::vector<Method>{
        {"GetUSBStickDetails", "()", {}},
        {"GetStickDetailsWithCount", "()", {}},
        {"ValidateBackupSize", "(uint32 1, 'USB_X60.1')", {}},
        {"GetBackupFileName", "(uint32 1,)", {}},
        {"GetDirectoryIndex", "('USB_X60.1', '')", {}},
        {"GetDirectoryIndexForUpdate", "('USB_X60.1', '')", {}},
        {"GetDirectoryIndexForBackup", "('USB_X60.1', '')", {}},
        {"GetRestoreFilesList", "('USB_X60.1', 'photos')", {}},
        {"GetUpdateFilesList", "('USB_X60.1', 'old')", {}},
        {"GetBackupFilesList", "('USB_X60.1', 'old')", {}},
        {"DeleteFile", "('USB_X60.1', 'gone.txt')", {"gone.txt"}},
        {"CreateDirectory", "('USB_X60.1', 'made/below')", {"made", "made/below"}},
        {"DoOSUpdate", "('USB_X60.1', 'c.fwf')", {}, false, true},
        {"DoBackup", "('USB_X60.1', uint32 1, 'a.psb')", {"a.psb"}, false, true},
        {"DoRestore", "('USB_X60.1', 'new/a.psb')", {"new"}, false, true},
        {"Quit", "()", {}, true},
        {"Init", "()", {}, true},
    };
    return *kMethods;
}

const Method& methodNamed(const std::string& name) {
    return *std::find_if(methods().begin(), methods().end(),
                         [&name](const Method& method) { return method.name == name; });
}

Reply call(const test_support::SystemBus& bus, const Method& method) {
    using namespace test_support;
    GVariant* const arguments = g_variant_new_parsed(method.arguments);
    return method.control ? bus.call(kControlPath, kControlInterface, method.name, arguments)
                          : bus.transfer(method.name, arguments);
}

std::string answerOf(const Reply& reply) {
    return reply.type() == "(s)" ? withoutDigits(reply.text()) : reply.text();
}

Verdict judge(const Method& method, const Reply& usual, const Reply& reply) {
    if (answerOf(reply) == answerOf(usual)) {
        return {Outcome::Served, ""};
    }
    if (reply.type() != usual.type()) {
        return {Outcome::Wrong, "answered " + reply.text() + " " + reply.message};
    }
    const bool failed = isList(reply) ? isPartOf(usual, reply) : isDefinedFailure(method, reply);
    return failed ? Verdict{Outcome::Answered, ""}
                  : Verdict{Outcome::Wrong, "answered " + reply.text()};
}

Scene::Scene() : record_(test_support::recordWith(std::string(64, 'k'))) {
    fill();
    prepared_ = look();
}

void Scene::fill() const {
    for (const auto* stick : {&first_, &second_}) {
        for (const auto& entry : fs::directory_iterator(stick->path())) {
            fs::remove_all(entry.path());
        }
    }
    for (const char* file : {"a.psb", "c.fwf", "gone.txt", "old/b.psb", "old/d.fwf", "photos/1.jpg",
                             "photos/2.jpg", "photos/3.jpg"}) {
        first_.addFile(file, std::string("content of ") + file);
    }
    first_.addDirectory("empty");
    second_.addFile("b.psb");
}

void Scene::prepare() const {
    if (look() != prepared_) {
        fill();
    }
}

Scene::Tree Scene::look() const {
    Tree tree;
    // Everything below the folder of all mounts: a wrong path would show beside the sticks.
    const std::string root = fs::path(first_.path()).parent_path();
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        const std::string path = entry.path();
        tree[path] = entry.is_directory() ? "a directory" : test_support::readFile(path);
    }
    return tree;
}

std::string Scene::damage(const Method& method) const {
    Tree before = prepared_;
    Tree after = look();
    for (const std::string& path : method.touches) {
        before.erase(first_.path(path));
        after.erase(first_.path(path));
    }
    std::string differing;
    const auto note = [&differing](const Tree& from, const Tree& to, const char* what) {
        for (const auto& [path, content] : from) {
            const auto other = to.find(path);
            if (other == to.end() || other->second != content) {
                differing += std::string(what) + path + " ";
            }
        }
    };
    note(before, after, "lost or changed: ");
    note(after, before, "new or changed: ");
    return differing;
}

bool Scene::has(const std::string& path) const {
    return test_support::exists(first_.path(path));
}

}  // namespace faults
