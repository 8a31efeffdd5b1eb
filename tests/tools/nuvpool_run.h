/// \file Running nuvpool from a test and reading its JSON, and the fixture pools.
#ifndef NUV_TESTS_TOOLS_NUVPOOL_RUN_H
#define NUV_TESTS_TOOLS_NUVPOOL_RUN_H

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/json.h"

namespace nuv::test {

/// What one run of nuvpool gave.
struct NuvpoolRun {
  ChildOutcome outcome;
  Json json;  // null unless the run asked for JSON and printed it
};

/// Runs nuvpool with args; with json, adds --json and parses standard output.
NuvpoolRun Nuvpool(const std::vector<std::string>& args, bool json = true);

/// The committed fixture pools, made by pool_fixture_helper on the device (big-endian) and on
/// the host (little-endian); remake one by running the helper there and copying
/// /var/tmp/PREFIXfixture.
std::string FixturePath(bool bigEndian);

/// The byte order of the target that runs the tests.
bool NativeBigEndian();

/// A pool file's bytes, changed word by word in the file's own byte order and written out.
class PoolBytes {
 public:
  explicit PoolBytes(const std::string& path);
  /// The base recorded in the first word: addresses map to offsets through it.
  uint32_t Base() const { return Word(0); }
  uint32_t Word(uint32_t offset) const;
  void SetWord(uint32_t offset, uint32_t value);
  /// Sets the word at a pool address.
  void SetAt(uint32_t address, uint32_t value) { SetWord(address - Base(), value); }
  uint32_t At(uint32_t address) const { return Word(address - Base()); }
  void Truncate(std::size_t size) { bytesM.resize(size); }
  void WriteTo(const std::string& path) const;

 private:
  std::vector<unsigned char> bytesM;
  bool bigM;
};

}  // namespace nuv::test

#endif  // NUV_TESTS_TOOLS_NUVPOOL_RUN_H
