#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void replay(const std::string& bytes) {
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

/// The input, and what becomes of it when it is cut or a byte of it is turned over. At most some
/// hundred of each, evenly spread.
void replayWithDamage(const std::string& bytes) {
    constexpr std::size_t kPoints = 256;
    replay(bytes);
    const std::size_t step = bytes.size() / kPoints + 1;
    for (std::size_t at = 0; at < bytes.size(); at += step) {
        replay(bytes.substr(0, at));
        std::string turned = bytes;
        turned[at] = static_cast<char>(~turned[at]);
        replay(turned);
    }
}

}  // namespace

/// Stands in for the fuzzer's own main: runs every file of a corpus directory through the target.
int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s CORPUS-DIRECTORY\n", argv[0]);
        return 2;
    }
    int count = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator{argv[1]}) {
        if (!entry.is_regular_file()) { continue; }
        std::ifstream in{entry.path(), std::ios::binary};
        replayWithDamage({std::istreambuf_iterator<char>{in}, {}});
        ++count;
    }
    std::printf("%d inputs replayed\n", count);
    return count > 0 ? 0 : 1;
}
