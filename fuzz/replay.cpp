// Runs a fuzz target over the files and directories that are named, for compilers
// without a fuzzer.

#include <algorithm>
#include <cstdio>
#include <vector>

#include "fuzz.h"
#include "support/temporary_directory.h"

extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

int main(int argc, char** argv) {
    if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&argc, &argv);
    std::vector<std::filesystem::path> inputs;
    for (int i = 1; i < argc; ++i) {
        if (!std::filesystem::is_directory(argv[i])) {
            inputs.emplace_back(argv[i]);
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(argv[i]))
            inputs.push_back(entry.path());
    }
    std::sort(inputs.begin(), inputs.end());
    for (const auto& input : inputs) {
        std::fprintf(stderr, "%s\n", input.c_str());
        const std::string bytes = fscanner::readWholeFile(input);
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    std::fprintf(stderr, "%zu inputs\n", inputs.size());
    return inputs.empty() ? 1 : 0;
}
