/// \file The chunk records: newest first, which is lowest address first, from the chunk floor up
/// to the end of the pool without a gap.
#include "pool_reader.h"

#include <set>

namespace nuvpool {

namespace {

constexpr uint32_t kRecordPayload = 20;
constexpr unsigned kNuvUser = 3;

bool IsRecord(const PoolModel& model, uint32_t at) {
  const Block* block = model.AllocatedAt(at);
  return block != nullptr && block->user == kNuvUser && block->size - 8 >= kRecordPayload;
}

void CheckChunk(const Chunk& chunk, uint32_t expectedAddress, PoolModel* model) {
  const uint32_t granule = model->header.granule;
  if (chunk.size == 0 || granule == 0 || chunk.size % granule != 0) {
    Note(model, chunk.record + 4, "chunk of %u bytes is not a whole number of %u-byte granules",
         chunk.size, granule);
  }
  if (chunk.address != expectedAddress) {
    Note(model, chunk.record, "chunk at 0x%08x should start at 0x%08x, where the one below ends",
         chunk.address, expectedAddress);
  }
  if (chunk.free > 1 || (chunk.free == 1 && chunk.user != 0)) {
    Note(model, chunk.record + 8, "chunk record reads user %u and free flag %u", chunk.user,
         chunk.free);
  }
}

void CompareChunkCounts(const Usage* walked, PoolModel* model) {
  const Statistics& s = model->statistics;
  uint32_t chunks = 0;
  uint32_t bytes = 0;
  for (unsigned user = 0; user < format::kUsers; ++user) {
    chunks += walked[user].chunks;
    bytes += walked[user].chunkBytes;
    if (walked[user].chunks != s.owners[user].chunks ||
        walked[user].chunkBytes != s.owners[user].chunkBytes) {
      Note(model, model->Pool() + 116,
           "owner %s holds %u chunks of %u bytes, the statistics count %u chunks of %u bytes",
           OwnerName(user), walked[user].chunks, walked[user].chunkBytes, s.owners[user].chunks,
           s.owners[user].chunkBytes);
    }
  }
  if (chunks != s.totals.chunks || bytes != s.totals.chunkBytes) {
    Note(model, model->Pool() + 116,
         "the chunk records hold %u chunks of %u bytes in use, the statistics count %u of %u",
         chunks, bytes, s.totals.chunks, s.totals.chunkBytes);
  }
}

}  // namespace

void WalkChunks(const PoolImage& image, PoolModel* model) {
  std::set<uint32_t> seen;
  Usage walked[format::kUsers];
  uint32_t expected = model->header.chunkFloor;
  for (uint32_t at = model->header.chunkRecords; at != 0; at = image.Word(at + 16)) {
    if (!IsRecord(*model, at) || !seen.insert(at).second) {
      Note(model, at, "chunk list reaches 0x%08x, which is not a chunk record of its own", at);
      break;
    }
    const Chunk chunk{at, image.Word(at), image.Word(at + 4), image.Word(at + 8),
                      image.Word(at + 12)};
    CheckChunk(chunk, expected, model);
    if (chunk.free == 0 && chunk.user < format::kUsers) {
      ++walked[chunk.user].chunks;
      walked[chunk.user].chunkBytes += chunk.size;
    }
    model->chunks.push_back(chunk);
    expected = chunk.address + chunk.size;
  }
  const uint32_t poolEnd = model->Pool() + model->header.size;
  if (expected != poolEnd) {
    Note(model, model->Pool() + 44, "the chunks end at 0x%08x, not at the end of the pool 0x%08x",
         expected, poolEnd);
  }
  CompareChunkCounts(walked, model);
}

}  // namespace nuvpool
