/// \file Files for the configuration store's tests.
#include "config/config_files.h"

#include <sys/stat.h>
#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include <ftw.h>

namespace nuv::test {

namespace {

int RemoveEntry(const char* path, const struct stat* /*status*/, int /*type*/, FTW* /*walk*/) {
  return remove(path);
}

}  // namespace

ScratchDir::ScratchDir() {
  std::string name = "/tmp/nuvcfg.XXXXXX";
  if (mkdtemp(name.data()) != nullptr) {
    pathM = name;
  }
}

ScratchDir::~ScratchDir() {
  if (!pathM.empty()) {
    chmod(pathM.c_str(), 0700);
    nftw(pathM.c_str(), RemoveEntry, 16, FTW_DEPTH | FTW_PHYS);
  }
}

std::string ScratchDir::File(const std::string& name) const { return pathM + "/" + name; }

void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::optional<std::string> ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    return std::nullopt;
  }
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool FExists(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

VeldRootScope::VeldRootScope(const std::optional<std::string>& value) {
  if (const char* previous = getenv("VELD_ROOT")) {
    previousM = previous;
  }
  if (value) {
    setenv("VELD_ROOT", value->c_str(), 1);
  } else {
    unsetenv("VELD_ROOT");
  }
}

VeldRootScope::~VeldRootScope() {
  if (previousM) {
    setenv("VELD_ROOT", previousM->c_str(), 1);
  } else {
    unsetenv("VELD_ROOT");
  }
}

}  // namespace nuv::test
