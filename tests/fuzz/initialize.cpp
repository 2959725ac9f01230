// Takes libFuzzer into the read-only sandbox before its first input.
#include "tests/fuzz/read_only_sandbox.h"

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    fuzz::enterReadOnlySandbox(*argc, *argv);
    return 0;
}
