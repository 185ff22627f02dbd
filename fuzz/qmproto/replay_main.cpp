// Runs the fuzz target over every file of its seed corpus, so the normal
// build exercises the same path without libFuzzer.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s CORPUS_DIR\n", argv[0]);
    return 2;
  }
  int files = 0;
  for (const auto &e : std::filesystem::directory_iterator(argv[1])) {
    std::ifstream in(e.path(), std::ios::binary);
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                               std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    ++files;
  }
  std::printf("replayed %d inputs\n", files);
  return files > 0 ? 0 : 1;
}
