// Runs a libFuzzer target over the files given (or the files of the folders given) once each,
// without libFuzzer: the corpus as a regression test in any build.
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <boost/filesystem.hpp>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    LLVMFuzzerInitialize(&argc, &argv);
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        if (!boost::filesystem::is_directory(argv[i])) {
            files.emplace_back(argv[i]);
            continue;
        }
        for (const auto& entry : boost::filesystem::directory_iterator(argv[i])) files.push_back(entry.path().string());
    }
    for (const std::string& file : files) {
        std::ifstream in(file, std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("%zu inputs replayed\n", files.size());
    return files.empty() ? 1 : 0;
}
