// Runs a libFuzzer-style target without libFuzzer: every file named on the
// command line is fed to the target once; with no arguments, a fixed series of
// pseudo-random inputs (seeded, so a failure reproduces) is fed instead. This
// keeps fuzz targets building and smoke-tested in every CI run.
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  if (argc > 1) {
    for (int i = 1; i < argc; ++i) {
      std::ifstream in(argv[i], std::ios::binary);
      std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    return 0;
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
  std::cout << "fuzz replay: 20000 inputs, no crash\n";
  return 0;
}
