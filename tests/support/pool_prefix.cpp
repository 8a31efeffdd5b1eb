/// \file Test pool prefixes.
#include "support/pool_prefix.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <unistd.h>
#include <cstdlib>

namespace nuv::test {

ScopedPoolPrefix::ScopedPoolPrefix() {
  const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
  prefixM = "nuvtest_" + std::to_string(getpid()) + "_" +
            (info != nullptr ? std::string(info->name()) : std::string("main")) + "_";
  setenv("NUV_POOL_PREFIX", prefixM.c_str(), 1);
}

ScopedPoolPrefix::~ScopedPoolPrefix() {
  if (DIR* directory = opendir("/var/tmp")) {
    while (const dirent* entry = readdir(directory)) {
      const std::string name = entry->d_name;
      if (name.rfind(prefixM, 0) == 0) {
        unlink(("/var/tmp/" + name).c_str());
      }
    }
    closedir(directory);
  }
  unsetenv("NUV_POOL_PREFIX");
}

std::string ScopedPoolPrefix::PathOf(const std::string& name) const {
  return "/var/tmp/" + prefixM + name;
}

}  // namespace nuv::test
