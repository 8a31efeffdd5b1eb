/// \file NuvFdSet: a set of descriptors with its highest member, kept in pools, and select over
/// such sets.
#ifndef NUV_FD_SET_H
#define NUV_FD_SET_H

class NuvTime;

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
  /// The word of bits that holds descriptors 32 * index to 32 * index + 31; 0 for an index
  /// outside 0 to 31, as such descriptors are never in the set.
  unsigned Word(int index) const { return index >= 0 && index < kWords ? bitsM[index] : 0; }
  int GetFdMax() const { return fdMaxM; }

  /// select over the sets given (null ones are left out) up to the largest fdMaxM among them,
  /// waiting at most timeout (null: without limit). Returns select's count, after which each set
  /// holds only its ready descriptors. The time-out is taken in whole microseconds and only
  /// their low 32 bits count, as a signed number: a negative one, or one of more than about
  /// 2,147 seconds that wraps to negative, is refused by the kernel. ENOMEM is logged and tried
  /// again, up to 5 attempts 10 microseconds apart. ENOSYS is logged and clears every given
  /// set's bits (fdMaxM stays): nothing is ready, and select's -1 is returned. Any other failure,
  /// an interrupting signal's EINTR included, and a fifth ENOMEM, are logged with the sets'
  /// fdMaxM and stop at assertion 743 of "Select".
  static int Select(NuvFdSet* readFds, NuvFdSet* writeFds, NuvFdSet* exceptFds, NuvTime* timeout);

 private:
  friend struct NuvCoreLayout;
  friend struct NuvFdSetSelection;
  unsigned bitsM[kWords] = {};
  int fdMaxM = 0;
};

#endif  // NUV_FD_SET_H
