/// \file A pool file's bytes as the pool's own processes see them: words in the file's byte
/// order, addresses translated through the base recorded in the file's first word, and every
/// read checked against the end of the file.
#ifndef NUV_TOOLS_NUVPOOL_POOL_IMAGE_H
#define NUV_TOOLS_NUVPOOL_POOL_IMAGE_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace nuvpool {

enum class ByteOrder { kBig, kLittle };

const char* ByteOrderName(ByteOrder order);

/// Byte offsets and constants of the pool file that the reader relies on.
namespace format {
constexpr uint32_t kFileHeaderSize = 8;  // mapping base, mapping length
constexpr uint32_t kPoolHeaderSize = 708;
constexpr uint32_t kMagic = 0xa67f3e4d;
constexpr uint32_t kDeadBeef = 0xdeadbeef;
constexpr unsigned kBuckets = 19;
constexpr unsigned kUsers = 14;  // the statistics' per-owner rows
constexpr unsigned kQueueBlocks = 50;
constexpr uint32_t kMinBlock = 16;
constexpr uint32_t kSentinelSize = 8;
}  // namespace format

/// Reads a pool file held in memory (a read-only mapping, or a fuzzer's buffer). Nothing is
/// read before Open has accepted the header, and nothing outside [bytes, bytes + size).
class PoolImage {
 public:
  PoolImage(const unsigned char* bytes, std::size_t size) : bytesM(bytes), sizeM(size) {}

  /// Accepts the file header and finds the byte order from the pool magic; on failure error
  /// says why, in words for the command line.
  bool Open(std::string* error);

  std::size_t FileSize() const { return sizeM; }
  ByteOrder Order() const { return orderM; }
  uint32_t Base() const { return baseM; }      // where the pool's processes map it
  uint32_t Length() const { return lengthM; }  // the mapping length in the header
  uint32_t Pool() const { return baseM + format::kFileHeaderSize; }  // the pool header's address
  uint32_t End() const { return endM; }                              // one past the last byte held

  /// True when length bytes at address lie inside the file.
  bool Holds(uint32_t address, uint32_t length) const;
  /// The word at address in the file's byte order, or 0 when it lies outside the file.
  uint32_t Word(uint32_t address) const;
  /// The byte offset in the file of an address inside it.
  uint32_t OffsetOf(uint32_t address) const { return address - baseM; }
  /// The NUL-terminated text at address, at most limit bytes, printable characters only.
  std::string Text(uint32_t address, uint32_t limit) const;

 private:
  uint32_t RawWord(std::size_t offset, ByteOrder order) const;

  const unsigned char* bytesM;
  std::size_t sizeM;
  ByteOrder orderM = ByteOrder::kBig;
  uint32_t baseM = 0;
  uint32_t lengthM = 0;
  uint32_t endM = 0;
};

}  // namespace nuvpool

#endif  // NUV_TOOLS_NUVPOOL_POOL_IMAGE_H
