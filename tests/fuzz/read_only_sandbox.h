// Where hostile paths do no harm: the sandbox, with all that it shares with the machine read-only.
#pragma once

namespace fuzz {

// Returns when this process is in that sandbox and can change nothing but what is the sandbox's own
// and the folder that the environment variable MORVANE_FUZZ_OUTPUT names. Otherwise it starts
// itself again in there, or ends with a message and status 2. Call it first in main.
void enterReadOnlySandbox(int argc, char** argv);

}  // namespace fuzz
