/// \file Runs a fuzz harness over the files given (a file, or every file of a folder) without
/// the fuzzer: the seed corpora become regression tests on every target.
#include <dirent.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);
// A harness may set itself up once, as under the fuzzer.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) __attribute__((weak));

namespace {

// A folder that cannot be listed to its end gives nothing, so that the replay fails.
std::vector<std::string> FilesOf(const std::string& path) {
  DIR* folder = opendir(path.c_str());
  if (folder == nullptr) {
    return {path};
  }
  std::vector<std::string> files;
  errno = 0;
  while (const dirent* entry = readdir(folder)) {
    if (entry->d_name[0] != '.') {
      files.push_back(path + "/" + entry->d_name);
    }
  }
  if (errno != 0) {
    std::fprintf(stderr, "cannot list %s: %s\n", path.c_str(), std::strerror(errno));
    files.clear();
  }
  closedir(folder);
  return files;
}

}  // namespace

int main(int argc, char** argv) {
  if (LLVMFuzzerInitialize != nullptr) {
    LLVMFuzzerInitialize(&argc, &argv);
  }
  int replayed = 0;
  for (int i = 1; i < argc; ++i) {
    for (const std::string& file : FilesOf(argv[i])) {
      std::ifstream input(file, std::ios::binary);
      const std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(input)),
                                             std::istreambuf_iterator<char>());
      if (!input.eof() && !input.good()) {
        std::fprintf(stderr, "cannot read %s\n", file.c_str());
        return 1;
      }
      LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
      ++replayed;
    }
  }
  std::fprintf(stderr, "%d inputs replayed\n", replayed);
  return replayed > 0 ? 0 : 1;
}
