/// \file nuvpool on the fixture pool: every figure as pool_fixture_helper built it, and the same
/// figures from a pool of the other byte order.
#include <gtest/gtest.h>

#include <string>

#include "support/child_process.h"
#include "support/pool_prefix.h"
#include "tools/nuvpool_run.h"

namespace nuv::test {
namespace {

class NuvpoolFixtureTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const ChildOutcome made = RunProgram(HelperPath("pool_fixture_helper"), {"fixture"});
    ASSERT_TRUE(made.Exited() && made.ExitCode() == 0) << made.out << made.err;
  }
  std::string Path() const { return prefixM.PathOf("fixture"); }

 private:
  ScopedPoolPrefix prefixM;
};

const Json& Owner(const Json& show, const char* name) {
  for (std::size_t i = 0; i < show["owners"].Size(); ++i) {
    if (show["owners"][i]["name"].String() == name) {
      return show["owners"][i];
    }
  }
  return show["no such owner"];
}

TEST_F(NuvpoolFixtureTest, ShowCountsEveryOwnerAsTheStatisticsDo) {
  const NuvpoolRun run = Nuvpool({"show", "fixture"});
  ASSERT_EQ(run.outcome.ExitCode(), 0) << run.outcome.err;
  const Json& catalog = Owner(run.json, "catalog");
  EXPECT_EQ(catalog["blocks"].Int(), 1);
  EXPECT_EQ(catalog["bytes"].Int(), 100);
  EXPECT_EQ(catalog["blocksHigh"].Int(), 2);
  EXPECT_EQ(catalog["bytesHigh"].Int(), 300);
  EXPECT_EQ(catalog["chunkBytesHigh"].Int(), 1024);
  EXPECT_EQ(Owner(run.json, "orb")["bytes"].Int(), 1000);
  EXPECT_EQ(Owner(run.json, "remote")["bytes"].Int(), 3000);
  EXPECT_EQ(Owner(run.json, "unknown")["bytes"].Int(), 20);
  EXPECT_EQ(Owner(run.json, "glyph")["chunkBytes"].Int(), 512);
  EXPECT_TRUE(Owner(run.json, "stream").IsNull());
  EXPECT_EQ(run.json["totals"]["chunks"].Int(), 1);
  EXPECT_EQ(run.json["header"]["name"].String(), "fixture");
  EXPECT_EQ(run.json["file"]["base"].Int(), 0x5a000000);
  EXPECT_EQ(run.json["state"].String(), "stale");
  EXPECT_TRUE(run.json["sound"].Bool());
}

TEST_F(NuvpoolFixtureTest, ShowGivesFreeSpaceByBucket) {
  const Json free = Nuvpool({"show", "fixture"}).json["free"];
  EXPECT_EQ(free["blocks"].Int(), 2);
  EXPECT_EQ(free["bytes"].Int(), 48 + 208);
  EXPECT_EQ(free["buckets"][0]["blocks"].Int(), 1);
  EXPECT_EQ(free["buckets"][0]["largest"].Int(), 48);
  EXPECT_EQ(free["buckets"][2]["largest"].Int(), 208);
  EXPECT_EQ(free["largestBlock"].Int(), 208);
  EXPECT_EQ(free["largest"].Int(), free["gap"].Int());
  EXPECT_NEAR(free["fragmentation"].Number(), 256.0 / (256.0 + free["gap"].Number()), 0.001);
}

TEST_F(NuvpoolFixtureTest, ShowListsTheChunksLowestFirst) {
  const Json chunks = Nuvpool({"show", "fixture"}).json["chunks"];
  ASSERT_EQ(chunks.Size(), 2U);
  EXPECT_EQ(chunks[0]["owner"].String(), "glyph");
  EXPECT_EQ(chunks[0]["size"].Int(), 512);
  EXPECT_FALSE(chunks[0]["free"].Bool());
  EXPECT_EQ(chunks[1]["size"].Int(), 1024);
  EXPECT_TRUE(chunks[1]["free"].Bool());
  EXPECT_EQ(chunks[1]["address"].Int(), chunks[0]["address"].Int() + 512);
}

TEST_F(NuvpoolFixtureTest, ShowGivesEveryQueueWithItsDepth) {
  const Json show = Nuvpool({"show", "fixture"}).json;
  ASSERT_EQ(show["queues"].Size(), 2U);
  EXPECT_EQ(show["queues"][0]["number"].Int(), 1);
  EXPECT_EQ(show["queues"][0]["depth"].Int(), 3);
  EXPECT_EQ(show["queues"][1]["number"].Int(), 42);
  EXPECT_EQ(show["queues"][1]["depth"].Int(), 0);
  EXPECT_EQ(show["queueBlocks"]["free"].Int(), 50);
  EXPECT_EQ(show["heldLocks"].Size(), 0U);
}

TEST_F(NuvpoolFixtureTest, ShowFindsTheQueuesSemaphoresAndOneOfTheirClass) {
  const Json semaphores = Nuvpool({"show", "fixture"}).json["semaphores"];
  ASSERT_EQ(semaphores.Size(), 5U);
  EXPECT_EQ(semaphores[0]["role"].String(), "receive of queue 1");
  EXPECT_EQ(semaphores[1]["role"].String(), "size of queue 1");
  EXPECT_EQ(semaphores[1]["count"].Int(), 5);
  EXPECT_EQ(semaphores[3]["count"].Int(), 10);
  EXPECT_EQ(semaphores[4]["role"].String(), "semaphore");
  EXPECT_EQ(semaphores[4]["owner"].String(), "overlay");
  EXPECT_EQ(semaphores[4]["count"].Int(), 3);
}

TEST_F(NuvpoolFixtureTest, ShowGivesTheRegistryEntries) {
  const Json registry = Nuvpool({"show", "fixture"}).json["registry"];
  ASSERT_EQ(registry["entries"].Size(), 1U);
  EXPECT_EQ(registry["entries"][0]["id"].Int(), 7);
  EXPECT_EQ(registry["entries"][0]["owner"].String(), "control");
  EXPECT_EQ(registry["entries"][0]["references"].Int(), 1);
}

TEST_F(NuvpoolFixtureTest, SuggestedSizeHoldsTheHighWaterMarksInWholePages) {
  const Json show = Nuvpool({"show", "fixture"}).json;
  const int64_t suggested = show["suggestedSize"].Int();
  EXPECT_EQ((suggested + 8) % 4096, 0);
  const Json& high = show["totals"];
  EXPECT_GT(suggested, high["bytesHigh"].Int() + high["chunkBytesHigh"].Int() + 708 + 512);
}

TEST_F(NuvpoolFixtureTest, ShowTextNamesEveryPart) {
  const NuvpoolRun run = Nuvpool({"show", "fixture"}, false);
  ASSERT_EQ(run.outcome.ExitCode(), 0);
  for (const char* part :
       {"Pool \"fixture\"", "state: stale", "catalog", "fragmentation", "queue 1 at", "3 messages",
        "size of queue 42", "50 of 50 free", "id 7: object", "Lock words held: 0",
        "Suggested pool size:", "Check: sound"}) {
    EXPECT_NE(run.outcome.out.find(part), std::string::npos) << part << "\n" << run.outcome.out;
  }
}

TEST_F(NuvpoolFixtureTest, CheckFindsTheFixtureSound) {
  const NuvpoolRun run = Nuvpool({"check", Path()});
  EXPECT_EQ(run.outcome.ExitCode(), 0);
  EXPECT_TRUE(run.json["sound"].Bool());
  EXPECT_EQ(run.json["findings"].Size(), 0U);
  EXPECT_EQ(run.json["chunks"].Int(), 2);
}

TEST_F(NuvpoolFixtureTest, BlocksListsTheLiveBlocksLargestFirst) {
  const Json blocks = Nuvpool({"blocks", "fixture"}).json;
  ASSERT_GT(blocks["blocks"].Size(), 10U);
  EXPECT_EQ(blocks["blocks"][0]["owner"].String(), "remote");
  EXPECT_EQ(blocks["blocks"][0]["size"].Int(), 3000);
  for (std::size_t i = 1; i < blocks["blocks"].Size(); ++i) {
    EXPECT_LE(blocks["blocks"][i]["size"].Int(), blocks["blocks"][i - 1]["size"].Int());
  }
  EXPECT_EQ(blocks["count"].Int(), static_cast<int64_t>(blocks["blocks"].Size()));
  EXPECT_TRUE(blocks["owner"].IsNull());
}

TEST_F(NuvpoolFixtureTest, BlocksOfOneOwnerLeaveTheOthersOut) {
  const Json orb = Nuvpool({"blocks", "fixture", "--owner", "orb"}).json;
  ASSERT_EQ(orb["blocks"].Size(), 1U);
  EXPECT_EQ(orb["blocks"][0]["size"].Int(), 1000);
  EXPECT_EQ(orb["owner"].String(), "orb");
  EXPECT_EQ(orb["blocks"][0]["offset"].Int(),
            orb["blocks"][0]["address"].Int() - orb["file"]["base"].Int());
  EXPECT_EQ(Nuvpool({"blocks", "fixture", "--owner", "5"}).json["bytes"].Int(), 100);
}

// The committed pool of the other target's byte order reads with the figures of the pool just
// built here.
TEST_F(NuvpoolFixtureTest, APoolOfTheOtherByteOrderReadsWithTheSameFigures) {
  const std::string foreign = FixturePath(!NativeBigEndian());
  for (const char* command : {"show", "check", "blocks"}) {
    const Json here = Nuvpool({command, Path()}).json;
    const Json there = Nuvpool({command, foreign}).json;
    EXPECT_EQ(here["file"]["byteOrder"].String(), NativeBigEndian() ? "big" : "little");
    EXPECT_EQ(there["file"]["byteOrder"].String(), NativeBigEndian() ? "little" : "big");
    ASSERT_FALSE(here.IsNull());
    EXPECT_TRUE(here.Without("file") == there.Without("file")) << command;
  }
}

}  // namespace
}  // namespace nuv::test
