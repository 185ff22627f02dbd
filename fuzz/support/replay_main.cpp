// Runs a fuzz target once over every file of the given folders or files,
// so the seed corpus and every past finding stay regression tests.
#include <stdint.h>
#include <stdio.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace fs = std::filesystem;

int main(int argc, char **argv) {
  std::vector<fs::path> files;
  for (int i = 1; i < argc; ++i) {
    if (fs::is_directory(argv[i])) {
      for (const auto &entry : fs::directory_iterator(argv[i])) {
        if (entry.is_regular_file()) files.push_back(entry.path());
      }
    } else {
      files.emplace_back(argv[i]);
    }
  }
  if (files.empty()) {
    fprintf(stderr, "usage: %s CORPUS-FOLDER|FILE...\n", argv[0]);
    return 2;
  }
  for (const fs::path &file : files) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
      fprintf(stderr, "%s: cannot read\n", file.c_str());
      return 2;
    }
    std::vector<uint8_t> data((std::istreambuf_iterator<char>(in)),
                              std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(data.data(), data.size());
  }
  printf("%zu inputs replayed\n", files.size());
  return 0;
}
