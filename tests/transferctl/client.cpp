// The real transferctl, run by a test.
#include "tests/transferctl/client.h"

namespace test_support {

CommandResult transferctlOnTerminal(const std::vector<std::string>& arguments) {
    std::vector<std::string> command{"sh", "-c", "exec \"$@\" 2>&1", "sh"};
    for (const std::string& word : transferctlCommand(arguments)) {
        command.push_back(word);
    }
    ChildOptions options;
    options.terminal = true;
    return runCommand(command, options);
}

}  // namespace test_support
