// Runs a libFuzzer-style target without libFuzzer: every file named on the
// command line, and every file in a folder named there, is fed to the target
// once; then a fixed series of pseudo-random inputs (seeded, so a failure
// reproduces). This keeps fuzz targets building and smoke-tested in every CI
// run; make fuzz links libFuzzer itself instead.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void feedFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
  int seeds = 0;
  for (int i = 1; i < argc; ++i) {
    if (std::filesystem::is_directory(argv[i])) {
      for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i])) {
        if (!entry.is_regular_file()) continue;
        feedFile(entry.path());
        ++seeds;
      }
    } else {
      feedFile(argv[i]);
      ++seeds;
    }
  }
  std::mt19937 rng(20261122);
  // Printable-heavy alphabet so that parsers get past their first byte.
  const std::string alphabet =
      "abcdefghijklmnopqrstuvwxyzABCXYZ0123456789 :\"'{}[](),.-*_\\/\t\n\x1f\xc3\xa9\xff\x00";
  for (int run = 0; run < 20000; ++run) {
    size_t size = rng() % (run < 19000 ? 64 : 4096);
    std::vector<uint8_t> input(size);
    for (auto& b : input) {
      b = (rng() % 4 == 0) ? static_cast<uint8_t>(rng())
                           : static_cast<uint8_t>(alphabet[rng() % alphabet.size()]);
    }
    LLVMFuzzerTestOneInput(input.data(), input.size());
  }
  std::cout << "fuzz replay: " << seeds << " seeds and 20000 generated inputs, no crash\n";
  return 0;
}
