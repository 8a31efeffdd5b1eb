/// \file Opening and mapping pool files.
#include "pool_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace nuvpool {

std::string PoolPath(const std::string& nameOrPath, const std::string& prefix) {
  if (nameOrPath.find('/') != std::string::npos) {
    return nameOrPath;
  }
  return kPoolDirectory + prefix + nameOrPath;
}

std::vector<std::string> FilesWithPrefix(const std::string& prefix) {
  std::vector<std::string> names;
  DIR* directory = opendir(kPoolDirectory);
  if (directory == nullptr) {
    return names;
  }
  while (const dirent* entry = readdir(directory)) {
    const std::string name = entry->d_name;
    struct stat status {};
    const std::string path = kPoolDirectory + name;
    if (name.size() > prefix.size() && name.compare(0, prefix.size(), prefix) == 0 &&
        stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
      names.push_back(name);
    }
  }
  closedir(directory);
  std::sort(names.begin(), names.end());
  return names;
}

MappedFile::~MappedFile() {
  if (mappingM != nullptr) {
    munmap(mappingM, sizeM);
  }
}

bool MappedFile::Open(const std::string& path, std::string* error) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    *error = "cannot open " + path + ": " + std::strerror(errno);
    return false;
  }
  struct stat status {};
  bool opened = false;
  if (fstat(fd, &status) != 0) {
    *error = "cannot read the size of " + path + ": " + std::strerror(errno);
  } else if (!S_ISREG(status.st_mode)) {
    *error = path + " is not a regular file";
  } else if (status.st_size == 0) {
    *error = path + " is empty: not a pool file";
  } else if (static_cast<unsigned long long>(status.st_size) > UINT32_MAX) {
    *error = path + " is larger than any pool of 32-bit addresses";
  } else {
    void* bytes =
        mmap(nullptr, static_cast<std::size_t>(status.st_size), PROT_READ, MAP_SHARED, fd, 0);
    opened = bytes != MAP_FAILED;
    if (opened) {
      mappingM = bytes;
      sizeM = static_cast<std::size_t>(status.st_size);
      deviceM = status.st_dev;
      inodeM = status.st_ino;
    } else {
      *error = "cannot map " + path + ": " + std::strerror(errno);
    }
  }
  close(fd);
  return opened;
}

}  // namespace nuvpool
