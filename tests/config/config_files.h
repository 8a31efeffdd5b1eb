/// \file Files for the configuration store's tests: a fresh directory that goes away with the
/// test, whole-file reads and writes, and VELD_ROOT set for one test.
#ifndef NUV_TESTS_CONFIG_CONFIG_FILES_H
#define NUV_TESTS_CONFIG_CONFIG_FILES_H

#include <optional>
#include <string>

namespace nuv::test {

/// A directory made with mkdtemp under /tmp, removed with everything in it on destruction.
class ScratchDir {
 public:
  ScratchDir();
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;
  ScratchDir(ScratchDir&&) = delete;
  ScratchDir& operator=(ScratchDir&&) = delete;

  const std::string& Path() const { return pathM; }
  /// Path() + "/" + name.
  std::string File(const std::string& name) const;

 private:
  std::string pathM;
};

/// Writes bytes (NUL bytes included) as the whole file.
void WriteFile(const std::string& path, const std::string& bytes);
/// The whole file, or nothing when it cannot be opened.
std::optional<std::string> ReadFile(const std::string& path);
bool FExists(const std::string& path);

/// Sets (or, with nothing, unsets) VELD_ROOT, and puts the previous state back on destruction.
class VeldRootScope {
 public:
  explicit VeldRootScope(const std::optional<std::string>& value);
  ~VeldRootScope();
  VeldRootScope(const VeldRootScope&) = delete;
  VeldRootScope& operator=(const VeldRootScope&) = delete;
  VeldRootScope(VeldRootScope&&) = delete;
  VeldRootScope& operator=(VeldRootScope&&) = delete;

 private:
  std::optional<std::string> previousM;
};

}  // namespace nuv::test

#endif  // NUV_TESTS_CONFIG_CONFIG_FILES_H
