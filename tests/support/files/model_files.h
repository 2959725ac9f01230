// A model of a tree of files, to compare the real one with after each operation.
#pragma once

#include <sys/types.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace test_support {

// Path -> kind, mode and contents (or a link's target) of everything below "/" but what `ignored`
// names of its entries.
using FileList = std::map<std::string, std::string>;
FileList filesOfMachine(const std::vector<std::string>& ignored);

// A second implementation of the kernel's view of files: links are followed, ".." is physical, a
// folder may be covered by a mounted stick. It answers as the kernel answers root, whom no mode
// keeps from anything. Paths are absolute. Each change says whether it succeeded; one that fails
// changes nothing.
class ModelFiles {
public:
    enum class Kind { Directory, File, Link, Pipe, Socket };

    // `mask` is the umask of who makes files. Nothing is there but the root.
    explicit ModelFiles(mode_t mask);
    ~ModelFiles();
    ModelFiles(const ModelFiles&) = delete;
    ModelFiles& operator=(const ModelFiles&) = delete;

    // Takes over what the machine has at the path now, in place of what the model had there. The
    // model has to have the directory above it.
    void adopt(const std::string& path);
    // The same for what has been mounted on a folder of the model: it covers that until uncover().
    void adoptMount(const std::string& path);
    void uncover(const std::string& path);
    // From now on nothing can be changed on what is mounted there, or it can again.
    void setReadOnly(const std::string& path, bool readOnly);

    bool makeDirectory(const std::string& path, mode_t mode);
    bool removeDirectory(const std::string& path);
    bool removeFile(const std::string& path);
    // Opens for writing, which makes a file that is missing, and writes.
    bool writeFile(const std::string& path, const std::string& bytes);

    // What is at the path, links followed; nothing when there is nothing.
    std::optional<Kind> kindOf(const std::string& path) const;

    // As filesOfMachine() lists it.
    FileList files() const;

private:
    struct Node;

    // Where a path leads.
    struct Place {
        Node* directory = nullptr;  // null: nothing leads there
        std::string name;  // in that directory; "." and ".." included
        Node* node = nullptr;  // null: nothing is there
        bool slashAtEnd = false;
    };
    enum class LastLink { Follow, Keep };

    static std::unique_ptr<Node> read(const std::string& path);
    static void list(const Node& node, const std::string& path, FileList& result);
    static Node* top(Node* node);
    static bool isReadOnly(const Node* node);

    Place find(const std::string& path, LastLink last) const;
    Place walk(Node* start, const std::string& path, LastLink last, int& links) const;
    Node* step(Node* directory, const std::string& name) const;
    // Whether an entry may be made (`node` is null) or taken away there.
    static bool mayChange(const Place& place);
    Node& existing(const std::string& path) const;
    static void add(Node& directory, const std::string& name, std::unique_ptr<Node> node);

    mode_t mask_;
    std::unique_ptr<Node> root_;
};

}  // namespace test_support
