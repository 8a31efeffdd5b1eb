/// \file Pool-file prefixes of the tests' own, and the removal of their files on every path.
#ifndef NUV_TESTS_SUPPORT_POOL_PREFIX_H
#define NUV_TESTS_SUPPORT_POOL_PREFIX_H

#include <string>

namespace nuv::test {

/// Every pool file of a test program starts with its program prefix: NUV_TEST_POOL_PREFIX (by
/// default "nuvtest_"), the process id of the program, "_". The process id tells whether the
/// program that made a file is still running.
std::string ProgramPoolPrefix(int pid);

/// Removes every /var/tmp file whose name starts with prefix; returns how many it removed.
int RemovePoolFiles(const std::string& prefix);

/// Removes the files of test programs that ended without removing theirs (killed by a time
/// limit, say): those whose process id no longer runs.
void RemoveFilesOfEndedPrograms();

/// Sets NUV_POOL_PREFIX for the whole program to its program prefix + "main_", and makes a
/// crash of the program (a fatal signal in the program's own process, not in a child it forked)
/// remove every file of the program before it ends by the signal as before.
void UseProgramPoolPrefix();

/// Removes the files of the whole program: at its normal end.
void RemoveProgramPoolFiles();

/// Sets NUV_POOL_PREFIX to a prefix unique to this process and test while it lives; on
/// destruction removes every /var/tmp file with that prefix and gives NUV_POOL_PREFIX back the
/// value it had.
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
  std::string previousM;
  bool hadPreviousM = false;
};

}  // namespace nuv::test

#endif  // NUV_TESTS_SUPPORT_POOL_PREFIX_H
