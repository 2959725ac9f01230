// A model of a tree of files.
#include "tests/support/files/model_files.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "tests/support/files/files.h"

namespace test_support {

namespace {

constexpr std::size_t kLongestPath = 4095;
constexpr std::size_t kLongestName = 255;
constexpr int kMostLinksInPath = 40;
constexpr mode_t kModeBits = 07777;
constexpr mode_t kNewFileMode = 0666;

bool isSpecial(const std::string& name) {
    return name.empty() || name == "." || name == "..";
}

std::string below(const std::string& directory, const std::string& name) {
    return (directory == "/" ? "" : directory) + "/" + name;
}

std::vector<std::string> componentsOf(const std::string& path) {
    std::vector<std::string> components(1);
    for (const char c : path) {
        if (c != '/') {
            components.back() += c;
        } else if (!components.back().empty()) {
            components.emplace_back();
        }
    }
    if (components.back().empty()) {
        components.pop_back();
    }
    return components;
}

// "/a/b" -> "/a" and "b"; "/a" -> "/" and "a".
std::pair<std::string, std::string> splitAtName(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return {slash == 0 ? "/" : path.substr(0, slash), path.substr(slash + 1)};
}

}  // namespace

// ---- the nodes --------------------------------------------------------------------------------

struct ModelFiles::Node {
    Kind kind = Kind::Directory;
    mode_t mode = 0;
    std::string text{};  // contents, or a link's target
    std::map<std::string, std::unique_ptr<Node>> children{};
    Node* parent = nullptr;  // of what is mounted: the directory of the folder that it covers
    std::unique_ptr<Node> mounted{};
    bool isMounted = false;
    bool readOnly = false;
};

ModelFiles::ModelFiles(mode_t mask) : mask_(mask), root_(std::make_unique<Node>()) {}
ModelFiles::~ModelFiles() = default;

void ModelFiles::add(Node& directory, const std::string& name, std::unique_ptr<Node> node) {
    node->parent = &directory;
    directory.children[name] = std::move(node);
}

ModelFiles::Node* ModelFiles::top(Node* node) {
    return node->mounted ? node->mounted.get() : node;
}

bool ModelFiles::isReadOnly(const Node* node) {
    while (!node->isMounted && node->parent != nullptr) {
        node = node->parent;
    }
    return node->readOnly;
}

// ---- the machine ------------------------------------------------------------------------------

// NOLINTNEXTLINE(misc-no-recursion): as deep as the tree of a test
std::unique_ptr<ModelFiles::Node> ModelFiles::read(const std::string& path) {
    struct stat64 status {};
    if (lstat64(path.c_str(), &status) != 0) {
        throw std::runtime_error("nothing at " + path);
    }
    auto node = std::make_unique<Node>();
    node->mode = status.st_mode & kModeBits;
    if (S_ISDIR(status.st_mode)) {
        for (const auto& entry : std::filesystem::directory_iterator(path)) {
            const std::string name = entry.path().filename();
            add(*node, name, read(below(path, name)));
        }
    } else if (S_ISLNK(status.st_mode)) {
        node->kind = Kind::Link;
        node->text = std::filesystem::read_symlink(path);
    } else if (S_ISREG(status.st_mode)) {
        node->kind = Kind::File;
        node->text = test_support::readFile(path);
    } else {
        node->kind = S_ISFIFO(status.st_mode) ? Kind::Pipe : Kind::Socket;
    }
    return node;
}

// NOLINTNEXTLINE(misc-no-recursion): as deep as the tree of a test
void ModelFiles::list(const Node& node, const std::string& path, FileList& result) {
    constexpr const char* kNames[] = {"directory", "file", "link", "pipe", "socket"};
    result[path] = kNames[static_cast<int>(node.kind)] + (" " + std::to_string(node.mode)) + " '" +
                   node.text + "'";
    for (const auto& [name, child] : node.children) {
        list(child->mounted ? *child->mounted : *child, below(path, name), result);
    }
}

FileList filesOfMachine(const std::vector<std::string>& ignored) {
    ModelFiles machine(0);
    for (const auto& entry : std::filesystem::directory_iterator("/")) {
        const std::string name = entry.path().filename();
        if (std::find(ignored.begin(), ignored.end(), name) == ignored.end()) {
            machine.adopt("/" + name);
        }
    }
    return machine.files();
}

FileList ModelFiles::files() const {
    FileList result;
    list(*root_, "/", result);
    return result;
}

ModelFiles::Node& ModelFiles::existing(const std::string& path) const {
    Node* const node = find(path, LastLink::Keep).node;
    if (node == nullptr) {
        throw std::logic_error("the model has no " + path);
    }
    return *node;
}

void ModelFiles::adopt(const std::string& path) {
    const auto [directory, name] = splitAtName(path);
    add(existing(directory), name, read(path));
}

void ModelFiles::adoptMount(const std::string& path) {
    const auto [directory, name] = splitAtName(path);
    Node& folder = existing(directory);
    std::unique_ptr<Node> stick = read(path);
    stick->parent = &folder;
    stick->isMounted = true;
    folder.children.at(name)->mounted = std::move(stick);
}

void ModelFiles::uncover(const std::string& path) {
    const auto [directory, name] = splitAtName(path);
    existing(directory).children.at(name)->mounted.reset();
}

void ModelFiles::setReadOnly(const std::string& path, bool readOnly) {
    existing(path).readOnly = readOnly;
}

// ---- paths ------------------------------------------------------------------------------------

ModelFiles::Node* ModelFiles::step(Node* directory, const std::string& name) const {
    if (name == ".") {
        return directory;
    }
    if (name == "..") {
        return directory->parent != nullptr ? directory->parent : root_.get();
    }
    const auto child = directory->children.find(name);
    return child != directory->children.end() ? top(child->second.get()) : nullptr;
}

ModelFiles::Place ModelFiles::find(const std::string& path, LastLink last) const {
    int links = 0;
    return path.size() <= kLongestPath ? walk(root_.get(), path, last, links) : Place{};
}

// NOLINTNEXTLINE(misc-no-recursion): at most forty links
ModelFiles::Place ModelFiles::walk(Node* start, const std::string& path, LastLink last,
                                   int& links) const {
    Node* at = !path.empty() && path[0] == '/' ? root_.get() : start;
    Place place{at, ".", at, !path.empty() && path.back() == '/'};
    const std::vector<std::string> components = componentsOf(path);
    for (std::size_t i = 0; i < components.size(); ++i) {
        const bool isLast = i + 1 == components.size();
        if (at == nullptr || at->kind != Kind::Directory || components[i].size() > kLongestName) {
            return {};
        }
        place.directory = at;
        place.name = components[i];
        place.node = step(at, components[i]);
        const bool follows = !isLast || last == LastLink::Follow;
        if (place.node != nullptr && place.node->kind == Kind::Link && follows) {
            if (++links > kMostLinksInPath) {
                return {};
            }
            const bool slash = place.slashAtEnd;
            place = walk(at, place.node->text, LastLink::Follow, links);
            place.slashAtEnd = place.slashAtEnd || slash;
        }
        at = place.node;
    }
    return place;
}

std::optional<ModelFiles::Kind> ModelFiles::kindOf(const std::string& path) const {
    const Place place = find(path, LastLink::Follow);
    if (place.node == nullptr || (place.slashAtEnd && place.node->kind != Kind::Directory)) {
        return std::nullopt;
    }
    return place.node->kind;
}

// ---- changes ----------------------------------------------------------------------------------

bool ModelFiles::mayChange(const Place& place) {
    return place.directory != nullptr && !isSpecial(place.name) && !isReadOnly(place.directory);
}

bool ModelFiles::makeDirectory(const std::string& path, mode_t mode) {
    const Place place = find(path, LastLink::Keep);
    if (!mayChange(place) || place.node != nullptr) {
        return false;
    }
    auto made = std::make_unique<Node>();
    made->mode = mode & ~mask_;
    add(*place.directory, place.name, std::move(made));
    return true;
}

bool ModelFiles::removeDirectory(const std::string& path) {
    const Place place = find(path, LastLink::Keep);
    if (!mayChange(place) || place.node == nullptr || place.node->kind != Kind::Directory ||
        !place.node->children.empty() || place.node->isMounted) {
        return false;
    }
    place.directory->children.erase(place.name);
    return true;
}

bool ModelFiles::removeFile(const std::string& path) {
    const Place place = find(path, LastLink::Keep);
    if (!mayChange(place) || place.node == nullptr || place.node->kind == Kind::Directory ||
        place.slashAtEnd) {
        return false;
    }
    place.directory->children.erase(place.name);
    return true;
}

bool ModelFiles::writeFile(const std::string& path, const std::string& bytes) {
    const Place place = find(path, LastLink::Follow);
    if (!mayChange(place) || place.slashAtEnd) {
        return false;
    }
    if (place.node == nullptr) {
        auto made = std::make_unique<Node>();
        made->kind = Kind::File;
        made->mode = kNewFileMode & ~mask_;
        made->text = bytes;
        add(*place.directory, place.name, std::move(made));
        return true;
    }
    if (place.node->kind != Kind::File) {
        return false;
    }
    place.node->text = bytes;
    return true;
}

}  // namespace test_support
