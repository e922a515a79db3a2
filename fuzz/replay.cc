// Stands in for a fuzzing engine: runs a target once on each file of the folders that are named.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::vector<std::uint8_t> content(const std::filesystem::path& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

int replay(const std::filesystem::path& folder) {
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    // Printed before, so that a crash shows which input it was.
    std::printf("%s\n", entry.path().c_str());
    std::fflush(stdout);
    const std::vector<std::uint8_t> input = content(entry.path());
    LLVMFuzzerTestOneInput(input.data(), input.size());
    ++count;
  }
  return count;
}

}  // namespace

int main(int argc, char* argv[]) {
  int count = 0;
  for (int i = 1; i < argc; ++i) count += replay(argv[i]);
  std::printf("%d inputs\n", count);
  return count == 0 ? 1 : 0;
}
