/// \file The life cycle of pools in a process, and its list of attached pools.
#include <nuv/registry.h>
#include <nuv/status.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <unistd.h>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/descriptors.h"
#include "support/pool_prefix.h"

namespace {

using nuv::test::ChildOutcome;
using nuv::test::ChildProcess;
using nuv::test::RunInChild;
using nuv::test::ScopedPoolPrefix;

constexpr unsigned kPoolSize = 16 * 1024;
constexpr unsigned kFileHeaderSize = 8;
constexpr unsigned kNameOffset = 60;
constexpr unsigned kLastNameByte = 107;
// Where a pool that two processes map is made (nothing else occupies it in the test programs,
// on the device or the host), and a second such address.
constexpr uintptr_t kAgreedAddress = 0x68000000;
constexpr uintptr_t kOtherAddress = 0x6c000000;
constexpr int kItemId = 1;
constexpr std::chrono::seconds kChildDeadline{4};
constexpr int kPollMilliseconds = 4000;

char* At(uintptr_t address) { return reinterpret_cast<char*>(address); }
char* Bytes(NuvMempool* pool) { return reinterpret_cast<char*>(pool); }

unsigned FirstWord(const NuvMempool* pool) { return *reinterpret_cast<const unsigned*>(pool); }

bool FileExists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// The descriptor that the next open will get.
int NextDescriptor() {
  const int fd = open("/dev/null", O_RDONLY);
  close(fd);
  return fd;
}

bool IsDevZero(int fd) {
  char target[PATH_MAX] = {};
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  return readlink(link.c_str(), target, sizeof target - 1) > 0 &&
         std::string(target) == "/dev/zero";
}

// True when nothing is mapped at the pool's mapping any more: a mapping asked for there lands.
// Only the place where the pool was is used, never what it held.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuse-after-free"
bool Unmapped(uintptr_t mapping, unsigned length) {
  void* probe =
      mmap(reinterpret_cast<void*>(mapping), length, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (probe != MAP_FAILED) {
    munmap(probe, length);
  }
  return reinterpret_cast<uintptr_t>(probe) == mapping;
}
#pragma GCC diagnostic pop

// True when a process holds the pool file's active flag.
bool HeldByAProcess(const std::string& path) {
  const int fd = open(path.c_str(), O_RDWR);
  const bool held = fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) != 0;
  close(fd);
  return held;
}

std::vector<NuvMempool*> ListedPools() {
  std::vector<NuvMempool*> pools;
  for (const NuvMempoolLocal* entry = pAllMempoolsG; entry != nullptr; entry = entry->next) {
    pools.push_back(entry->pool);
  }
  return pools;
}

NuvMempool* Allocate(const char* name, char* base = nullptr) {
  NuvMempool* pool = nullptr;
  EXPECT_EQ(NuvMempool::Allocate(name, kPoolSize, false, base, true, pool), kNuvOk);
  return pool;
}

// Creates a named pool at the agreed address with one object registered in it.
bool CreateWithItem(const char* name) {
  NuvMempool* pool = nullptr;
  return NuvMempool::Allocate(name, kPoolSize, false, At(kAgreedAddress), true, pool) == kNuvOk &&
         pool->GetRegistry()->AddItem(kItemId, new (pool) NuvCore(NuvMempool::catalog));
}

// In this process: whether AutoAttach found the pool held, and whether the object is there.
std::string AutoAttachReport(const char* name) {
  char* base = nullptr;
  NuvMempool* pool = nullptr;
  bool attached = false;
  if (NuvMempool::AutoAttach(name, kPoolSize, base, pool, attached) != kNuvOk) {
    return "failed";
  }
  const bool laidOut = FirstWord(pool) == NuvMempool::kMagic && pool->GetRegistry() != nullptr;
  const bool found = laidOut && pool->GetRegistry()->FindItem(kItemId) != nullptr;
  delete pool;
  return std::string(attached ? "attached" : "created") + (laidOut ? ", laid out" : "") +
         (found ? ", item found" : ", no item");
}

// A forked child that runs a set-up, reports whether it succeeded, and then waits until it is
// released (or until the test ends).
class PausedChild {
 public:
  explicit PausedChild(const std::function<bool()>& setUp) : childM(Body(setUp)) {
    close(readyM[1]);
    close(releaseM[0]);
  }
  ~PausedChild() {
    Release();
    close(readyM[0]);
  }
  PausedChild(const PausedChild&) = delete;
  PausedChild& operator=(const PausedChild&) = delete;
  PausedChild(PausedChild&&) = delete;
  PausedChild& operator=(PausedChild&&) = delete;

  // True once the child reports a successful set-up.
  bool Ready() {
    pollfd ready{readyM[0], POLLIN, 0};
    char answer = 0;
    return poll(&ready, 1, kPollMilliseconds) == 1 && read(readyM[0], &answer, 1) == 1 &&
           answer == 'y';
  }
  void Release() {
    if (releaseM[1] >= 0) {
      close(releaseM[1]);
      releaseM[1] = -1;
      childM.Finish(kChildDeadline);
    }
  }

 private:
  // The pipes exist before the fork that starting the child makes.
  std::function<void()> Body(const std::function<bool()>& setUp) {
    if (pipe(readyM) != 0 || pipe(releaseM) != 0) {
      return [] {};
    }
    return [this, setUp] {
      close(readyM[0]);
      close(releaseM[1]);
      const char answer = setUp() ? 'y' : 'n';
      write(readyM[1], &answer, 1);
      char ignored = 0;
      read(releaseM[0], &ignored, 1);
    };
  }

  int readyM[2] = {-1, -1};
  int releaseM[2] = {-1, -1};
  ChildProcess childM;
};

// Each test leaves the process's list as it found it.
class PoolLifeCycle : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(pAllMempoolsG, listAtStartM); }

  const ScopedPoolPrefix& Prefix() const { return prefixM; }

 private:
  ScopedPoolPrefix prefixM;
  NuvMempoolLocal* listAtStartM = pAllMempoolsG;
};

TEST_F(PoolLifeCycle, AllocateOfANamedPoolEntersItAtTheHeadOfTheList) {
  NuvMempool* pool = Allocate("named");
  ASSERT_NE(pAllMempoolsG, nullptr);
  EXPECT_EQ(pAllMempoolsG->pool, pool);
  EXPECT_TRUE(nuv::test::IsOpen(pAllMempoolsG->fd));
  EXPECT_EQ(FindMempoolLocal(pool), pAllMempoolsG);
  EXPECT_TRUE(FileExists(Prefix().PathOf("named")));
  delete pool;
}

TEST_F(PoolLifeCycle, AllocateLaysOutTheArenaAndWritesTheName) {
  NuvMempool* pool = Allocate("laid_out");
  EXPECT_EQ(FirstWord(pool), NuvMempool::kMagic);
  EXPECT_STREQ(pool->GetName(), "laid_out");
  EXPECT_NE(pool->GetRegistry(), nullptr);
  EXPECT_EQ((pool->GetSize() + kFileHeaderSize) % static_cast<unsigned>(getpagesize()), 0U);
  EXPECT_GE(pool->GetSize(), kPoolSize);
  delete pool;
}

TEST_F(PoolLifeCycle, AllocateAtAWantedAddressPutsThePoolThere) {
  NuvMempool* pool = Allocate("placed", At(kAgreedAddress));
  EXPECT_EQ(Bytes(pool), At(kAgreedAddress + kFileHeaderSize));
  delete pool;
}

TEST_F(PoolLifeCycle, AllocateOfAnAnonymousPoolMakesNoEntryAndNoFile) {
  const int expectedFd = NextDescriptor();
  NuvMempool* pool = nullptr;
  ASSERT_EQ(NuvMempool::Allocate("anonymous", kPoolSize, false, nullptr, false, pool), kNuvOk);
  EXPECT_EQ(FindMempoolLocal(pool), nullptr);
  EXPECT_FALSE(FileExists(Prefix().PathOf("anonymous")));
  EXPECT_EQ(FirstWord(pool), NuvMempool::kMagic);
  delete pool;
  if (IsDevZero(expectedFd)) {
    close(expectedFd);
  }
}

TEST_F(PoolLifeCycle, AnonymousPoolKeepsItsDescriptorWhenDetached) {
  const int expectedFd = NextDescriptor();
  NuvMempool* pool = nullptr;
  ASSERT_EQ(NuvMempool::Allocate("anonymous", kPoolSize, false, nullptr, false, pool), kNuvOk);
  ASSERT_TRUE(IsDevZero(expectedFd));
  delete pool;
  EXPECT_TRUE(IsDevZero(expectedFd));
  close(expectedFd);
}

TEST_F(PoolLifeCycle, AllocateOverAnExistingPoolFailsAndAddsNoEntry) {
  NuvMempool* pool = Allocate("taken");
  NuvMempool* second = nullptr;
  EXPECT_EQ(NuvMempool::Allocate("taken", kPoolSize, false, nullptr, true, second), kNuvPoolExists);
  EXPECT_EQ(ListedPools().front(), pool);
  delete pool;
}

TEST_F(PoolLifeCycle, DestructorLeavesThePoolFile) {
  delete Allocate("kept");
  EXPECT_TRUE(FileExists(Prefix().PathOf("kept")));
}

TEST_F(PoolLifeCycle, DestructorRemovesTheEntryAndClosesTheDescriptor) {
  NuvMempool* pool = Allocate("detached");
  const int fd = FindMempoolLocal(pool)->fd;
  delete pool;
  EXPECT_EQ(FindMempoolLocal(pool), nullptr);
  EXPECT_FALSE(nuv::test::IsOpen(fd));
  EXPECT_FALSE(HeldByAProcess(Prefix().PathOf("detached")));
}

TEST_F(PoolLifeCycle, DestructorUnmapsThePool) {
  NuvMempool* pool = Allocate("unmapped");
  const auto mapping = reinterpret_cast<uintptr_t>(Bytes(pool) - kFileHeaderSize);
  const unsigned length = pool->GetSize() + kFileHeaderSize;
  delete pool;
  EXPECT_TRUE(Unmapped(mapping, length));
}

TEST_F(PoolLifeCycle, AttachMapsThePoolAtItsCreatorsAddressWithItsObjects) {
  ASSERT_TRUE(CreateWithItem("again"));
  NuvMempool* creator = pAllMempoolsG->pool;
  const NuvSeed* object = creator->GetRegistry()->FindItem(kItemId);
  delete creator;
  NuvMempool* pool = nullptr;
  ASSERT_EQ(NuvMempool::Attach("again", pool), kNuvOk);
  EXPECT_EQ(Bytes(pool), At(kAgreedAddress + kFileHeaderSize));
  EXPECT_EQ(pAllMempoolsG->pool, pool);
  EXPECT_STREQ(pool->GetName(), "again");
  EXPECT_EQ(pool->GetRegistry()->FindItem(kItemId), object);
  delete pool;
}

// Detaching checks the file's address word against the mapping, which a view at another base
// never matches: the view is taken apart directly.
TEST_F(PoolLifeCycle, AttachAtABaseMapsAViewOfThePoolThere) {
  NuvMempool* creator = Allocate("viewed", At(kAgreedAddress));
  NuvMempool* view = nullptr;
  ASSERT_EQ(NuvMempool::Attach("viewed", At(kOtherAddress), view), kNuvOk);
  EXPECT_EQ(Bytes(view), At(kOtherAddress + kFileHeaderSize));
  NuvMempoolLocal* entry = pAllMempoolsG;
  EXPECT_EQ(entry->pool, view);
  EXPECT_STREQ(view->GetName(), "viewed");
  EXPECT_EQ(view->GetRegistry(), creator->GetRegistry());  // absolute pointers: the creator's
  close(entry->fd);
  munmap(At(kOtherAddress), view->GetSize() + kFileHeaderSize);
  RemoveMempoolLocal(entry);
  delete creator;
}

TEST_F(PoolLifeCycle, AttachOfAMissingPoolFailsAndAddsNoEntry) {
  NuvMempool* pool = nullptr;
  EXPECT_EQ(NuvMempool::Attach("missing", pool), kNuvPoolOpenFailed);
  EXPECT_EQ(NuvMempool::Attach("missing", At(kAgreedAddress), pool), kNuvPoolOpenFailed);
}

TEST_F(PoolLifeCycle, AutoAttachWithoutAPoolCreatesAndLaysItOut) {
  char* base = nullptr;
  NuvMempool* pool = nullptr;
  bool attached = true;
  ASSERT_EQ(NuvMempool::AutoAttach("fresh", kPoolSize, base, pool, attached), kNuvOk);
  EXPECT_FALSE(attached);
  EXPECT_EQ(Bytes(pool), base);
  EXPECT_EQ(FirstWord(pool), NuvMempool::kMagic);
  EXPECT_NE(pool->GetRegistry(), nullptr);
  EXPECT_STREQ(pool->GetName(), "fresh");
  EXPECT_EQ(pAllMempoolsG->pool, pool);
  delete pool;
}

TEST_F(PoolLifeCycle, AutoAttachCreatingAPoolOfASixtyCharacterNameEndsItsNameAtByte107) {
  const std::string name(60, 'n');
  char* base = nullptr;
  NuvMempool* pool = nullptr;
  bool attached = true;
  ASSERT_EQ(NuvMempool::AutoAttach(name.c_str(), kPoolSize, base, pool, attached), kNuvOk);
  const char* field = Bytes(pool) + kNameOffset;
  EXPECT_EQ(std::string(field, kLastNameByte - kNameOffset),
            name.substr(0, kLastNameByte - kNameOffset));
  EXPECT_EQ(field[kLastNameByte - kNameOffset], '\0');
  EXPECT_EQ(pool->GetName(), field);
  delete pool;
}

TEST_F(PoolLifeCycle, AutoAttachOfAHeldPoolAttachesItAtItsCreatorsAddress) {
  PausedChild creator([] { return CreateWithItem("held"); });
  ASSERT_TRUE(creator.Ready());
  EXPECT_EQ(AutoAttachReport("held"), "attached, laid out, item found");
}

TEST_F(PoolLifeCycle, AttachedPoolLeftByItsDestructorIsRebuiltByAutoAttachInAnotherProcess) {
  ASSERT_TRUE(CreateWithItem("stale"));
  delete pAllMempoolsG->pool;
  NuvMempool* pool = nullptr;
  ASSERT_EQ(NuvMempool::Attach("stale", pool), kNuvOk);
  delete pool;
  ASSERT_TRUE(FileExists(Prefix().PathOf("stale")));
  const ChildOutcome other = RunInChild([] { printf("%s\n", AutoAttachReport("stale").c_str()); });
  EXPECT_EQ(other.out, "created, laid out, no item\n") << other.err;
}

TEST_F(PoolLifeCycle, PoolOfAnExitedCreatorIsRebuiltByAutoAttach) {
  const ChildOutcome creator = RunInChild([] { _exit(CreateWithItem("orphan") ? 0 : 1); });
  ASSERT_TRUE(creator.Exited() && creator.ExitCode() == 0) << creator.err;
  EXPECT_EQ(AutoAttachReport("orphan"), "created, laid out, no item");
}

TEST_F(PoolLifeCycle, DetachAllWithThreePoolsEmptiesTheListAndUnmapsThem) {
  ASSERT_EQ(pAllMempoolsG, nullptr);
  std::vector<uintptr_t> mappings;
  for (const char* name : {"first", "second", "third"}) {
    mappings.push_back(reinterpret_cast<uintptr_t>(Bytes(Allocate(name)) - kFileHeaderSize));
  }
  ASSERT_EQ(ListedPools().size(), 3U);
  NuvMempool::DetachAll();
  EXPECT_EQ(pAllMempoolsG, nullptr);
  for (const uintptr_t mapping : mappings) {
    EXPECT_TRUE(Unmapped(mapping, kPoolSize));
  }
}

// A forked child shares the descriptor, and so the lock that is the active flag. Here the lock
// is dropped before the fork, as a flag that was lost; the child takes it again, and the pool
// stays active once the parent has let go of it.
TEST_F(PoolLifeCycle, ActivateMempoolLocalInAForkedChildKeepsThePoolActive) {
  NuvMempool* pool = Allocate("active");
  const std::string path = Prefix().PathOf("active");
  flock(FindMempoolLocal(pool)->fd, LOCK_UN);
  ASSERT_FALSE(HeldByAProcess(path));
  PausedChild child([] {
    NuvMempool::ActivateMempoolLocal();
    return true;
  });
  ASSERT_TRUE(child.Ready());
  delete pool;
  const ChildOutcome third =
      RunInChild([&path] { printf("%s\n", HeldByAProcess(path) ? "active" : "inactive"); });
  EXPECT_EQ(third.out, "active\n") << third.err;
  child.Release();
  EXPECT_FALSE(HeldByAProcess(path));
}

TEST_F(PoolLifeCycle, CleanReturnsZeroAndRemovesThePoolFile) {
  delete Allocate("cleaned");
  EXPECT_EQ(NuvMempool::Clean("cleaned"), kNuvOk);
  EXPECT_FALSE(FileExists(Prefix().PathOf("cleaned")));
}

TEST_F(PoolLifeCycle, CleanOfAMissingPoolReturnsZero) {
  EXPECT_EQ(NuvMempool::Clean("missing"), kNuvOk);
}

// Entries for pools that are never mapped; whatever a test leaves listed goes when it ends.
class ListEntries {
 public:
  explicit ListEntries(int count) {
    for (int i = 0; i < count; ++i) {
      entriesM.push_back(AddMempoolLocal(Pool(i), 100 + i));
    }
  }
  ~ListEntries() {
    for (NuvMempoolLocal* entry : entriesM) {
      RemoveMempoolLocal(entry);
    }
  }
  ListEntries(const ListEntries&) = delete;
  ListEntries& operator=(const ListEntries&) = delete;
  ListEntries(ListEntries&&) = delete;
  ListEntries& operator=(ListEntries&&) = delete;

  NuvMempool* Pool(int index) { return reinterpret_cast<NuvMempool*>(&fakePoolsM[index]); }
  NuvMempoolLocal* Entry(int index) const { return entriesM[index]; }
  void Remove(int index) {
    RemoveMempoolLocal(entriesM[index]);
    entriesM.erase(entriesM.begin() + index);
  }

 private:
  int fakePoolsM[4] = {};
  std::vector<NuvMempoolLocal*> entriesM;
};

TEST_F(PoolLifeCycle, AddMempoolLocalFillsTheEntryAndPushesItAtTheHead) {
  ListEntries entries(1);
  NuvMempoolLocal* entry = entries.Entry(0);
  EXPECT_EQ(pAllMempoolsG, entry);
  EXPECT_EQ(entry->pool, entries.Pool(0));
  EXPECT_EQ(entry->fd, 100);
}

TEST_F(PoolLifeCycle, ListIsNewestFirst) {
  ListEntries entries(3);
  EXPECT_EQ(ListedPools(),
            (std::vector<NuvMempool*>{entries.Pool(2), entries.Pool(1), entries.Pool(0)}));
}

TEST_F(PoolLifeCycle, FindMempoolLocalFindsTheEntryOfAListedPool) {
  ListEntries entries(3);
  EXPECT_EQ(FindMempoolLocal(entries.Pool(1)), entries.Entry(1));
}

TEST_F(PoolLifeCycle, FindMempoolLocalOfAnUnlistedPoolIsNull) {
  ListEntries entries(3);
  EXPECT_EQ(FindMempoolLocal(entries.Pool(3)), nullptr);
}

TEST_F(PoolLifeCycle, RemoveMempoolLocalFromTheMiddleKeepsTheOthersInOrder) {
  ListEntries entries(3);
  NuvMempool* removed = entries.Pool(1);
  entries.Remove(1);
  EXPECT_EQ(ListedPools(), (std::vector<NuvMempool*>{entries.Pool(2), entries.Pool(0)}));
  EXPECT_EQ(FindMempoolLocal(removed), nullptr);
}

TEST_F(PoolLifeCycle, RemoveMempoolLocalOfTheHeadMakesTheNextOneHead) {
  ListEntries entries(3);
  entries.Remove(2);
  EXPECT_EQ(ListedPools(), (std::vector<NuvMempool*>{entries.Pool(1), entries.Pool(0)}));
}

TEST_F(PoolLifeCycle, RemoveMempoolLocalOfTheTailKeepsTheRest) {
  ListEntries entries(3);
  entries.Remove(0);
  EXPECT_EQ(ListedPools(), (std::vector<NuvMempool*>{entries.Pool(2), entries.Pool(1)}));
}

TEST_F(PoolLifeCycle, RemoveMempoolLocalOfAnUnlistedEntryChangesNothing) {
  ListEntries entries(2);
  NuvMempoolLocal unlisted{entries.Pool(3), 103, nullptr};
  RemoveMempoolLocal(&unlisted);
  EXPECT_EQ(ListedPools(), (std::vector<NuvMempool*>{entries.Pool(1), entries.Pool(0)}));
}

}  // namespace
