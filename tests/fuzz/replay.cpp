// Runs a fuzz target over its stored inputs, without libFuzzer, so that every build can.
#include <algorithm>
#include <filesystem>
#include <vector>

#include "tests/fuzz/target.h"

// usage: replay FOLDER. Status 0 when all inputs passed, 1 when there was none.
int main(int argc, char** argv) {
    LLVMFuzzerInitialize(&argc, &argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    for (const std::filesystem::path& file : files) {
        std::fprintf(stderr, "%s\n", file.c_str());
        const std::string bytes = test_support::readFile(file);
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("%zu inputs passed\n", files.size());
    return files.empty() ? 1 : 0;
}
