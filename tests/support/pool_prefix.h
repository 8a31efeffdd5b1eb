/// \file A pool-file prefix of the test's own, with its files removed afterwards.
#ifndef NUV_TESTS_SUPPORT_POOL_PREFIX_H
#define NUV_TESTS_SUPPORT_POOL_PREFIX_H

#include <string>

namespace nuv::test {

/// Sets NUV_POOL_PREFIX to a prefix unique to this process and test while it lives; on
/// destruction removes every /var/tmp file with that prefix and unsets the variable.
class ScopedPoolPrefix {
 public:
  ScopedPoolPrefix();
  ~ScopedPoolPrefix();
  ScopedPoolPrefix(const ScopedPoolPrefix&) = delete;
  ScopedPoolPrefix& operator=(const ScopedPoolPrefix&) = delete;

  const std::string& Prefix() const { return prefixM; }
  /// "/var/tmp/" + prefix + name.
  std::string PathOf(const std::string& name) const;

 private:
  std::string prefixM;
};

}  // namespace nuv::test

#endif  // NUV_TESTS_SUPPORT_POOL_PREFIX_H
