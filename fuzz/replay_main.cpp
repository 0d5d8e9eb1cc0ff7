// Runs a fuzz target over files and folders of inputs, for builds without libFuzzer.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

namespace {

void runFile(std::filesystem::path const& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<char> const bytes((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
  // A copy of exactly the input's size, so that a read past the end is caught by ASan.
  std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
  LLVMFuzzerTestOneInput(input.data(), input.size());
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t runs = 0;
  for (int i = 1; i < argc; ++i) {
    std::filesystem::path const path(argv[i]);
    if (std::filesystem::is_directory(path)) {
      for (auto const& entry : std::filesystem::recursive_directory_iterator(path)) {
        if (entry.is_regular_file()) {
          runFile(entry.path());
          ++runs;
        }
      }
    } else {
      runFile(path);
      ++runs;
    }
  }
  std::printf("replayed %zu inputs\n", runs);
  return runs == 0 ? 1 : 0;
}
