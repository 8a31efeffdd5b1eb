/// \file Pool objects: their pool and count, block tags and accounting, deletion, and ref<T>.
#include <nuv/seed.h>
#include <nuv/status.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/fatal_report.h"
#include "support/pool_prefix.h"
#include "support/pool_usage.h"

// The exported symbols of the null-tolerant members, declared as the platform's calling
// convention sees them (the object is the first argument). A member call through a null pointer
// is undefined in C++, so the promise "null does nothing" can only be tested at the symbol.
NuvSeed* SeedUpRefSymbol(NuvSeed* object) __asm__("_ZN7NuvSeed5UpRefEv");
void SeedDownRefSymbol(NuvSeed* object) __asm__("_ZN7NuvSeed7DownRefEv");
void CoreDownRefSymbol(NuvCore* object) __asm__("_ZN7NuvCore7DownRefEv");
NuvVirtualSeed* DeleteThisSymbol(NuvVirtualSeed* object) __asm__(
    "_ZN14NuvVirtualSeed10DeleteThisEv");

namespace {

using nuv::test::InfoWord;
using nuv::test::InUse;

using nuv::test::ExpectLibraryAssertion;
using nuv::test::FatalReport;
using nuv::test::RunToFatalReport;
using nuv::test::ScopedPoolPrefix;

constexpr unsigned kPoolSize = 64 * 1024;
constexpr unsigned kSizeMask = 0x00ffffff;
constexpr unsigned kBlockHeaderBytes = 8;
constexpr int kPendingLimit = 32;

// Counts the destructions of the object it is a member of.
class Probe {
 public:
  explicit Probe(int* destroyed) : destroyedM(destroyed) {}
  ~Probe() { ++*destroyedM; }
  Probe(const Probe&) = delete;
  Probe& operator=(const Probe&) = delete;
  Probe(Probe&&) = delete;
  Probe& operator=(Probe&&) = delete;

 private:
  int* destroyedM;
};

// A pool object without virtual functions.
class Plain : public NuvSeed {
 public:
  explicit Plain(int value) : NuvSeed(NuvMempool::catalog), valueM(value) {}
  int Value() const { return valueM; }

 private:
  int valueM;
};

// A virtual seed, deleted through its base.
class Virtual : public NuvVirtualSeed {
 public:
  Virtual(int value, int* destroyed)
      : NuvVirtualSeed(NuvMempool::glyph), probeM(destroyed), valueM(value) {}
  int Value() const { return valueM; }

 private:
  Probe probeM;
  int valueM;
};

// A counted object whose members the constructor sets.
class Counted : public NuvCore {
 public:
  Counted(int value, int* destroyed)
      : NuvCore(NuvMempool::overlay), probeM(destroyed), valueM(value), twiceM(2 * value) {}
  int Value() const { return valueM; }
  int Twice() const { return twiceM; }

 private:
  Probe probeM;
  int valueM;
  int twiceM;
};

// A counted object that holds a reference on another.
class Holder : public NuvCore {
 public:
  Holder(Counted* inner, int* destroyed)
      : NuvCore(NuvMempool::remote), innerM(inner), probeM(destroyed) {}
  const ref<Counted>& Inner() const { return innerM; }

 private:
  ref<Counted> innerM;
  Probe probeM;
};

// One link of a chain built from the inside out, each link's new enclosing the next one's.
class Link : public NuvSeed {
 public:
  explicit Link(Link* next) : NuvSeed(NuvMempool::catalog), nextM(next) {}
  Link* Next() const { return nextM; }

 private:
  Link* nextM;
};

// Larger than a one-page pool can give.
class Oversized : public NuvSeed {
 public:
  Oversized() : NuvSeed(NuvMempool::catalog) {}

 private:
  char bytesM[8192] = {};
};

unsigned BlockHeader(const void* payload) {
  return static_cast<const unsigned*>(payload)[-2];  // word 0 of the block, 8 bytes below
}
unsigned BlockUser(const void* payload) { return BlockHeader(payload) >> 24; }
unsigned PayloadSize(const void* payload) {
  return (BlockHeader(payload) & kSizeMask) - kBlockHeaderBytes;
}

// Blocks and payload bytes in use under one user.
struct Usage {
  unsigned blocks;
  unsigned bytes;
};

Usage UsageOf(const NuvMempool* pool, NuvMempool::User user) {
  return {InfoWord(pool, NuvMempoolInfo::kUserBlocks + user),
          InfoWord(pool, NuvMempoolInfo::kUserBlockBytes + user)};
}

Usage HighWaterOf(const NuvMempool* pool, NuvMempool::User user) {
  return {InfoWord(pool, NuvMempoolInfo::kUserBlocksHigh + user),
          InfoWord(pool, NuvMempoolInfo::kUserBlockBytesHigh + user)};
}

// A pool of the child's own, so that the parent's pool stays as it was.
NuvMempool* ChildPool(unsigned size = kPoolSize) {
  NuvMempool* pool = nullptr;
  NuvMempool::Allocate("child", size, false, nullptr, false, pool);
  return pool;
}

Link* Chain(NuvMempool* pool, int length) {
  return length == 0 ? nullptr : new (pool) Link(Chain(pool, length - 1));
}

void DeleteChain(Link* link) {
  while (link != nullptr) {
    Link* next = link->Next();
    delete link;
    link = next;
  }
}

class PoolObjects : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(NuvMempool::Allocate("objects", kPoolSize, false, nullptr, true, poolM), kNuvOk);
    startM = InUse(poolM);
  }
  void TearDown() override { delete poolM; }

  NuvMempool* Pool() const { return poolM; }
  const std::vector<unsigned>& Start() const { return startM; }
  Usage Before(NuvMempool::User user) const { return {startM[2 + 2 * user], startM[3 + 2 * user]}; }

  // The object's block carries user and is counted once, under that user and in the totals.
  void ExpectCountedOnce(const void* storage, NuvMempool::User user) const {
    EXPECT_EQ(BlockUser(storage), user);
    const Usage now = UsageOf(poolM, user);
    EXPECT_EQ(now.blocks, Before(user).blocks + 1);
    EXPECT_EQ(now.bytes, Before(user).bytes + PayloadSize(storage));
    EXPECT_EQ(InfoWord(poolM, NuvMempoolInfo::kBlocks), startM[0] + 1);
    EXPECT_EQ(InfoWord(poolM, NuvMempoolInfo::kBlockBytes), startM[1] + PayloadSize(storage));
  }

 private:
  ScopedPoolPrefix prefixM;
  NuvMempool* poolM = nullptr;
  std::vector<unsigned> startM;
};

TEST_F(PoolObjects, PlainSeedKnowsItsPoolAndStartsAtCountZero) {
  auto* plain = new (Pool()) Plain(7);
  EXPECT_EQ(plain->GetPool(), Pool());
  EXPECT_EQ(plain->GetRefCount(), 0U);
  EXPECT_EQ(plain->Value(), 7);
  delete plain;
}

TEST_F(PoolObjects, PlainSeedIsTaggedWithItsUserAndCountedOnce) {
  auto* plain = new (Pool()) Plain(7);
  ExpectCountedOnce(plain, NuvMempool::catalog);
  delete plain;
}

TEST_F(PoolObjects, VirtualSeedKnowsItsPoolAndStartsAtCountZero) {
  int destroyed = 0;
  auto* object = new (Pool()) Virtual(8, &destroyed);
  EXPECT_EQ(object->GetPool(), Pool());
  EXPECT_EQ(object->GetRefCount(), 0U);
  EXPECT_EQ(object->Value(), 8);
  object->DeleteThis();
}

TEST_F(PoolObjects, VirtualSeedIsTaggedWithItsUserAndCountedOnce) {
  int destroyed = 0;
  auto* object = new (Pool()) Virtual(8, &destroyed);
  ExpectCountedOnce(object, NuvMempool::glyph);
  object->DeleteThis();
}

TEST_F(PoolObjects, CoreKnowsItsPoolStartsAtCountZeroAndKeepsItsMembers) {
  int destroyed = 0;
  auto* counted = new (Pool()) Counted(9, &destroyed);
  EXPECT_EQ(counted->GetPool(), Pool());
  EXPECT_EQ(counted->GetRefCount(), 0U);
  EXPECT_EQ(counted->Value(), 9);
  EXPECT_EQ(counted->Twice(), 18);
  counted->DeleteThis();
}

TEST_F(PoolObjects, CoreIsTaggedWithItsUserAndCountedOnce) {
  int destroyed = 0;
  auto* counted = new (Pool()) Counted(9, &destroyed);
  ExpectCountedOnce(counted, NuvMempool::overlay);
  counted->DeleteThis();
}

TEST_F(PoolObjects, NestedNewGivesBothObjectsTheirPool) {
  int destroyed = 0;
  auto* holder = new (Pool()) Holder(new (Pool()) Counted(3, &destroyed), &destroyed);
  EXPECT_EQ(holder->GetPool(), Pool());
  EXPECT_EQ(holder->GetRefCount(), 0U);
  EXPECT_EQ(holder->Inner()->GetPool(), Pool());
  EXPECT_EQ(holder->Inner()->GetRefCount(), 1U);  // the holder's
  EXPECT_EQ(holder->Inner()->Value(), 3);
  holder->DeleteThis();
}

TEST_F(PoolObjects, NestedNewTagsAndCountsEachObjectOnceUnderItsUser) {
  int destroyed = 0;
  auto* holder = new (Pool()) Holder(new (Pool()) Counted(3, &destroyed), &destroyed);
  const Counted* inner = holder->Inner().get();
  EXPECT_EQ(BlockUser(holder), NuvMempool::remote);
  EXPECT_EQ(BlockUser(inner), NuvMempool::overlay);
  EXPECT_EQ(UsageOf(Pool(), NuvMempool::remote).blocks, Before(NuvMempool::remote).blocks + 1);
  EXPECT_EQ(UsageOf(Pool(), NuvMempool::overlay).blocks, Before(NuvMempool::overlay).blocks + 1);
  EXPECT_EQ(InfoWord(Pool(), NuvMempoolInfo::kBlockBytes),
            Start()[1] + PayloadSize(holder) + PayloadSize(inner));
  holder->DeleteThis();
}

TEST_F(PoolObjects, NewNestedThirtyTwoDeepBuildsEveryLink) {
  Link* chain = Chain(Pool(), kPendingLimit);
  int links = 0;
  for (const Link* link = chain; link != nullptr; link = link->Next(), ++links) {
    EXPECT_EQ(link->GetPool(), Pool());
    EXPECT_EQ(BlockUser(link), NuvMempool::catalog);
  }
  EXPECT_EQ(links, kPendingLimit);
  DeleteChain(chain);
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(PoolObjects, DeletingAPlainSeedFreesItsBlock) {
  delete new (Pool()) Plain(1);
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(PoolObjects, DeletingThroughTheVirtualSeedBaseFreesTheWholeObject) {
  int destroyed = 0;
  NuvVirtualSeed* base = new (Pool()) Virtual(1, &destroyed);
  delete base;
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(PoolObjects, DeleteThisThroughTheBaseFreesTheWholeObject) {
  int destroyed = 0;
  NuvVirtualSeed* base = new (Pool()) Counted(1, &destroyed);
  EXPECT_EQ(base->DeleteThis(), nullptr);
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(PoolObjects, LastDownRefThroughTheCoreBaseFreesTheWholeObject) {
  int destroyed = 0;
  NuvCore* core = new (Pool()) Counted(1, &destroyed);
  core->UpRef();
  core->DownRef();
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(PoolObjects, DeletingTheOuterOfANestedPairFreesBoth) {
  int destroyed = 0;
  NuvCore* holder = new (Pool()) Holder(new (Pool()) Counted(3, &destroyed), &destroyed);
  holder->DeleteThis();
  EXPECT_EQ(destroyed, 2);
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(PoolObjects, UpRefDownRefAndDeleteThisOnNullDoNothing) {
  EXPECT_EQ(SeedUpRefSymbol(nullptr), nullptr);
  SeedDownRefSymbol(nullptr);
  CoreDownRefSymbol(nullptr);
  EXPECT_EQ(DeleteThisSymbol(nullptr), nullptr);
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(PoolObjects, UpRefAddsOneAndReturnsTheObject) {
  auto* plain = new (Pool()) Plain(1);
  EXPECT_EQ(plain->UpRef(), plain);
  EXPECT_EQ(plain->GetRefCount(), 1U);
  plain->DownRef();
  delete plain;
}

TEST_F(PoolObjects, CountOfTwoThenTwoCoreDownRefsDestroysOnceOnTheSecond) {
  int destroyed = 0;
  auto* counted = new (Pool()) Counted(1, &destroyed);
  counted->UpRef();
  counted->UpRef();
  counted->DownRef();
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(counted->GetRefCount(), 1U);
  counted->DownRef();
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(PoolObjects, SeedDownRefToZeroLeavesTheObjectAlive) {
  int destroyed = 0;
  auto* counted = new (Pool()) Counted(5, &destroyed);
  counted->UpRef();
  counted->NuvSeed::DownRef();
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(counted->GetRefCount(), 0U);
  EXPECT_EQ(counted->Value(), 5);
  EXPECT_EQ(BlockUser(counted), NuvMempool::overlay);
  counted->DeleteThis();
}

TEST_F(PoolObjects, DeleteWithACountOfOneStopsAtLine2475) {
  const FatalReport report = RunToFatalReport([] {
    auto* plain = new (ChildPool()) Plain(1);
    plain->UpRef();
    delete plain;
  });
  ExpectLibraryAssertion(report, "__dl", 2475);
}

// Storage that never held an object has the count of 0 that operator new gave it: delete frees
// the block, still tagged "unassigned", and the statistics count that free as any other.
TEST_F(PoolObjects, DeleteOfStorageThatNeverHeldAnObjectFreesIt) {
  const unsigned blocks = InfoWord(Pool(), NuvMempoolInfo::kBlocks);
  void* storage = NuvSeed::operator new(sizeof(Plain), Pool());
  NuvSeed::operator delete(storage);
  EXPECT_EQ(InfoWord(Pool(), NuvMempoolInfo::kBlocks), blocks - 1);
  EXPECT_EQ(InfoWord(Pool(), NuvMempoolInfo::kUserBlocks + NuvMempool::unassigned), ~0U);
  void* again = Pool()->Malloc(sizeof(Plain), NuvMempool::catalog);
  EXPECT_EQ(again, storage);
  Pool()->Free(again);
}

TEST_F(PoolObjects, ConstructionOutsideThePoolNewStopsAtLine2456) {
  const FatalReport report = RunToFatalReport([] {
    alignas(Plain) char storage[sizeof(Plain)];
    ::new (static_cast<void*>(storage)) Plain(1);
  });
  ExpectLibraryAssertion(report, "NuvSeed", 2456);
}

// Each allocation waits for its constructor while the next is made: the wait is bounded.
TEST_F(PoolObjects, NewNestedDeeperThanThirtyTwoStopsAtLine2464) {
  const FatalReport report = RunToFatalReport([] { Chain(ChildPool(), kPendingLimit + 1); });
  ExpectLibraryAssertion(report, "__nw", 2464);
}

// The pool's Malloc never returns null: exhaustion ends the process before the new's own check.
TEST_F(PoolObjects, NewOnAnExhaustedPoolEndsTheProcessAtBlockFailure) {
  const FatalReport report = RunToFatalReport([] { new (ChildPool(1)) Oversized(); });
  ExpectLibraryAssertion(report, "BlockFailure", 1216);
}

TEST_F(PoolObjects, NewCoreCountsOneBlockUnderItsUserAndNoneUnassigned) {
  auto* core = new (Pool()) NuvCore(NuvMempool::control);
  EXPECT_EQ(UsageOf(Pool(), NuvMempool::control).blocks, Before(NuvMempool::control).blocks + 1);
  EXPECT_EQ(UsageOf(Pool(), NuvMempool::unassigned).blocks, Before(NuvMempool::unassigned).blocks);
  core->DeleteThis();
}

TEST_F(PoolObjects, NewCoreOfUserFiveRaisesItsCountsAndHighWaterMarksOnly) {
  const Usage unassignedHigh = HighWaterOf(Pool(), NuvMempool::unassigned);
  auto* core = new (Pool()) NuvCore(NuvMempool::catalog);
  const Usage now = UsageOf(Pool(), NuvMempool::catalog);
  EXPECT_EQ(now.blocks, Before(NuvMempool::catalog).blocks + 1);
  EXPECT_EQ(now.bytes, Before(NuvMempool::catalog).bytes + PayloadSize(core));
  EXPECT_EQ(UsageOf(Pool(), NuvMempool::unassigned).blocks, Before(NuvMempool::unassigned).blocks);
  EXPECT_EQ(UsageOf(Pool(), NuvMempool::unassigned).bytes, Before(NuvMempool::unassigned).bytes);
  EXPECT_EQ(HighWaterOf(Pool(), NuvMempool::catalog).blocks, now.blocks);
  EXPECT_EQ(HighWaterOf(Pool(), NuvMempool::catalog).bytes, now.bytes);
  EXPECT_EQ(HighWaterOf(Pool(), NuvMempool::unassigned).blocks, unassignedHigh.blocks);
  EXPECT_EQ(HighWaterOf(Pool(), NuvMempool::unassigned).bytes, unassignedHigh.bytes);
  core->DeleteThis();
}

TEST_F(PoolObjects, NewCoreBelowAnEarlierPeakLeavesTheHighWaterMarks) {
  auto* first = new (Pool()) NuvCore(NuvMempool::catalog);
  auto* second = new (Pool()) NuvCore(NuvMempool::catalog);
  first->DeleteThis();
  second->DeleteThis();
  const Usage peak = HighWaterOf(Pool(), NuvMempool::catalog);
  auto* third = new (Pool()) NuvCore(NuvMempool::catalog);
  EXPECT_EQ(HighWaterOf(Pool(), NuvMempool::catalog).blocks, peak.blocks);
  EXPECT_EQ(HighWaterOf(Pool(), NuvMempool::catalog).bytes, peak.bytes);
  third->DeleteThis();
}

class Refs : public PoolObjects {
 protected:
  Counted* NewCounted(int value) { return new (Pool()) Counted(value, &destroyedM); }
  int Destroyed() const { return destroyedM; }

 private:
  int destroyedM = 0;
};

TEST_F(Refs, DefaultIsNull) {
  const ref<Counted> none;
  EXPECT_EQ(none.get(), nullptr);
  EXPECT_FALSE(none);
}

TEST_F(Refs, FromAPointerTakesOneReference) {
  Counted* counted = NewCounted(1);
  const ref<Counted> held(counted);
  EXPECT_EQ(held.get(), counted);
  EXPECT_TRUE(held);
  EXPECT_EQ(counted->GetRefCount(), 1U);
}

TEST_F(Refs, FromNullHoldsNothing) {
  const ref<Counted> none(nullptr);
  EXPECT_FALSE(none);
}

TEST_F(Refs, CopyTakesASecondReference) {
  Counted* counted = NewCounted(1);
  const ref<Counted> first(counted);
  const ref<Counted> second(first);  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_EQ(second.get(), counted);
  EXPECT_EQ(counted->GetRefCount(), 2U);
}

TEST_F(Refs, MoveHandsOverTheReference) {
  Counted* counted = NewCounted(1);
  ref<Counted> first(counted);
  const ref<Counted> second(std::move(first));
  EXPECT_EQ(second.get(), counted);
  EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): a moved-from ref is null
  EXPECT_EQ(counted->GetRefCount(), 1U);
}

TEST_F(Refs, DestructionOfTheLastDestroysACoreObject) {
  { const ref<Counted> held(NewCounted(1)); }
  EXPECT_EQ(Destroyed(), 1);
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(Refs, DestructionDropsOneOfSeveralReferences) {
  Counted* counted = NewCounted(1);
  const ref<Counted> kept(counted);
  { const ref<Counted> other(counted); }
  EXPECT_EQ(counted->GetRefCount(), 1U);
  EXPECT_EQ(Destroyed(), 0);
}

TEST_F(Refs, DestructionLeavesAPlainSeedAliveAtZero) {
  auto* plain = new (Pool()) Plain(4);
  { const ref<Plain> held(plain); }
  EXPECT_EQ(plain->GetRefCount(), 0U);
  EXPECT_EQ(plain->Value(), 4);
  delete plain;
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(Refs, AssignmentMovesTheReferenceFromTheOldObjectToTheNew) {
  Counted* old = NewCounted(1);
  Counted* next = NewCounted(2);
  const ref<Counted> keepOld(old);
  const ref<Counted> other(next);
  ref<Counted> held(old);
  EXPECT_EQ(old->GetRefCount(), 2U);
  held = other;
  EXPECT_EQ(held.get(), next);
  EXPECT_EQ(old->GetRefCount(), 1U);
  EXPECT_EQ(next->GetRefCount(), 2U);
}

TEST_F(Refs, AssignmentOfAPointerMovesTheReference) {
  Counted* next = NewCounted(2);
  ref<Counted> held(NewCounted(1));
  held = next;
  EXPECT_EQ(held.get(), next);
  EXPECT_EQ(next->GetRefCount(), 1U);
  EXPECT_EQ(Destroyed(), 1);  // the old object had no other holder
}

TEST_F(Refs, AssignmentOfNullDropsTheReference) {
  ref<Counted> held(NewCounted(1));
  held = nullptr;
  EXPECT_FALSE(held);
  EXPECT_EQ(Destroyed(), 1);
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(Refs, SelfAssignmentKeepsTheLastReference) {
  Counted* counted = NewCounted(1);
  ref<Counted> held(counted);
  const ref<Counted>& alias = held;
  held = alias;
  EXPECT_EQ(held.get(), counted);
  EXPECT_EQ(counted->GetRefCount(), 1U);
  EXPECT_EQ(Destroyed(), 0);
}

TEST_F(Refs, AssigningItsOwnObjectKeepsTheLastReference) {
  Counted* counted = NewCounted(1);
  ref<Counted> held(counted);
  held = counted;
  EXPECT_EQ(held.get(), counted);
  EXPECT_EQ(counted->GetRefCount(), 1U);
  EXPECT_EQ(Destroyed(), 0);
}

// The new object is held only by the old one: dropping the old first would destroy both.
TEST_F(Refs, AssignmentTakesTheNewReferenceBeforeDroppingTheOld) {
  int holders = 0;
  Counted* inner = NewCounted(3);
  auto* holder = new (Pool()) Holder(inner, &holders);
  ref<NuvCore> held(holder);
  held = holder->Inner().get();
  EXPECT_EQ(holders, 1);
  EXPECT_EQ(Destroyed(), 0);
  EXPECT_EQ(held.get(), inner);
  EXPECT_EQ(inner->GetRefCount(), 1U);
  EXPECT_EQ(inner->Value(), 3);
}

TEST_F(Refs, MoveAssignmentDropsTheOldAndTakesOverTheNew) {
  Counted* next = NewCounted(2);
  ref<Counted> source(next);
  ref<Counted> held(NewCounted(1));
  held = std::move(source);
  EXPECT_EQ(held.get(), next);
  EXPECT_FALSE(source);  // NOLINT(bugprone-use-after-move): a moved-from ref is null
  EXPECT_EQ(next->GetRefCount(), 1U);
  EXPECT_EQ(Destroyed(), 1);
}

TEST_F(Refs, SelfMoveAssignmentKeepsTheReference) {
  Counted* counted = NewCounted(1);
  ref<Counted> held(counted);
  ref<Counted>& alias = held;
  held = std::move(alias);
  EXPECT_EQ(held.get(), counted);
  EXPECT_EQ(counted->GetRefCount(), 1U);
  EXPECT_EQ(Destroyed(), 0);
}

TEST_F(Refs, ReferenceToDerivedConvertsToReferenceToBaseHoldingOneMore) {
  static_assert(!std::is_convertible_v<ref<NuvCore>, ref<Counted>>, "never towards a derived");
  Counted* counted = NewCounted(3);
  const ref<Counted> derived(counted);
  {
    const ref<NuvCore> base(derived);
    EXPECT_EQ(base.get(), counted);
    EXPECT_EQ(counted->GetRefCount(), 2U);
  }
  EXPECT_EQ(counted->GetRefCount(), 1U);
  EXPECT_EQ(Destroyed(), 0);
}

TEST_F(Refs, BaseReferenceMadeFromTheLastDerivedOneKeepsTheObject) {
  ref<NuvCore> base;
  {
    const ref<Counted> derived(NewCounted(4));
    base = ref<NuvCore>(derived);
  }
  EXPECT_EQ(Destroyed(), 0);
  EXPECT_EQ(base->GetRefCount(), 1U);
  base = nullptr;
  EXPECT_EQ(Destroyed(), 1);
}

TEST_F(Refs, CountFollowsEachHolder) {
  Counted* counted = NewCounted(1);
  std::vector<unsigned> counts;
  {
    const ref<Counted> first(counted);
    counts.push_back(counted->GetRefCount());
    {
      ref<Counted> second(first);
      counts.push_back(counted->GetRefCount());
      const ref<Counted> third(std::move(second));
      counts.push_back(counted->GetRefCount());
    }
    counts.push_back(counted->GetRefCount());
  }
  EXPECT_EQ(counts, (std::vector<unsigned>{1, 2, 2, 1}));
  EXPECT_EQ(Destroyed(), 1);
}

TEST_F(Refs, DereferenceReachesTheObject) {
  const ref<Counted> held(NewCounted(6));
  EXPECT_EQ(held->Value(), 6);
  EXPECT_EQ((*held).Twice(), 12);
}

TEST_F(Refs, ComparisonIsByPointer) {
  Counted* counted = NewCounted(1);
  const ref<Counted> first(counted);
  const ref<Counted> second(counted);
  const ref<Counted> other(NewCounted(2));
  EXPECT_TRUE(first == second);
  EXPECT_TRUE(first != other);
  EXPECT_TRUE(first == counted);
  EXPECT_TRUE(other != counted);
}

TEST_F(Refs, NullComparesEqualOnlyToNull) {
  const ref<Counted> none;
  const ref<Counted> alsoNone;
  const ref<Counted> held(NewCounted(1));
  EXPECT_TRUE(none == alsoNone);
  EXPECT_TRUE(none == nullptr);
  EXPECT_TRUE(none != held);
  EXPECT_TRUE(held != nullptr);
}

}  // namespace
