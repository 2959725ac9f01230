// The methods of the service's interfaces, as the interface descriptions list them.
#pragma once

#include <gio/gio.h>

#include <string>
#include <vector>

namespace test_support {

struct Method {
    std::string interface;
    std::string name;
    std::string in;  // types of the arguments, such as "sus"
    std::string out;  // types of the reply, such as "vi"
};

// In the order of the description. Iterate over these instead of naming methods by hand.
const std::vector<Method>& transferMethods();
const std::vector<Method>& controlMethods();

// A floating tuple of harmless values, one for each letter of `types`. Throws std::logic_error for
// a letter it does not know.
GVariant* harmlessArguments(const std::string& types);

}  // namespace test_support
