// The machine's users and groups as a test wants them, and clients of the bus that are such users.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/bus/system_bus.h"

namespace test_support {

struct Account {
    std::string name;
    uid_t id = 0;  // of the user and of the group of its own
    std::vector<std::string> groups;
};

// While it exists the sandbox has just root, these accounts, and the groups that they name. The
// message bus has read both, and its policy files again.
class Accounts {
public:
    explicit Accounts(const std::vector<Account>& accounts);
    ~Accounts();
    Accounts(const Accounts&) = delete;
    Accounts& operator=(const Accounts&) = delete;

    // Why this sandbox can have no users but root; empty when it can.
    static std::string whyUnavailable();

    // A client that the bus takes for this user. The test itself stays what it is.
    std::unique_ptr<SystemBus> connectAs(const std::string& name) const;

private:
    struct SavedFile {
        std::string path;
        std::string bytes;
    };

    gid_t groupId(const std::string& name) const;

    std::vector<Account> accounts_;
    std::vector<std::string> groups_;  // each has the id of its place after kFirstGroup
    std::vector<SavedFile> before_;
};

}  // namespace test_support
