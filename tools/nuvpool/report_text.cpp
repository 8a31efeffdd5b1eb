/// \file The reports for people.
#include "figures.h"
#include "report.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace nuvpool {

namespace {

void Add(std::string* text, const char* format, ...) __attribute__((format(printf, 2, 3)));

void Add(std::string* text, const char* format, ...) {
  char line[512];
  va_list arguments = {};
  va_start(arguments, format);
  std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  *text += line;
}

void AddFile(std::string* text, const std::string& path, const PoolModel& model) {
  Add(text, "Pool \"%s\" in %s\n", model.header.name.c_str(), path.c_str());
  Add(text, "  file %u bytes, %s, mapped at 0x%08x (length %u), pool at 0x%08x, %u bytes\n",
      model.fileSize, ByteOrderName(model.order), model.base, model.length, model.Pool(),
      model.header.size);
}

std::string PidList(const std::vector<int>& pids, const Processes& processes) {
  std::string list;
  for (int pid : pids) {
    Add(&list, "%s%d (%s)", list.empty() ? "" : ", ", pid, processes.Alive(pid) ? "alive" : "gone");
  }
  return list.empty() ? "none" : list;
}

void AddState(std::string* text, const Processes& processes) {
  Add(text, "  state: %s; attached: %s\n", processes.Active() ? "active" : "stale",
      PidList(processes.attached, processes).c_str());
}

void AddArena(std::string* text, const PoolModel& model) {
  const Header& h = model.header;
  const uint64_t end = uint64_t{model.Pool()} + h.size;
  Add(text, "\nArena\n");
  Add(text, "  heap    0x%08x to 0x%08x  %u bytes\n", h.firstSentinel, h.topSentinel + 8,
      h.topSentinel + 8 - h.firstSentinel);
  Add(text, "  gap     %u bytes (reserve %u)\n", model.Gap(), h.reserve);
  Add(text, "  chunks  0x%08x to 0x%08llx  %llu bytes (granule %u)\n", h.chunkFloor,
      static_cast<unsigned long long>(end), static_cast<unsigned long long>(end - h.chunkFloor),
      h.granule);
  Add(text, "  checking %s, out-of-memory handler 0x%08x\n", h.checking != 0 ? "on" : "off",
      h.outOfMemoryHandler);
}

void AddUsageRow(std::string* text, const char* name, const Usage& u) {
  Add(text, "  %-11s %7u %10u %7u %10u %6u %10u %6u %10u\n", name, u.blocks, u.bytes, u.blocksHigh,
      u.bytesHigh, u.chunks, u.chunkBytes, u.chunksHigh, u.chunkBytesHigh);
}

void AddOwners(std::string* text, const Statistics& s) {
  Add(text, "\n%-13s %7s %10s %7s %10s %6s %10s %6s %10s\n", "Owners", "blocks", "bytes", "high",
      "high", "chunks", "bytes", "high", "high");
  for (unsigned user = 0; user < format::kUsers; ++user) {
    const Usage& u = s.owners[user];
    if ((u.blocks | u.bytes | u.blocksHigh | u.bytesHigh | u.chunks | u.chunkBytes | u.chunksHigh |
         u.chunkBytesHigh) != 0) {
      AddUsageRow(text, OwnerName(user), u);
    }
  }
  AddUsageRow(text, "TOTAL", s.totals);
  Add(text, "  %u allocations looked at %u free blocks; empty pool: %u blocks, %u bytes\n",
      s.mallocCalls, s.blocksExamined, s.emptyBlocks, s.emptyBytes);
}

void AddFreeSpace(std::string* text, const PoolModel& model) {
  const FreeSpace space = MeasureFreeSpace(model);
  Add(text, "\n%-13s %7s %10s %10s\n", "Free space", "blocks", "bytes", "largest");
  for (unsigned bucket = 0; bucket < format::kBuckets; ++bucket) {
    const Bucket& b = model.buckets[bucket];
    if (b.blocks != 0) {
      Add(text, "  bucket %-4u %7u %10u %10u\n", bucket, b.blocks, b.bytes, b.largest);
    }
  }
  Add(text, "  %u free blocks of %u bytes, largest %u; gap %u; fragmentation %.1f%%\n",
      space.blocks, space.bytes, space.largestBlock, space.gap, 100 * space.fragmentation);
}

void AddChunks(std::string* text, const PoolModel& model) {
  Add(text, "\nChunks: %zu\n", model.chunks.size());
  for (const Chunk& c : model.chunks) {
    Add(text, "  0x%08x %8u bytes  %s\n", c.address, c.size,
        c.free != 0 ? "free" : OwnerName(c.user));
  }
}

void AddQueues(std::string* text, const PoolModel& model, const Processes& processes) {
  Add(text, "\nMessage queues: %zu\n", model.queues.size());
  for (const Queue& q : model.queues) {
    std::vector<int> receivers;
    for (const Waiter& w : q.receivers) {
      receivers.push_back(w.pid);
    }
    Add(text, "  queue %d at 0x%08x: %u message%s%s; receivers waiting: %s\n", q.number, q.address,
        q.depth, q.depth == 1 ? "" : "s", q.lock != 0 ? ", lock word held" : "",
        PidList(receivers, processes).c_str());
  }
}

void AddSemaphores(std::string* text, const PoolModel& model, const Processes& processes) {
  Add(text, "\nSemaphores: %zu\n", model.semaphores.size());
  for (const Semaphore& s : model.semaphores) {
    std::vector<int> pids;
    for (const Waiter& w : s.waiters) {
      pids.push_back(w.pid);
    }
    Add(text, "  0x%08x %-24s count %d%s; waiting: %s\n", s.address, s.role.c_str(), s.count,
        s.lock != 0 ? ", lock word held" : "", PidList(pids, processes).c_str());
  }
}

void AddQueueBlocks(std::string* text, const PoolModel& model, const Processes& processes) {
  const QueueBlocks& stock = model.queueBlocks;
  Add(text, "\nWait-queue blocks at 0x%08x: %u of %u free%s\n", stock.address, stock.free,
      format::kQueueBlocks, stock.lock != 0 ? ", lock word held" : "");
  for (const Waiter& w : stock.waiting) {
    Add(text, "  block 0x%08x: process %d (%s) waits on semaphore 0x%08x\n", w.block, w.pid,
        processes.Alive(w.pid) ? "alive" : "gone", w.semaphore);
  }
}

void AddRegistry(std::string* text, const PoolModel& model) {
  const Registry& r = model.registry;
  Add(text, "\nRegistry at 0x%08x: %zu entr%s%s\n", r.address, r.entries.size(),
      r.entries.size() == 1 ? "y" : "ies", r.lock != 0 ? ", lock word held" : "");
  for (const RegistryEntry& e : r.entries) {
    Add(text, "  id %d: object 0x%08x, %s, block %u bytes, %u references\n", e.id, e.object,
        OwnerName(e.owner), e.blockSize, e.references);
  }
}

void AddHeldLocks(std::string* text, const PoolModel& model, const Processes& processes) {
  Add(text, "\nLock words held: %zu\n", model.heldLocks.size());
  const bool orphaned = !processes.AnyAttachedAlive();
  for (const HeldLock& lock : model.heldLocks) {
    Add(text, "  %s at 0x%08x holds %u%s\n", lock.what.c_str(), lock.address, lock.value,
        orphaned ? "  !!! NO LIVE PROCESS IS ATTACHED: NOBODY WILL RELEASE IT !!!" : "");
  }
}

void AddFindings(std::string* text, const PoolModel& model) {
  for (const Finding& f : model.findings) {
    Add(text, "  offset 0x%08x (0x%08x): %s\n", f.address - model.base, f.address, f.what.c_str());
  }
}

}  // namespace

std::string ListText(const std::string& prefix, const std::vector<ListedPool>& pools) {
  std::string text;
  Add(&text, "Pools in /var/tmp with prefix \"%s\": %zu\n", prefix.c_str(), pools.size());
  if (!pools.empty()) {
    Add(&text, "  %-20s %10s  %-10s  %-6s  %-7s  %s\n", "NAME", "SIZE", "BASE", "ORDER", "STATE",
        "ATTACHED");
  }
  for (const ListedPool& pool : pools) {
    std::string pids;
    for (int pid : pool.attached) {
      Add(&pids, "%s%d", pids.empty() ? "" : " ", pid);
    }
    Add(&text, "  %-20s %10u  0x%08x  %-6s  %-7s  %s\n", pool.name.c_str(), pool.fileSize,
        pool.base, pool.order == ByteOrder::kBig ? "big" : "little",
        pool.attached.empty() ? "stale" : "active", pids.empty() ? "-" : pids.c_str());
  }
  return text;
}

std::string ShowText(const std::string& path, const PoolModel& model, const Processes& processes) {
  std::string text;
  AddFile(&text, path, model);
  AddState(&text, processes);
  AddArena(&text, model);
  AddOwners(&text, model.statistics);
  AddFreeSpace(&text, model);
  AddChunks(&text, model);
  AddQueues(&text, model, processes);
  AddSemaphores(&text, model, processes);
  AddQueueBlocks(&text, model, processes);
  AddRegistry(&text, model);
  AddHeldLocks(&text, model, processes);
  Add(&text, "\nSuggested pool size: %u bytes (the high-water marks with a quarter to spare)\n",
      SuggestedPoolSize(model));
  Add(&text, "Check: %s\n", model.findings.empty() ? "sound" : "NOT SOUND (see nuvpool check)");
  return text;
}

std::string CheckText(const std::string& path, const PoolModel& model) {
  std::string text;
  AddFile(&text, path, model);
  Add(&text, "  %zu blocks, %zu chunk records walked: %s\n", model.blocks.size(),
      model.chunks.size(),
      model.findings.empty() ? "sound"
                             : (std::to_string(model.findings.size()) + " findings").c_str());
  AddFindings(&text, model);
  return text;
}

std::string BlocksText(const std::string& path, const PoolModel& model, int owner) {
  std::string text;
  AddFile(&text, path, model);
  const std::vector<Block> blocks = LiveBlocks(model, owner);
  uint64_t bytes = 0;
  for (const Block& b : blocks) {
    bytes += b.size - 8;
  }
  Add(&text, "  %zu blocks in use%s%s, %llu bytes\n", blocks.size(), owner < 0 ? "" : " by ",
      owner < 0 ? "" : OwnerName(static_cast<unsigned>(owner)),
      static_cast<unsigned long long>(bytes));
  Add(&text, "  %-10s %10s  %s\n", "ADDRESS", "BYTES", "OWNER");
  for (const Block& b : blocks) {
    Add(&text, "  0x%08x %10u  %s\n", b.address + 8, b.size - 8, OwnerName(b.user));
  }
  return text;
}

int ParseOwner(const std::string& name) {
  for (unsigned user = 0; user < format::kUsers - 1; ++user) {
    if (name == OwnerName(user)) {
      return static_cast<int>(user);
    }
  }
  char* end = nullptr;
  const unsigned long number = std::strtoul(name.c_str(), &end, 0);
  const bool whole = !name.empty() && end != nullptr && *end == '\0';
  return whole && number < 256 ? static_cast<int>(number) : -1;
}

std::vector<Block> LiveBlocks(const PoolModel& model, int owner) {
  std::vector<Block> blocks;
  for (const Block& b : model.blocks) {
    if (model.AllocatedAt(b.address + 8) != nullptr && (owner < 0 || b.user == unsigned(owner))) {
      blocks.push_back(b);
    }
  }
  std::stable_sort(blocks.begin(), blocks.end(),
                   [](const Block& a, const Block& b) { return a.size > b.size; });
  return blocks;
}

}  // namespace nuvpool
