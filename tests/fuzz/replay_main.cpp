// SPDX-License-Identifier: MIT
// Runs a fuzz target over the stored inputs of a folder: fuzz_<target> FOLDER
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz_support.h"

int main(int argc, char** argv) {
    LLVMFuzzerInitialize(&argc, &argv);
    if (argc != 2 || freopen("/dev/null", "w", stdout) == nullptr) {
        return 2;
    }
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        fprintf(stderr, "%s\n", entry.path().c_str());
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        // In memory of exactly its size, so that a sanitizer sees a read beyond it.
        const Bytes bytes(text.begin(), text.end());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    return 0;
}
