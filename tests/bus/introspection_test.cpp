// What the objects say about themselves to whoever introspects them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/bus/steady_service.h"
#include "tests/support/bus/system_bus.h"
#include "tests/support/files/golden.h"

namespace test_support {
namespace {

using testing::ElementsAre;

using NodePtr = std::unique_ptr<GDBusNodeInfo, Release<g_dbus_node_info_unref>>;

// A null-terminated array of GDBus's descriptions as a range; null counts as empty.
template <typename Info>
std::vector<Info*> all(Info** infos) {
    std::vector<Info*> found;
    for (; infos != nullptr && *infos != nullptr; ++infos) {
        found.push_back(*infos);
    }
    return found;
}

template <typename Info>
std::vector<std::string> namesOf(Info** infos) {
    std::vector<std::string> names;
    for (const Info* info : all(infos)) {
        names.emplace_back(info->name);
    }
    return names;
}

class Introspection : public SteadyService {
protected:
    std::string xml(const std::string& path) const {
        const Reply reply = bus_.call(path, "org.freedesktop.DBus.Introspectable", "Introspect");
        const char* text = "";
        if (reply.value != nullptr) {
            g_variant_get(reply.value.get(), "(&s)", &text);
        }
        return text;
    }

    // The element of one interface, byte for byte as served. The bus library's own interfaces
    // beside it differ between its versions.
    std::string interfaceXml(const std::string& path, const std::string& name) const {
        const std::string text = xml(path);
        const std::string end = "  </interface>\n";
        const std::size_t from = text.find("  <interface name=\"" + name + "\">");
        const std::size_t to = text.find(end, from);
        return from == std::string::npos ? text : text.substr(from, to + end.size() - from);
    }

    NodePtr node(const std::string& path) const {
        return NodePtr(g_dbus_node_info_new_for_xml(xml(path).c_str(), nullptr));
    }
};

TEST_F(Introspection, showsTransferInterface) {
    EXPECT_EQ(interfaceXml(kTransferPath, kTransferInterface), goldenText("sacIntf.xml"));
}

TEST_F(Introspection, showsControlInterface) {
    EXPECT_EQ(interfaceXml(kControlPath, kControlInterface), goldenText("ctrl.xml"));
}

TEST_F(Introspection, findsBothObjectsFromRoot) {
    const NodePtr root = node("/");
    std::vector<std::string> children;
    for (const GDBusNodeInfo* child : all(root->nodes)) {
        children.emplace_back(child->path);
    }
    EXPECT_THAT(children, testing::UnorderedElementsAre("ctrl", "sacIntf"));
    EXPECT_THAT(all(node(kTransferPath)->nodes), testing::IsEmpty());
    EXPECT_THAT(all(node(kControlPath)->nodes), testing::IsEmpty());
}

TEST_F(Introspection, listsOneInterfaceBesideStandardOnes) {
    const auto standardAnd = [](const char* own) {
        return ElementsAre("org.freedesktop.DBus.Properties", "org.freedesktop.DBus.Introspectable",
                           "org.freedesktop.DBus.Peer", own);
    };
    EXPECT_THAT(namesOf(node(kTransferPath)->interfaces), standardAnd(kTransferInterface));
    EXPECT_THAT(namesOf(node(kControlPath)->interfaces), standardAnd(kControlInterface));
}

}  // namespace
}  // namespace test_support
