// The machine's users and groups as a test wants them, and clients of the bus that are such users.
#include "tests/packaging/accounts.h"

#include <grp.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <sstream>
#include <stdexcept>

#include "tests/support/bus/bus_daemon.h"
#include "tests/support/files/files.h"
#include "tests/support/process/unique_fd.h"

namespace test_support {
namespace {

constexpr gid_t kFirstGroup = 62000;
constexpr const char* kUserFile = "/etc/passwd";
constexpr const char* kGroupFile = "/etc/group";
constexpr const char* kSourcesFile = "/etc/nsswitch.conf";

void check(int result, const char* what) {
    if (result != 0) {
        throwErrno(what);
    }
}

std::vector<gid_t> ownGroups() {
    std::vector<gid_t> groups(static_cast<std::size_t>(std::max(getgroups(0, nullptr), 0)));
    getgroups(static_cast<int>(groups.size()), groups.data());
    return groups;
}

// Lets the process count as somebody else for as long as it exists.
class Disguise {
public:
    Disguise(uid_t id, const std::vector<gid_t>& groups) {
        check(setgroups(groups.size(), groups.data()), "setgroups");
        check(setegid(id), "setegid");
        check(seteuid(id), "seteuid");
    }
    ~Disguise() {
        if (seteuid(0) != 0 || setegid(0) != 0 || setgroups(before_.size(), before_.data()) != 0) {
            abort();  // no test may go on as somebody else
        }
    }
    Disguise(const Disguise&) = delete;
    Disguise& operator=(const Disguise&) = delete;

private:
    const std::vector<gid_t> before_ = ownGroups();
};

}  // namespace

Accounts::Accounts(const std::vector<Account>& accounts) : accounts_(accounts) {
    for (const char* const path : {kUserFile, kGroupFile, kSourcesFile}) {
        before_.push_back({path, readFile(path)});
    }
    std::string users = "root:x:0:0:root:/root:/bin/sh\n";
    std::string groups = "root:x:0:\n";
    for (const Account& account : accounts_) {
        const std::string id = std::to_string(account.id);
        users += account.name + ":x:" + id + ":" + id + "::/nonexistent:/bin/false\n";
        groups += account.name + ":x:" + id + ":\n";
        for (const std::string& group : account.groups) {
            if (std::find(groups_.begin(), groups_.end(), group) == groups_.end()) {
                groups_.push_back(group);
            }
        }
    }
    for (const std::string& group : groups_) {
        groups += group + ":x:" + std::to_string(groupId(group)) + ":";
        const char* separator = "";
        for (const Account& account : accounts_) {
            if (std::count(account.groups.begin(), account.groups.end(), group) > 0) {
                groups += separator + account.name;
                separator = ",";
            }
        }
        groups += "\n";
    }
    writeFile(kSourcesFile, "passwd: files\ngroup: files\n");
    writeFile(kUserFile, users);
    writeFile(kGroupFile, groups);
    reloadBus();
}

Accounts::~Accounts() {
    for (const SavedFile& file : before_) {
        writeFile(file.path, file.bytes);
    }
    reloadBus();
}

std::string Accounts::whyUnavailable() {
    std::istringstream map(readFile("/proc/self/uid_map"));
    unsigned long inside = 0;
    unsigned long outside = 0;
    unsigned long length = 0;
    map >> inside >> outside >> length;
    return length > 1 ? "" : "the sandbox's user namespace has just one user, as it is not root's";
}

std::unique_ptr<SystemBus> Accounts::connectAs(const std::string& name) const {
    if (name == "root") {
        return std::make_unique<SystemBus>();
    }
    const auto account = std::find_if(accounts_.begin(), accounts_.end(),
                                      [&name](const Account& one) { return one.name == name; });
    if (account == accounts_.end()) {
        throw std::invalid_argument("no account of the name " + name);
    }
    std::vector<gid_t> groups{account->id};
    for (const std::string& group : account->groups) {
        groups.push_back(groupId(group));
    }
    const Disguise disguise(account->id, groups);
    return std::make_unique<SystemBus>();
}

gid_t Accounts::groupId(const std::string& name) const {
    return kFirstGroup +
           static_cast<gid_t>(std::find(groups_.begin(), groups_.end(), name) - groups_.begin());
}

}  // namespace test_support
