// Included last by every fuzz target. Without libFuzzer it supplies a main
// that runs every file named on the command line once, so that a corpus or
// a crash input can be replayed with any compiler.
#pragma once

#ifndef FUZZ_WITH_LIBFUZZER
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        std::ifstream in(argv[i], std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "cannot read %s\n", argv[i]);
            return 1;
        }
        const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        std::printf("%s: ok\n", argv[i]);
    }
    return 0;
}
#endif
