/// \file Fuzzes the configuration store's parser: the input's first line is a key path, the rest
/// a configuration file. The store selects the section, reads and enumerates its pairs, looks
/// keys up, changes one and writes the file back: whatever the file holds, a result, never a
/// crash, a hang or a read outside a buffer.
#include <nuv/configbase.h>

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/quiet_log.h"

namespace {

std::string ScratchPath() { return "/tmp/nuv_config_fuzz_" + std::to_string(getpid()) + ".cfg"; }

void Write(const std::string& path, const uint8_t* data, std::size_t size) {
  FILE* file = std::fopen(path.c_str(), "wb");
  if (file != nullptr) {
    std::fwrite(data, 1, size, file);
    std::fclose(file);
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  nuv::fuzz::QuietLog();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  const std::size_t end = input.find('\n');
  const std::string keyPath = input.substr(0, end);
  const std::size_t body = end == std::string::npos ? size : end + 1;
  static const std::string path = ScratchPath();
  Write(path, data + body, size - body);
  {
    NuvConfigbase store(path.c_str());
    if (store.SetKeyPath(keyPath.c_str()) == 1) {
      std::vector<std::pair<std::string, std::string>> pairs;
      NuvConfigIterator* iterator = store.Enumerate();
      char* key = nullptr;
      char* value = nullptr;
      while (iterator != nullptr && iterator->Current(&key, &value) == 1) {
        pairs.emplace_back(key, value);
        iterator->Next();
      }
      delete iterator;
      for (const auto& pair : pairs) {
        store.FindValue(pair.first.c_str());
        store.FindKeyByValue(pair.second.c_str());
      }
      store.SetValue("Fuzz Key", "fuzz value");
      store.Sync(true);
    }
  }
  std::remove(path.c_str());
  std::remove((path + ".cbup").c_str());
  return 0;
}
