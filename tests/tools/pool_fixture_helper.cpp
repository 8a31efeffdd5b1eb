/// \file Builds pool NAME in a state that the nuvpool tests know by heart: blocks of several
/// owners with free blocks between them, two chunks (the older one returned), two message queues
/// (one holding three messages), a registered object and a semaphore of its own. Every step is
/// the same on every target, so that pools built by the device and by the host read alike.
#include <nuv/mempool.h>
#include <nuv/messenger.h>
#include <nuv/registry.h>
#include <nuv/seed.h>
#include <nuv/semaphore.h>
#include <nuv/status.h>

#include <cstdio>
#include <utility>

namespace {

// Where every target maps the fixture, so that its addresses read alike too.
char* const kFixtureBase = reinterpret_cast<char*>(0x5a000000);
constexpr unsigned kFixtureSize = 16 * 1024 - 8;

// Returns the two blocks that main frees last, so that they stay free.
std::pair<void*, void*> AllocateBlocks(NuvMempool* pool) {
  pool->Malloc(100, NuvMempool::catalog);
  void* catalog = pool->Malloc(200, NuvMempool::catalog);
  pool->Malloc(1000, NuvMempool::orb);
  void* orb = pool->Malloc(40, NuvMempool::orb);
  pool->Malloc(40, NuvMempool::script);
  pool->Malloc(3000, NuvMempool::remote);
  pool->Malloc(17, NuvMempool::unknown);
  return {catalog, orb};
}

void TakeChunks(NuvMempool* pool) {
  void* older = pool->GetChunk(600, NuvMempool::catalog);
  pool->GetChunk(100, NuvMempool::glyph);
  pool->ReturnChunk(older);
}

void FillQueues(NuvMempool* pool) {
  NuvMessenger* messenger = pool->GetMessenger();
  const int number = messenger->CreateQueue(5);
  messenger->CreateNamedQueue(42, 10);
  for (unsigned type = 1; type <= 3; ++type) {
    NuvMessage message{type, {10 * type, 0, 0, 0, 0, 0}};
    messenger->isend(number, message, 0, nullptr);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: pool_fixture_helper NAME\n");
    return 2;
  }
  NuvMempool* pool = nullptr;
  const unsigned result =
      NuvMempool::Allocate(argv[1], kFixtureSize, true, kFixtureBase, true, pool);
  if (result != kNuvOk) {
    std::printf("allocate failed 0x%x\n", result);
    return 1;
  }
  const auto freedLast = AllocateBlocks(pool);
  TakeChunks(pool);
  FillQueues(pool);
  pool->GetRegistry()->AddItem(7, new (pool) NuvCore(NuvMempool::control));
  (new (pool) NuvSema(NuvMempool::overlay))->init(3, false);
  pool->Free(freedLast.first);
  pool->Free(freedLast.second);
  delete pool;
  return 0;
}
