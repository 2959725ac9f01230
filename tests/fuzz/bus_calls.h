// What is called over the bus, and with what.
#pragma once

#include <glib.h>

#include <array>
#include <string>

#include "tests/fuzz/hostile_text.h"
#include "tests/support/bus/system_bus.h"

namespace fuzz {

struct Method {
    const char* path;
    const char* interface;
    const char* name;
    const char* in;  // signature, a character an argument
    const char* out;  // type of the reply
    bool startsJob;
};

inline constexpr const char* kTransfer = test_support::kTransferInterface;
inline constexpr const char* kControl = test_support::kControlInterface;
inline constexpr const char* kObject = test_support::kTransferPath;
inline constexpr const char* kControlObject = test_support::kControlPath;
inline constexpr const char* kProperties = "org.freedesktop.DBus.Properties";

inline constexpr std::array<Method, 22> kMethods{{
    {kObject, kTransfer, "GetUSBStickDetails", "", "(av)", false},
    {kObject, kTransfer, "GetStickDetailsWithCount", "", "(vu)", false},
    {kObject, kTransfer, "ValidateBackupSize", "us", "(b)", false},
    {kObject, kTransfer, "GetBackupFileName", "u", "(s)", false},
    {kObject, kTransfer, "GetDirectoryIndex", "ss", "(av)", false},
    {kObject, kTransfer, "GetDirectoryIndexForUpdate", "ss", "(av)", false},
    {kObject, kTransfer, "GetDirectoryIndexForBackup", "ss", "(av)", false},
    {kObject, kTransfer, "DeleteFile", "ss", "(b)", false},
    {kObject, kTransfer, "CreateDirectory", "ss", "(b)", false},
    {kObject, kTransfer, "DoOSUpdate", "ss", "(i)", true},
    {kObject, kTransfer, "DoBackup", "sus", "(i)", true},
    {kObject, kTransfer, "DoRestore", "ss", "(i)", true},
    {kObject, kTransfer, "GetRestoreFilesList", "ss", "(vi)", false},
    {kObject, kTransfer, "GetUpdateFilesList", "ss", "(vi)", false},
    {kObject, kTransfer, "GetBackupFilesList", "ss", "(vi)", false},
    {kControlObject, kControl, "Quit", "", "()", false},
    {kControlObject, kControl, "Init", "", "()", false},
    {kObject, kProperties, "GetAll", "i", "(a{sv})", false},
    {kObject, kProperties, "Get", "ip", "(v)", false},
    {kObject, "org.freedesktop.DBus.Introspectable", "Introspect", "", "(s)", false},
    {kControlObject, "org.freedesktop.DBus.Introspectable", "Introspect", "", "(s)", false},
    {kControlObject, "org.freedesktop.DBus.Peer", "Ping", "", "()", false},
}};

// The arguments of one call.
class Arguments {
public:
    Arguments(Random& random, const Method& method, bool mayStartJob);

    GVariant* build();  // a floating reference

private:
    void chooseTexts(bool mayStartJob);
    GVariant* argument(char type, std::size_t& text);

    Random& random_;
    const Method& method_;
    std::array<std::string, 2> texts_;  // the mount and the path
};

// Arguments of types that no method takes; a floating reference.
GVariant* wrongArguments(Random& random);

}  // namespace fuzz
