/// \file Byte order, bounds and address translation of a pool file.
#include "pool_image.h"

#include <cstdio>

namespace nuvpool {

const char* ByteOrderName(ByteOrder order) {
  return order == ByteOrder::kBig ? "big-endian" : "little-endian";
}

uint32_t PoolImage::RawWord(std::size_t offset, ByteOrder order) const {
  const unsigned char* p = bytesM + offset;
  if (order == ByteOrder::kBig) {
    return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | uint32_t{p[3]};
  }
  return uint32_t{p[3]} << 24 | uint32_t{p[2]} << 16 | uint32_t{p[1]} << 8 | uint32_t{p[0]};
}

bool PoolImage::Open(std::string* error) {
  char text[160];
  if (sizeM < format::kFileHeaderSize + format::kPoolHeaderSize) {
    std::snprintf(text, sizeof text,
                  "too short for a pool: %zu bytes, where the headers alone take %u", sizeM,
                  format::kFileHeaderSize + format::kPoolHeaderSize);
    *error = text;
    return false;
  }
  if (RawWord(format::kFileHeaderSize, ByteOrder::kBig) == format::kMagic) {
    orderM = ByteOrder::kBig;
  } else if (RawWord(format::kFileHeaderSize, ByteOrder::kLittle) == format::kMagic) {
    orderM = ByteOrder::kLittle;
  } else {
    std::snprintf(text, sizeof text, "not a pool file: no pool magic 0x%08x at offset %u",
                  format::kMagic, format::kFileHeaderSize);
    *error = text;
    return false;
  }
  baseM = RawWord(0, orderM);
  lengthM = RawWord(4, orderM);
  // Every address of the pool must be a 32-bit address: a base this high is not a pool's.
  if (uint64_t{baseM} + sizeM > uint64_t{1} << 32) {
    std::snprintf(text, sizeof text,
                  "the header's base address 0x%08x puts the pool's %zu bytes past the end of "
                  "the 32-bit address space",
                  baseM, sizeM);
    *error = text;
    return false;
  }
  endM = static_cast<uint32_t>(baseM + sizeM);
  return true;
}

bool PoolImage::Holds(uint32_t address, uint32_t length) const {
  if (address < baseM) {
    return false;
  }
  const uint64_t offset = address - baseM;
  return offset + length <= sizeM;
}

uint32_t PoolImage::Word(uint32_t address) const {
  return Holds(address, 4) ? RawWord(address - baseM, orderM) : 0;
}

std::string PoolImage::Text(uint32_t address, uint32_t limit) const {
  std::string text;
  for (uint32_t i = 0; i < limit && Holds(address + i, 1); ++i) {
    const unsigned char c = bytesM[address + i - baseM];
    if (c == 0) {
      break;
    }
    text += (c >= 0x20 && c < 0x7f) ? static_cast<char>(c) : '?';
  }
  return text;
}

}  // namespace nuvpool
