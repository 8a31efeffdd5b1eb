/// \file The pool header, the statistics, and the sums that tie the heap to the statistics.
#include "pool_reader.h"

#include <cstdarg>
#include <cstdio>

namespace nuvpool {

namespace {

// Offsets in the pool header.
constexpr uint32_t kStatisticsOffset = 116;
constexpr uint32_t kBucketHeadsOffset = 616;
constexpr uint32_t kFirstSentinelOffset = 692;
constexpr uint32_t kTopSentinelOffset = 700;
constexpr uint32_t kLockOffset = 112;
constexpr uint32_t kNameOffset = 60;
constexpr uint32_t kNameLength = 48;
constexpr uint32_t kGranule = 512;

void CheckHeader(PoolModel* model) {
  const Header& h = model->header;
  const uint32_t pool = model->Pool();
  if (model->length != model->fileSize) {
    Note(model, model->base, "the file holds %u bytes where its header gives a length of %u",
         model->fileSize, model->length);
  }
  if (h.size != model->length - format::kFileHeaderSize) {
    Note(model, pool + 4, "pool size %u does not match the mapping length %u less 8", h.size,
         model->length);
  }
  const struct {
    uint32_t value, expected;
    const char* what;
  } pointers[] = {{h.buckets, pool + kBucketHeadsOffset, "bucket heads pointer"},
                  {h.firstSentinel, pool + kFirstSentinelOffset, "first sentinel pointer"},
                  {h.lockPointer, pool + kLockOffset, "lock word pointer"},
                  {h.statistics, pool + kStatisticsOffset, "statistics pointer"},
                  {h.granule, kGranule, "chunk granule"}};
  for (const auto& p : pointers) {
    if (p.value != p.expected) {
      Note(model, pool, "%s is 0x%08x, not 0x%08x", p.what, p.value, p.expected);
    }
  }
  const uint64_t poolEnd = uint64_t{pool} + h.size;
  if (h.topSentinel < pool + kTopSentinelOffset || h.topSentinel >= h.chunkFloor ||
      h.chunkFloor > poolEnd) {
    Note(model, pool + 16,
         "top sentinel 0x%08x and chunk floor 0x%08x are not in order inside the pool "
         "(0x%08x to 0x%08llx)",
         h.topSentinel, h.chunkFloor, pool, static_cast<unsigned long long>(poolEnd));
  }
}

}  // namespace

void Note(PoolModel* model, uint32_t address, const char* format, ...) {
  char text[256];
  va_list arguments = {};
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  model->findings.push_back({address, text});
}

void ReadHeader(const PoolImage& image, PoolModel* model) {
  const uint32_t pool = image.Pool();
  Header& h = model->header;
  uint32_t* const words[] = {&h.magic,       &h.size,      &h.buckets,     &h.firstSentinel,
                             &h.topSentinel, &h.reserve,   &h.chunkFloor,  &h.granule,
                             &h.queueBlocks, &h.messenger, &h.lockPointer, &h.chunkRecords,
                             &h.statistics,  &h.registry,  &h.checking};
  uint32_t address = pool;
  for (uint32_t* word : words) {
    *word = image.Word(address);
    address += 4;
  }
  h.name = image.Text(pool + kNameOffset, kNameLength);
  h.outOfMemoryHandler = image.Word(pool + kNameOffset + kNameLength);
  h.lockWord = image.Word(pool + kLockOffset);
  CheckHeader(model);
}

void ReadStatistics(const PoolImage& image, PoolModel* model) {
  const uint32_t words = model->Pool() + kStatisticsOffset;
  auto at = [&](unsigned index) { return image.Word(words + 4 * index); };
  Statistics& s = model->statistics;
  s.totals = {at(0), at(1), at(2), at(3), at(4), at(5), at(6), at(7)};
  for (unsigned user = 0; user < format::kUsers; ++user) {
    s.owners[user] = {at(8 + user),  at(36 + user), at(22 + user), at(50 + user),
                      at(64 + user), at(92 + user), at(78 + user), at(106 + user)};
  }
  s.emptyBytes = at(120);
  s.emptyBlocks = at(121);
  s.emptyChunks = at(122);
  s.mallocCalls = at(123);
  s.blocksExamined = at(124);
}

void CompareCounts(PoolModel* model) {
  Usage walked[format::kUsers];
  uint32_t blocks = 0;
  uint32_t bytes = 0;
  for (const Block& block : model->blocks) {
    if (model->AllocatedAt(block.address + 8) == nullptr || block.user == 1) {
      continue;
    }
    ++blocks;
    bytes += block.size - 8;
    if (block.user < format::kUsers) {
      ++walked[block.user].blocks;
      walked[block.user].bytes += block.size - 8;
    }
  }
  const Statistics& s = model->statistics;
  const uint32_t pool = model->Pool();
  if (bytes != s.totals.bytes || blocks != s.totals.blocks) {
    Note(model, pool + kStatisticsOffset,
         "the heap holds %u blocks of %u bytes in use, the statistics count %u blocks of %u "
         "bytes",
         blocks, bytes, s.totals.blocks, s.totals.bytes);
  }
  for (unsigned user = 2; user < format::kUsers; ++user) {
    const Usage& counted = s.owners[user];
    if (walked[user].blocks != counted.blocks || walked[user].bytes != counted.bytes) {
      Note(model, pool + kStatisticsOffset,
           "owner %s holds %u blocks of %u bytes, the statistics count %u blocks of %u bytes",
           OwnerName(user), walked[user].blocks, walked[user].bytes, counted.blocks, counted.bytes);
    }
  }
}

PoolModel ReadPool(const PoolImage& image) {
  PoolModel model;
  model.order = image.Order();
  model.fileSize = static_cast<uint32_t>(image.FileSize());
  model.base = image.Base();
  model.length = image.Length();
  ReadHeader(image, &model);
  ReadStatistics(image, &model);
  WalkHeap(image, &model);
  WalkBuckets(image, &model);
  CompareCounts(&model);
  WalkChunks(image, &model);
  ReadObjects(image, &model);
  return model;
}

}  // namespace nuvpool
