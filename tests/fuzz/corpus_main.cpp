// fuzz-TARGET-corpus FILE-OR-FOLDER...: tries out what is in the files, without a fuzzer. With any
// compiler.
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/fuzz/Target.h"

namespace {

void tryOut(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
    if (!in) throw std::runtime_error(file.string() + ": cannot be read");
    // A copy of the very size, so that reading beyond its end is seen.
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char** argv) try {
    std::size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        if (!std::filesystem::is_directory(argv[i])) {
            tryOut(argv[i]);
            ++count;
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            tryOut(entry.path());
            ++count;
        }
    }
    if (count == 0) throw std::runtime_error("nothing to try out; name files or folders of them");
    std::printf("%zu files\n", count);
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
