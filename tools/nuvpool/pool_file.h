/// \file Pool files on disk: finding them by name or path, and mapping one read-only at any
/// address. Neither takes the file's flock nor writes to it.
#ifndef NUV_TOOLS_NUVPOOL_POOL_FILE_H
#define NUV_TOOLS_NUVPOOL_POOL_FILE_H

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

namespace nuvpool {

/// Where the library keeps pool files.
constexpr const char* kPoolDirectory = "/var/tmp/";

/// A name's path ("/var/tmp/" + prefix + name), or the argument itself when it holds a '/'.
std::string PoolPath(const std::string& nameOrPath, const std::string& prefix);

/// The regular files of the pool directory whose names begin with prefix, sorted.
std::vector<std::string> FilesWithPrefix(const std::string& prefix);

/// A file mapped read-only.
class MappedFile {
 public:
  MappedFile() = default;
  ~MappedFile();
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;
  MappedFile(MappedFile&&) = delete;
  MappedFile& operator=(MappedFile&&) = delete;

  /// Maps the file at path; on failure error says why.
  bool Open(const std::string& path, std::string* error);

  const unsigned char* Bytes() const { return static_cast<const unsigned char*>(mappingM); }
  std::size_t Size() const { return sizeM; }
  dev_t Device() const { return deviceM; }
  ino_t Inode() const { return inodeM; }

 private:
  void* mappingM = nullptr;
  std::size_t sizeM = 0;
  dev_t deviceM = 0;
  ino_t inodeM = 0;
};

}  // namespace nuvpool

#endif  // NUV_TOOLS_NUVPOOL_POOL_FILE_H
