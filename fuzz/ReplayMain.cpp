// A plain main for the fuzz targets, for compilers without libFuzzer: it
// runs the target once on the empty input and once on every file named on
// the command line or found in a directory named there (not recursively).
// Linked with each target in the ordinary build, so every ctest replays the
// seed corpora, and what the tests leave to a target's checks is still
// checked under g++ and its sanitizers. A broken check aborts, which fails
// the test with the claim printed.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data,
                                      std::size_t size);

namespace {

std::vector<std::uint8_t> readAll(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), {});
}

}  // namespace

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  std::vector<fs::path> inputs;
  for (int i = 1; i < argc; ++i) {
    const fs::path arg(argv[i]);
    if (!fs::is_directory(arg)) {
      inputs.push_back(arg);
      continue;
    }
    for (const fs::directory_entry& e : fs::directory_iterator(arg))
      if (e.is_regular_file()) inputs.push_back(e.path());
  }
  // A fixed order, so that a failure names the same input on every run.
  std::sort(inputs.begin(), inputs.end());
  if (inputs.empty()) {
    std::fprintf(stderr, "no inputs: name a corpus directory or files\n");
    return 2;
  }

  LLVMFuzzerTestOneInput(nullptr, 0);
  for (const fs::path& file : inputs) {
    if (!fs::exists(file)) {
      std::fprintf(stderr, "%s: no such file\n", file.c_str());
      return 2;
    }
    std::fprintf(stderr, "%s\n", file.c_str());
    const std::vector<std::uint8_t> bytes = readAll(file);
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  }
  std::printf("%zu inputs and the empty one ran\n", inputs.size());
  return 0;
}
