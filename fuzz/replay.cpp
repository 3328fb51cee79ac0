#include "fuzz.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

/// Runs a fuzz target on every file of a directory.
int main(int argc, char** argv) {
    const std::filesystem::path folder(argc > 1 ? argv[1] : "");
    int inputs = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string input{std::istreambuf_iterator<char>(file), {}};
        fuzzing::require(file.good() || file.eof(), entry.path().c_str());
        // Not through stderr, which the target may have silenced.
        std::cerr << entry.path().string() << std::endl;
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
        ++inputs;
    }
    fuzzing::require(inputs > 0, "the corpus holds inputs");
    return 0;
}
