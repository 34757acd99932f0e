// Runs a fuzz target's entry point once for every file named on the command
// line or found (sorted) in a directory named there, without libFuzzer: the
// committed corpora and crash inputs become ordinary regression tests. A
// missing directory is skipped; a failing input aborts the process; no input at
// all is a failure.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

int runFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    std::fprintf(stderr, "cannot read %s\n", path.c_str());
    return 1;
  }
  const std::vector<char> bytes((std::istreambuf_iterator<char>(file)),
                                std::istreambuf_iterator<char>());
  std::printf("%s (%zu bytes)\n", path.c_str(), bytes.size());
  std::fflush(stdout);
  (void)LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  int failures = 0;
  std::size_t inputs = 0;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path arg(argv[i]);
    std::error_code error;
    if (std::filesystem::is_directory(arg, error)) {
      std::vector<std::filesystem::path> files;
      for (const auto& entry : std::filesystem::directory_iterator(arg)) {
        if (entry.is_regular_file()) files.push_back(entry.path());
      }
      std::sort(files.begin(), files.end());
      for (const auto& file : files) {
        failures += runFile(file);
        ++inputs;
      }
    } else if (std::filesystem::is_regular_file(arg, error)) {
      failures += runFile(arg);
      ++inputs;
    } else {
      std::printf("skipped %s (absent)\n", arg.c_str());
    }
  }
  std::printf("%zu inputs replayed\n", inputs);
  return failures == 0 && inputs > 0 ? 0 : 1;
}
