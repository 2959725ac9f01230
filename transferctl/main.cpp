// transferctl: the transfer service from a terminal or a script.
#include <clocale>
#include <exception>
#include <string>
#include <vector>

#include "transferctl/commands.h"
#include "transferctl/failure.h"
#include "transferctl/output.h"

namespace transferctl {
namespace {

void printFailure(const Failure& failure) {
    g_autofree gchar* message = g_utf8_make_valid(failure.what(), -1);
    GVariant* const code = failure.code() ? g_variant_new_int32(*failure.code()) : nullptr;
    printJson(g_variant_new_parsed("{'error': <%s>, 'status': <%i>, 'code': <%@mi>}", message,
                                   static_cast<gint>(failure.status()),
                                   g_variant_new_maybe(G_VARIANT_TYPE_INT32, code)));
}

int run(const std::vector<std::string>& arguments) {
    Options options;
    try {
        const Command* const command = parseCommandLine(arguments, &options);
        if (command != nullptr) {
            command->run(options);
        }
        return static_cast<int>(ExitStatus::kDone);
    } catch (const Failure& failure) {
        const bool isForProgram = options.json && failure.status() != ExitStatus::kUsage;
        isForProgram ? printFailure(failure) : note(failure.what());
        return static_cast<int>(failure.status());
    }
}

}  // namespace
}  // namespace transferctl

int main(int argc, char** argv) {
    std::setlocale(LC_CTYPE, "");  // so that GOption writes the help as the terminal reads it
    try {
        return transferctl::run({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        transferctl::note(error.what());
        return static_cast<int>(transferctl::ExitStatus::kRefused);
    }
}
