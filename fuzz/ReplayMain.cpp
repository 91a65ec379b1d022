// Stands in for the fuzzing engine: runs the entry once with every file that is named on the command line, or that
// lies in a directory named there.

#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void replay(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        throw std::filesystem::filesystem_error("cannot read", file, std::error_code());
    }
    const std::vector<uint8_t> input{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    std::printf("%s (%zu bytes)\n", file.c_str(), input.size());
    std::fflush(stdout); // the last line names the culprit if the entry ends the process
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

size_t replayAll(const std::filesystem::path& path)
{
    if (!std::filesystem::is_directory(path)) {
        replay(path);
        return 1;
    }
    size_t files = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
        if (entry.is_regular_file()) {
            replay(entry.path());
            ++files;
        }
    }
    return files;
}

} // namespace

int main(int argc, char** argv)
{
    size_t files = 0;
    try {
        for (int i = 1; i < argc; ++i) {
            files += replayAll(argv[i]);
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    // A corpus that has gone missing must not look like one without findings.
    if (files == 0) {
        std::fprintf(stderr, "nothing to replay\n");
        return 1;
    }
    std::printf("%zu inputs replayed\n", files);
    return 0;
}
