// Replays a folder of inputs through a fuzzer. An empty or missing folder is a failure: a replay of nothing proves
// nothing.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize);

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  int nInputs = 0;
  std::error_code zError;
  for (const auto& zEntry : std::filesystem::directory_iterator(argv[1], zError)) {
    std::ifstream zFile(zEntry.path(), std::ios::binary);
    const std::vector<char> vcBytes((std::istreambuf_iterator<char>(zFile)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(vcBytes.data()), vcBytes.size());
    ++nInputs;
  }
  std::printf("%d inputs replayed\n", nInputs);
  return nInputs > 0 ? 0 : 1;
}
