// The suite's driver of a fuzz target: feeds it every file of the folders named on
// the command line, once each, so the seeds and the inputs that once found a fault
// run under the sanitizers of whatever build the suite uses. The first folder (the
// seeds) must hold at least one file; the others (regressions) may be absent.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "FuzzSupport.hpp"

extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s SEED_FOLDER [REGRESSION_FOLDER...]\n", argv[0]);
        return 2;
    }
    if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&argc, &argv);
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path folder = argv[i];
        std::error_code error;
        if (!std::filesystem::is_directory(folder, error)) {
            if (i == 1) {
                std::fprintf(stderr, "%s: no such folder of seeds\n", folder.c_str());
                return 1;
            }
            continue;
        }
        std::vector<std::filesystem::path> files;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            if (entry.is_regular_file()) files.push_back(entry.path());
        }
        std::sort(files.begin(), files.end());
        if (i == 1 && files.empty()) {
            std::fprintf(stderr, "%s holds no seed\n", folder.c_str());
            return 1;
        }
        for (const auto& file : files) {
            std::ifstream in(file, std::ios::binary);
            const std::string bytes{std::istreambuf_iterator<char>(in), {}};
            if (!in.good() && !in.eof()) {
                std::fprintf(stderr, "%s: cannot be read\n", file.c_str());
                return 1;
            }
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        }
        std::printf("%s: %zu inputs replayed\n", folder.c_str(), files.size());
    }
    return 0;
}
