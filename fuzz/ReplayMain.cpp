// Replays inputs through a fuzz target without libFuzzer, so that the
// regular build (any compiler, any sanitizer) runs the corpus as a test:
//   fuzz_stl_replay FILE_OR_FOLDER...
// Each input gets a buffer of exactly its size, so that the sanitizers see
// a read past its end. A failed check aborts, which fails the test.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    std::vector<std::filesystem::path> inputs;
    for (int a = 1; a < argc; ++a) {
        std::error_code error;
        if (std::filesystem::is_directory(argv[a], error)) {
            for (const auto& entry : std::filesystem::directory_iterator(argv[a], error))
                if (entry.is_regular_file()) inputs.push_back(entry.path());
        } else if (std::filesystem::is_regular_file(argv[a], error)) {
            inputs.push_back(argv[a]);
        } else {
            std::fprintf(stderr, "no such input: %s\n", argv[a]);
            return 1;
        }
    }
    std::sort(inputs.begin(), inputs.end());
    if (inputs.empty()) {
        std::fprintf(stderr, "no inputs to replay\n");
        return 1;
    }
    for (const std::filesystem::path& input : inputs) {
        std::ifstream file(input, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        if (!file.good() && !file.eof()) {
            std::fprintf(stderr, "cannot read %s\n", input.c_str());
            return 1;
        }
        std::fprintf(stderr, "%s\n", input.c_str());
        const std::unique_ptr<uint8_t[]> exact(new uint8_t[bytes.size()]);
        std::copy(bytes.begin(), bytes.end(), exact.get());
        LLVMFuzzerTestOneInput(exact.get(), bytes.size());
    }
    std::fprintf(stderr, "replayed %zu inputs\n", inputs.size());
    return 0;
}
