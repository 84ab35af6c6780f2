// Runs a fuzz target without libFuzzer: every file named on the command
// line, and every file inside each directory named, is one input; then, with
// --random N, N inputs of random bytes from a fixed seed (--seed S), so that
// the target's properties are checked on every test run, not only when
// fuzzing. The empty input always runs.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void run(const std::vector<char>& bytes) {
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

void run_file(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  run(std::vector<char>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>()));
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t runs = 0;
  std::size_t random = 0;
  std::uint64_t seed = 20261123;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if ((arg == "--random" || arg == "--seed") && i + 1 < argc) {
      (arg == "--random" ? random : seed) = std::strtoull(argv[++i], nullptr, 10);
    } else if (std::filesystem::is_directory(arg)) {
      for (const auto& entry : std::filesystem::recursive_directory_iterator(arg)) {
        if (entry.is_regular_file()) {
          run_file(entry.path());
          ++runs;
        }
      }
    } else {
      run_file(arg);
      ++runs;
    }
  }
  // Random inputs of every length up to 1 KiB, most of them short.
  std::mt19937_64 rng(seed);
  for (std::size_t k = 0; k < random; ++k, ++runs) {
    std::vector<char> bytes(rng() % (k % 4 == 0 ? 1024 : 128));
    for (char& b : bytes) b = static_cast<char>(rng());
    run(bytes);
  }
  run({});
  std::printf("ran %zu inputs\n", runs + 1);
  return 0;
}
