/// \file NuvFdSet: a set of descriptors with its highest member, kept in pools.
#ifndef NUV_FD_SET_H
#define NUV_FD_SET_H

/// 1,024 bits, descriptor n being bit n mod 32 of word n / 32, then one more than the highest
/// descriptor in the set (0 when empty).
/// Layout (checked in core/layout.cpp): 0 bits (32 words), 128 fdMaxM; 132 bytes.
class NuvFdSet {
 public:
  static constexpr int kWords = 32;
  static constexpr int kDescriptors = kWords * 32;

  /// Empties the set.
  void Zero();
  /// Adds fd (0 to 1023; others are ignored) and raises fdMaxM past it.
  void Set(int fd);
  /// Removes fd; fdMaxM stays as it is.
  void Clear(int fd);
  /// Whether fd is in the set.
  bool FIsSet(int fd) const;
  /// The word of bits that holds descriptors 32 * index to 32 * index + 31.
  unsigned Word(int index) const { return bitsM[index]; }
  int GetFdMax() const { return fdMaxM; }

 private:
  friend struct NuvCoreLayout;
  unsigned bitsM[kWords] = {};
  int fdMaxM = 0;
};

#endif  // NUV_FD_SET_H
