/// \file NuvMempoolRegistry: objects of a pool by id, within a process and across processes.
#include <nuv/lockword.h>
#include <nuv/registry.h>
#include <nuv/status.h>

#include <gtest/gtest.h>

#include <sched.h>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/pool_prefix.h"
#include "support/pool_usage.h"
#include "support/shared_memory.h"

namespace {

using nuv::test::InfoWord;
using nuv::test::InUse;

using nuv::test::ChildOutcome;
using nuv::test::ChildProcess;
using nuv::test::ScopedPoolPrefix;

constexpr const char* kPoolName = "registry";
constexpr unsigned kPoolSize = 64 * 1024;
// Where the pool is made, so that a second program can map it at the same address (nothing else
// occupies it in the test programs, on the device or the host).
constexpr uintptr_t kAgreedAddress = 0x68000000;
constexpr unsigned kItemPayload = 12;
constexpr unsigned kItemBlockSize = 20;
constexpr unsigned kRounds = 50;
constexpr std::chrono::seconds kChildDeadline{8};

// How many of the two processes have finished their round so far, in memory both see.
struct Arrivals {
  volatile unsigned count;
};

// The registered objects of these tests and of registry_helper: a seed and a value.
class SharedValue : public NuvSeed {
 public:
  explicit SharedValue(int value) : NuvSeed(NuvMempool::catalog), valueM(value) {}
  int Value() const { return valueM; }

 private:
  int valueM;
};

// A registry item as the pool holds it; the registry's head follows its seed.
struct Item {
  int id;
  NuvSeed* object;
  const Item* next;
};
constexpr unsigned kRegistryHeadOffset = 8;

const Item* Head(const NuvMempoolRegistry* registry) {
  return *reinterpret_cast<const Item* const*>(reinterpret_cast<const char*>(registry) +
                                               kRegistryHeadOffset);
}

std::vector<int> IdsInOrder(const NuvMempoolRegistry* registry) {
  std::vector<int> ids;
  for (const Item* item = Head(registry); item != nullptr; item = item->next) {
    ids.push_back(item->id);
  }
  return ids;
}

// The registry hands back seeds; every object that these tests register is a SharedValue.
const SharedValue* AsValue(const NuvSeed* seed) {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-static-cast-downcast): no virtuals to check with
  return static_cast<const SharedValue*>(seed);
}

unsigned BlockHeader(const void* payload) { return static_cast<const unsigned*>(payload)[-2]; }

// Blocks and payload bytes of the library's own user.
std::vector<unsigned> NuvUsage(const NuvMempool* pool) {
  return {InfoWord(pool, NuvMempoolInfo::kUserBlocks + NuvMempool::nuv),
          InfoWord(pool, NuvMempoolInfo::kUserBlockBytes + NuvMempool::nuv)};
}

ChildOutcome RunHelper(const std::vector<std::string>& args) {
  return nuv::test::RunProgram(nuv::test::HelperPath("registry_helper"), args);
}

class Registry : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(NuvMempool::Allocate(kPoolName, kPoolSize, false,
                                   reinterpret_cast<char*>(kAgreedAddress), true, poolM),
              kNuvOk);
    startM = InUse(poolM);
  }
  void TearDown() override { delete poolM; }

  NuvMempool* Pool() const { return poolM; }
  NuvMempoolRegistry* Items() const { return poolM->GetRegistry(); }
  const std::vector<unsigned>& Start() const { return startM; }
  SharedValue* NewValue(int value) const { return new (poolM) SharedValue(value); }

  // Registers a new object under id; the registry then holds its only reference.
  SharedValue* Register(int id, int value) const {
    SharedValue* object = NewValue(value);
    EXPECT_TRUE(Items()->AddItem(id, object));
    return object;
  }
  void RemoveAndDelete(int id) const { delete Items()->RemoveItem(id); }

 private:
  ScopedPoolPrefix prefixM;
  NuvMempool* poolM = nullptr;
  std::vector<unsigned> startM;
};

TEST_F(Registry, AddItemOfANewIdReturnsTrueAndTheObjectIsFound) {
  SharedValue* object = NewValue(1);
  EXPECT_TRUE(Items()->AddItem(5, object));
  EXPECT_EQ(Items()->FindItem(5), object);
  RemoveAndDelete(5);
}

TEST_F(Registry, AddItemTakesOneReference) {
  const SharedValue* object = Register(5, 1);
  EXPECT_EQ(object->GetRefCount(), 1U);
  RemoveAndDelete(5);
}

TEST_F(Registry, AddItemOfAPresentIdReturnsFalseAndKeepsTheFirstObject) {
  SharedValue* first = NewValue(1);
  SharedValue* second = NewValue(2);
  EXPECT_TRUE(Items()->AddItem(5, first));
  EXPECT_FALSE(Items()->AddItem(5, second));
  EXPECT_EQ(Items()->FindItem(5), first);
  EXPECT_EQ(second->GetRefCount(), 0U);
  EXPECT_EQ(IdsInOrder(Items()), std::vector<int>{5});
  delete second;
  RemoveAndDelete(5);
}

TEST_F(Registry, FindItemOfAnAbsentIdIsNull) {
  Register(5, 1);
  EXPECT_EQ(Items()->FindItem(6), nullptr);
  RemoveAndDelete(5);
}

TEST_F(Registry, FindItemAddsNoReference) {
  const SharedValue* object = Register(5, 1);
  Items()->FindItem(5);
  EXPECT_EQ(object->GetRefCount(), 1U);
  RemoveAndDelete(5);
}

TEST_F(Registry, RemoveItemOfAnAbsentIdReturnsNullAndChangesNothing) {
  const SharedValue* object = Register(5, 1);
  const std::vector<unsigned> before = InUse(Pool());
  EXPECT_EQ(Items()->RemoveItem(6), nullptr);
  EXPECT_EQ(InUse(Pool()), before);
  EXPECT_EQ(object->GetRefCount(), 1U);
  EXPECT_EQ(IdsInOrder(Items()), std::vector<int>{5});
  RemoveAndDelete(5);
}

TEST_F(Registry, RemoveItemReturnsTheObjectWithItsCountRestoredAndAlive) {
  SharedValue* object = NewValue(3);
  object->UpRef();
  Items()->AddItem(7, object);
  EXPECT_EQ(Items()->RemoveItem(7), object);
  EXPECT_EQ(object->GetRefCount(), 1U);
  EXPECT_EQ(object->Value(), 3);
  EXPECT_EQ(BlockHeader(object) >> 24, NuvMempool::catalog);
  object->DownRef();
  delete object;
}

TEST_F(Registry, RemoveItemLeavesACoreObjectAliveAtZero) {
  auto* core = new (Pool()) NuvCore(NuvMempool::catalog);
  Items()->AddItem(7, core);
  EXPECT_EQ(Items()->RemoveItem(7), core);
  EXPECT_EQ(core->GetRefCount(), 0U);
  EXPECT_EQ(BlockHeader(core) >> 24, NuvMempool::catalog);
  core->DeleteThis();
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(Registry, RemovedIdIsNoLongerFound) {
  Register(7, 1);
  RemoveAndDelete(7);
  EXPECT_EQ(Items()->FindItem(7), nullptr);
  EXPECT_TRUE(IdsInOrder(Items()).empty());
}

TEST_F(Registry, ItemIsATwelveByteBlockOfUserNuv) {
  const std::vector<unsigned> before = NuvUsage(Pool());
  Register(5, 1);
  const Item* item = Head(Items());
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(BlockHeader(item) >> 24, NuvMempool::nuv);
  EXPECT_EQ(BlockHeader(item) & 0x00ffffff, kItemBlockSize);
  EXPECT_EQ(NuvUsage(Pool()), (std::vector<unsigned>{before[0] + 1, before[1] + kItemPayload}));
  RemoveAndDelete(5);
}

TEST_F(Registry, RemoveItemFreesTheItemBlock) {
  Register(5, 1);
  RemoveAndDelete(5);
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(Registry, ItemsKeepTheirInsertionOrder) {
  for (const int id : {3, 1, 2}) {
    Register(id, id);
  }
  EXPECT_EQ(IdsInOrder(Items()), (std::vector<int>{3, 1, 2}));
  for (const int id : {3, 1, 2}) {
    RemoveAndDelete(id);
  }
}

TEST_F(Registry, RemovalFromTheMiddleKeepsTheOthersInOrderAndNewOnesGoLast) {
  for (const int id : {3, 1, 2}) {
    Register(id, id);
  }
  RemoveAndDelete(1);
  Register(1, 1);
  EXPECT_EQ(IdsInOrder(Items()), (std::vector<int>{3, 2, 1}));
  for (const int id : {3, 1, 2}) {
    RemoveAndDelete(id);
  }
}

TEST_F(Registry, DestructorDropsEachReferenceWithoutDeleting) {
  auto* registry = new (Pool()) NuvMempoolRegistry();
  auto* first = new (Pool()) NuvCore(NuvMempool::catalog);
  auto* second = new (Pool()) NuvCore(NuvMempool::catalog);
  registry->AddItem(1, first);
  registry->AddItem(2, second);
  delete registry;
  EXPECT_EQ(first->GetRefCount(), 0U);
  EXPECT_EQ(second->GetRefCount(), 0U);
  EXPECT_EQ(BlockHeader(first) >> 24, NuvMempool::catalog);
  EXPECT_EQ(BlockHeader(second) >> 24, NuvMempool::catalog);
  first->DeleteThis();
  second->DeleteThis();
}

TEST_F(Registry, DestructorFreesTheItems) {
  auto* first = new (Pool()) NuvCore(NuvMempool::catalog);
  auto* second = new (Pool()) NuvCore(NuvMempool::catalog);
  const std::vector<unsigned> withObjects = InUse(Pool());
  auto* registry = new (Pool()) NuvMempoolRegistry();
  registry->AddItem(1, first);
  registry->AddItem(2, second);
  delete registry;
  EXPECT_EQ(InUse(Pool()), withObjects);
  first->DeleteThis();
  second->DeleteThis();
}

// Both processes finish each round before either starts the next, so that their AddItem calls
// meet on the registry's lock word round after round.
TEST_F(Registry, ConcurrentAddItemFromTwoProcessesKeepsEveryItem) {
  const nuv::test::SharedObject<Arrivals> arrivals;
  const auto addInRounds = [this, &arrivals](int firstId) {
    return [this, &arrivals, firstId] {
      for (unsigned round = 0; round < kRounds; ++round) {
        const int id = firstId + static_cast<int>(round);
        Items()->AddItem(id, NewValue(id));
        fadd(&arrivals->count, 1);
        while (arrivals->count < 2 * (round + 1)) {
          sched_yield();
        }
      }
    };
  };
  ChildProcess first(addInRounds(0));
  ChildProcess second(addInRounds(kRounds));
  const ChildOutcome firstOutcome = first.Finish(kChildDeadline);
  const ChildOutcome secondOutcome = second.Finish(kChildDeadline);
  ASSERT_TRUE(firstOutcome.Exited() && firstOutcome.ExitCode() == 0) << firstOutcome.err;
  ASSERT_TRUE(secondOutcome.Exited() && secondOutcome.ExitCode() == 0) << secondOutcome.err;
  EXPECT_EQ(IdsInOrder(Items()).size(), 2 * kRounds);
  for (int id = 0; id < static_cast<int>(2 * kRounds); ++id) {
    const SharedValue* object = AsValue(Items()->FindItem(id));
    ASSERT_NE(object, nullptr) << id;
    EXPECT_EQ(object->Value(), id);
    EXPECT_EQ(object->GetRefCount(), 1U);
    RemoveAndDelete(id);
  }
  EXPECT_EQ(InUse(Pool()), Start());
}

TEST_F(Registry, SecondProgramFindsTheObjectById) {
  Register(5, 42);
  const ChildOutcome outcome = RunHelper({kPoolName, "5"});
  ASSERT_TRUE(outcome.Exited() && outcome.ExitCode() == 0) << outcome.out << outcome.err;
  EXPECT_EQ(outcome.out, "found 5: value 42, count 1, same pool\n");
  RemoveAndDelete(5);
}

TEST_F(Registry, SecondProgramFindsEachIdAmongSeveral) {
  Register(1, 10);
  Register(2, 20);
  Register(3, 30);
  const ChildOutcome outcome = RunHelper({kPoolName, "2"});
  EXPECT_EQ(outcome.out, "found 2: value 20, count 1, same pool\n") << outcome.err;
  for (const int id : {1, 2, 3}) {
    RemoveAndDelete(id);
  }
}

TEST_F(Registry, SecondProgramFindsNothingForAnAbsentId) {
  Register(1, 10);
  const ChildOutcome outcome = RunHelper({kPoolName, "9"});
  EXPECT_EQ(outcome.out, "no object 9\n") << outcome.err;
  RemoveAndDelete(1);
}

TEST_F(Registry, ItemRemovedByASecondProgramIsNoLongerFound) {
  SharedValue* object = Register(5, 42);
  const ChildOutcome outcome = RunHelper({kPoolName, "5", "remove"});
  EXPECT_EQ(outcome.out, "removed 5: value 42, count 0, same pool\n") << outcome.err;
  EXPECT_EQ(Items()->FindItem(5), nullptr);
  EXPECT_EQ(object->GetRefCount(), 0U);
  delete object;
  EXPECT_EQ(InUse(Pool()), Start());
}

}  // namespace
