// Takes libFuzzer into the private world before its first input.
#include "tests/fuzz/private_world.h"

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    fuzz::enterPrivateWorld(*argc, *argv);
    return 0;
}
