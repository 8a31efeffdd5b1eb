/// \file nuvpool on files that are not sound pools: empty, short, truncated, random, foreign,
/// pointing outside themselves, or holding lists that loop. Each gives a clear message and a
/// non-zero exit, within the deadline and without a sanitizer report.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <random>
#include <string>

#include "support/pool_prefix.h"
#include "tools/nuvpool_run.h"

namespace nuv::test {
namespace {

constexpr int kUnsound = 1;
constexpr int kFailed = 2;

class NuvpoolBadFileTest : public ::testing::Test {
 protected:
  std::string Path() const { return prefixM.PathOf("bad"); }

  void WriteFile(const std::string& bytes) const {
    std::ofstream(Path(), std::ios::binary) << bytes;
  }

  /// The big-endian fixture with a change, written to Path().
  void WriteChangedFixture(const std::function<void(PoolBytes&, const Json&)>& change) const {
    PoolBytes bytes(FixturePath(true));
    change(bytes, Nuvpool({"show", FixturePath(true)}).json);
    bytes.WriteTo(Path());
  }

  /// Runs command on Path(): it must end by itself with exit status code, say nothing on
  /// standard error unless it failed, and, when it failed, say why.
  NuvpoolRun Expect(const char* command, int code, const char* message = nullptr) const {
    NuvpoolRun run = Nuvpool({command, Path()}, code != kFailed);
    EXPECT_FALSE(run.outcome.timedOut);
    EXPECT_TRUE(run.outcome.Exited()) << run.outcome.err;
    EXPECT_EQ(run.outcome.ExitCode(), code) << run.outcome.err;
    if (message != nullptr) {
      EXPECT_NE(run.outcome.err.find(message), std::string::npos) << run.outcome.err;
    } else {
      EXPECT_EQ(run.outcome.err, "");
    }
    return run;
  }

  /// Every command on Path() ends with a finding that holds text.
  void ExpectFinding(const char* text) const {
    const NuvpoolRun check = Expect("check", kUnsound);
    bool found = false;
    for (std::size_t i = 0; i < check.json["findings"].Size(); ++i) {
      found = found || check.json["findings"][i]["what"].String().find(text) != std::string::npos;
    }
    EXPECT_TRUE(found) << text << "\n" << check.outcome.out;
    Expect("show", 0);
    Expect("blocks", 0);
  }

 private:
  ScopedPoolPrefix prefixM;
};

TEST_F(NuvpoolBadFileTest, AnEmptyFileIsNotAPool) {
  WriteFile("");
  Expect("show", kFailed, "is empty: not a pool file");
}

TEST_F(NuvpoolBadFileTest, AFileShorterThanTheHeadersIsNotAPool) {
  WriteFile(std::string(7, '\0'));
  Expect("check", kFailed, "too short for a pool: 7 bytes");
}

TEST_F(NuvpoolBadFileTest, AForeignFileIsNotAPool) {
  std::string text;
  while (text.size() < 4096) {
    text += "root:x:0:0:root:/root:/bin/bash\n";
  }
  WriteFile(text);
  Expect("show", kFailed, "not a pool file: no pool magic");
}

TEST_F(NuvpoolBadFileTest, RandomBytesAreNotAPool) {
  std::mt19937 random(12345);
  std::string bytes(16384, '\0');
  for (char& byte : bytes) {
    byte = static_cast<char>(random());
  }
  WriteFile(bytes);
  Expect("blocks", kFailed, "not a pool file");
}

TEST_F(NuvpoolBadFileTest, RandomBytesBehindAPoolHeaderGiveFindings) {
  WriteChangedFixture([](PoolBytes& bytes, const Json&) {
    std::mt19937 random(54321);
    for (uint32_t offset = 12; offset + 4 <= 16384; offset += 4) {
      bytes.SetWord(offset, static_cast<uint32_t>(random()));
    }
  });
  Expect("check", kUnsound);
  Expect("show", 0);
}

TEST_F(NuvpoolBadFileTest, ATruncatedPoolIsReadUpToItsEnd) {
  WriteChangedFixture([](PoolBytes& bytes, const Json&) { bytes.Truncate(6000); });
  ExpectFinding("the file holds 6000 bytes where its header gives a length of 16384");
}

TEST_F(NuvpoolBadFileTest, ATopSentinelOutsideTheFileIsReported) {
  WriteChangedFixture([](PoolBytes& bytes, const Json&) { bytes.SetWord(8 + 16, 0xfffffff0); });
  ExpectFinding("are not in order inside the pool");
}

TEST_F(NuvpoolBadFileTest, ABaseBeyondTheAddressSpaceIsRefused) {
  WriteChangedFixture([](PoolBytes& bytes, const Json&) { bytes.SetWord(0, 0xffffff00); });
  Expect("show", kFailed, "past the end of the 32-bit address space");
}

TEST_F(NuvpoolBadFileTest, ABucketListThatLoopsEnds) {
  WriteChangedFixture([](PoolBytes& bytes, const Json&) {
    const uint32_t heads = bytes.Base() + 8 + 616;
    const uint32_t block = bytes.At(heads + 4 * 2);
    bytes.SetAt(block + 12, block);
  });
  ExpectFinding("which is already on a list");
}

TEST_F(NuvpoolBadFileTest, AQueueListThatLoopsEnds) {
  WriteChangedFixture([](PoolBytes& bytes, const Json& show) {
    const auto queue = static_cast<uint32_t>(show["queues"][1]["address"].Int());
    bytes.SetAt(queue + 36, static_cast<uint32_t>(show["queues"][0]["address"].Int()));
  });
  ExpectFinding("not a queue of its own");
}

TEST_F(NuvpoolBadFileTest, AMessageChainThatLoopsEnds) {
  WriteChangedFixture([](PoolBytes& bytes, const Json& show) {
    const auto queue = static_cast<uint32_t>(show["queues"][0]["address"].Int());
    const uint32_t first = bytes.At(queue + 12);
    bytes.SetAt(bytes.At(first + 28) + 28, first);
  });
  ExpectFinding("not a message of its own");
}

TEST_F(NuvpoolBadFileTest, AChunkListThatLoopsEnds) {
  WriteChangedFixture([](PoolBytes& bytes, const Json&) {
    const uint32_t head = bytes.At(bytes.Base() + 8 + 44);
    bytes.SetAt(head + 16, head);
  });
  ExpectFinding("not a chunk record of its own");
}

TEST_F(NuvpoolBadFileTest, ASemaphoreQueueThatLoopsEnds) {
  WriteChangedFixture([](PoolBytes& bytes, const Json& show) {
    const auto sema = static_cast<uint32_t>(show["semaphores"][4]["address"].Int());
    const auto block = static_cast<uint32_t>(show["queueBlocks"]["address"].Int()) + 16;
    bytes.SetAt(block, 4242);
    bytes.SetAt(block + 4, block);
    bytes.SetAt(sema + 16, block);
  });
  ExpectFinding("not a queue block of its own");
}

TEST_F(NuvpoolBadFileTest, AHeapPointerOutsideThePoolStopsTheWalk) {
  WriteChangedFixture([](PoolBytes& bytes, const Json&) { bytes.SetWord(8 + 12, 0x10); });
  ExpectFinding("first sentinel pointer is 0x00000010");
}

TEST_F(NuvpoolBadFileTest, ADirectoryIsNotAPool) {
  ASSERT_EQ(mkdir(Path().c_str(), 0700), 0);
  Expect("show", kFailed, "is not a regular file");
  rmdir(Path().c_str());
}

TEST_F(NuvpoolBadFileTest, AMissingPoolIsNamedInTheMessage) {
  Expect("show", kFailed, "cannot open");
}

TEST_F(NuvpoolBadFileTest, BadArgumentsGiveTheUsage) {
  for (const auto& args : std::vector<std::vector<std::string>>{{},
                                                                {"inspect", "pool"},
                                                                {"show"},
                                                                {"show", "a", "b"},
                                                                {"list", "--bogus"},
                                                                {"show", "pool", "--owner", "orb"},
                                                                {"blocks", "pool", "--owner"}}) {
    const NuvpoolRun run = Nuvpool(args, false);
    EXPECT_EQ(run.outcome.ExitCode(), kFailed);
    EXPECT_NE(run.outcome.err.find("usage: nuvpool"), std::string::npos) << run.outcome.err;
  }
}

TEST_F(NuvpoolBadFileTest, AnUnknownOwnerIsRefused) {
  const NuvpoolRun run = Nuvpool({"blocks", FixturePath(true), "--owner", "nobody"}, false);
  EXPECT_EQ(run.outcome.ExitCode(), kFailed);
  EXPECT_NE(run.outcome.err.find("unknown owner \"nobody\""), std::string::npos);
}

}  // namespace
}  // namespace nuv::test
