/// \file The JSON reports.
#include "figures.h"
#include "json_writer.h"
#include "report.h"

namespace nuvpool {

namespace {

void WritePoolFile(JsonWriter& json, const std::string& path, const PoolModel& model) {
  json.Key("file").BeginObject();
  json.Key("path").String(path);
  json.Key("size").Number(model.fileSize);
  json.Key("byteOrder").String(model.order == ByteOrder::kBig ? "big" : "little");
  json.Key("base").Number(model.base);
  json.Key("length").Number(model.length);
  json.EndObject();
}

void WriteUsage(JsonWriter& json, const Usage& usage) {
  json.Key("blocks").Number(usage.blocks);
  json.Key("bytes").Number(usage.bytes);
  json.Key("blocksHigh").Number(usage.blocksHigh);
  json.Key("bytesHigh").Number(usage.bytesHigh);
  json.Key("chunks").Number(usage.chunks);
  json.Key("chunkBytes").Number(usage.chunkBytes);
  json.Key("chunksHigh").Number(usage.chunksHigh);
  json.Key("chunkBytesHigh").Number(usage.chunkBytesHigh);
}

void WriteHeader(JsonWriter& json, const PoolModel& model) {
  const Header& h = model.header;
  json.Key("header").BeginObject();
  json.Key("name").String(h.name);
  json.Key("address").Number(model.Pool());
  json.Key("size").Number(h.size);
  json.Key("reserve").Number(h.reserve);
  json.Key("granule").Number(h.granule);
  json.Key("checking").Bool(h.checking != 0);
  json.Key("outOfMemoryHandler").Number(h.outOfMemoryHandler);
  json.Key("heapStart").Number(h.firstSentinel);
  json.Key("topSentinel").Number(h.topSentinel);
  json.Key("chunkFloor").Number(h.chunkFloor);
  json.Key("poolEnd").Number(int64_t{model.Pool()} + h.size);
  json.EndObject();
}

void WriteOwners(JsonWriter& json, const Statistics& statistics) {
  json.Key("owners").BeginArray();
  for (unsigned user = 0; user < format::kUsers; ++user) {
    const Usage& u = statistics.owners[user];
    if ((u.blocks | u.bytes | u.blocksHigh | u.bytesHigh | u.chunks | u.chunkBytes | u.chunksHigh |
         u.chunkBytesHigh) == 0) {
      continue;
    }
    json.BeginObject().Key("user").Number(user).Key("name").String(OwnerName(user));
    WriteUsage(json, u);
    json.EndObject();
  }
  json.EndArray();
  json.Key("totals").BeginObject();
  WriteUsage(json, statistics.totals);
  json.EndObject();
  json.Key("allocator").BeginObject();
  json.Key("mallocCalls").Number(statistics.mallocCalls);
  json.Key("blocksExamined").Number(statistics.blocksExamined);
  json.Key("emptyBytes").Number(statistics.emptyBytes);
  json.Key("emptyBlocks").Number(statistics.emptyBlocks);
  json.Key("emptyChunks").Number(statistics.emptyChunks);
  json.EndObject();
}

void WriteFreeSpace(JsonWriter& json, const PoolModel& model) {
  const FreeSpace space = MeasureFreeSpace(model);
  json.Key("free").BeginObject();
  json.Key("buckets").BeginArray();
  for (unsigned bucket = 0; bucket < format::kBuckets; ++bucket) {
    const Bucket& b = model.buckets[bucket];
    json.BeginObject().Key("bucket").Number(bucket).Key("blocks").Number(b.blocks);
    json.Key("bytes").Number(b.bytes).Key("largest").Number(b.largest).EndObject();
  }
  json.EndArray();
  json.Key("blocks").Number(space.blocks).Key("bytes").Number(space.bytes);
  json.Key("largestBlock").Number(space.largestBlock).Key("gap").Number(space.gap);
  json.Key("largest").Number(space.largest).Key("fragmentation").Fraction(space.fragmentation);
  json.EndObject();
}

void WriteChunks(JsonWriter& json, const PoolModel& model) {
  json.Key("chunks").BeginArray();
  for (const Chunk& c : model.chunks) {
    json.BeginObject().Key("address").Number(c.address).Key("size").Number(c.size);
    json.Key("owner").String(OwnerName(c.user)).Key("free").Bool(c.free != 0).EndObject();
  }
  json.EndArray();
}

void WriteWaiters(JsonWriter& json, const std::vector<Waiter>& waiters,
                  const Processes& processes) {
  json.Key("waiters").BeginArray();
  for (const Waiter& w : waiters) {
    json.BeginObject().Key("pid").Number(w.pid).Key("alive").Bool(processes.Alive(w.pid));
    json.Key("block").Number(w.block).Key("semaphore").Number(w.semaphore).EndObject();
  }
  json.EndArray();
}

void WriteQueues(JsonWriter& json, const PoolModel& model) {
  json.Key("queues").BeginArray();
  for (const Queue& q : model.queues) {
    json.BeginObject().Key("address").Number(q.address).Key("number").Number(q.number);
    json.Key("depth").Number(q.depth).Key("references").Number(q.references);
    json.Key("lockHeld").Bool(q.lock != 0);
    json.Key("receiveSemaphore").Number(q.receive).Key("sizeSemaphore").Number(q.size);
    json.Key("waitingReceivers").BeginArray();
    for (const Waiter& w : q.receivers) {
      json.Number(w.pid);
    }
    json.EndArray().EndObject();
  }
  json.EndArray();
}

void WriteSemaphores(JsonWriter& json, const PoolModel& model, const Processes& processes) {
  json.Key("semaphores").BeginArray();
  for (const Semaphore& s : model.semaphores) {
    json.BeginObject().Key("address").Number(s.address).Key("role").String(s.role);
    json.Key("owner").String(OwnerName(s.owner)).Key("count").Number(s.count);
    json.Key("lockHeld").Bool(s.lock != 0);
    WriteWaiters(json, s.waiters, processes);
    json.EndObject();
  }
  json.EndArray();
}

void WriteQueueBlocks(JsonWriter& json, const PoolModel& model, const Processes& processes) {
  const QueueBlocks& stock = model.queueBlocks;
  json.Key("queueBlocks").BeginObject();
  json.Key("address").Number(stock.address).Key("total").Number(format::kQueueBlocks);
  json.Key("free").Number(stock.free).Key("lockHeld").Bool(stock.lock != 0);
  WriteWaiters(json, stock.waiting, processes);
  json.EndObject();
}

void WriteRegistry(JsonWriter& json, const PoolModel& model) {
  json.Key("registry").BeginObject();
  json.Key("address").Number(model.registry.address);
  json.Key("lockHeld").Bool(model.registry.lock != 0);
  json.Key("entries").BeginArray();
  for (const RegistryEntry& e : model.registry.entries) {
    json.BeginObject().Key("id").Number(e.id).Key("object").Number(e.object);
    json.Key("owner").String(OwnerName(e.owner)).Key("blockSize").Number(e.blockSize);
    json.Key("references").Number(e.references).EndObject();
  }
  json.EndArray().EndObject();
}

void WriteHeldLocks(JsonWriter& json, const PoolModel& model, const Processes& processes) {
  const bool orphaned = !processes.AnyAttachedAlive();
  json.Key("heldLocks").BeginArray();
  for (const HeldLock& lock : model.heldLocks) {
    json.BeginObject().Key("lock").String(lock.what).Key("address").Number(lock.address);
    json.Key("value").Number(lock.value).Key("orphaned").Bool(orphaned).EndObject();
  }
  json.EndArray();
}

void WriteFindings(JsonWriter& json, const PoolModel& model) {
  json.Key("sound").Bool(model.findings.empty());
  json.Key("findings").BeginArray();
  for (const Finding& f : model.findings) {
    json.BeginObject().Key("offset").Number(int64_t{f.address} - model.base);
    json.Key("address").Number(f.address).Key("what").String(f.what).EndObject();
  }
  json.EndArray();
}

}  // namespace

std::string ListJson(const std::string& prefix, const std::vector<ListedPool>& pools) {
  JsonWriter json;
  json.BeginObject().Key("prefix").String(prefix).Key("pools").BeginArray();
  for (const ListedPool& pool : pools) {
    json.BeginObject().Key("name").String(pool.name).Key("path").String(pool.path);
    json.Key("size").Number(pool.fileSize).Key("base").Number(pool.base);
    json.Key("length").Number(pool.length);
    json.Key("byteOrder").String(pool.order == ByteOrder::kBig ? "big" : "little");
    json.Key("attached").BeginArray();
    for (int pid : pool.attached) {
      json.Number(pid);
    }
    json.EndArray().Key("state").String(pool.attached.empty() ? "stale" : "active").EndObject();
  }
  json.EndArray().EndObject();
  return json.Text();
}

std::string ShowJson(const std::string& path, const PoolModel& model, const Processes& processes) {
  JsonWriter json;
  json.BeginObject();
  WritePoolFile(json, path, model);
  json.Key("state").String(processes.Active() ? "active" : "stale");
  json.Key("attached").BeginArray();
  for (int pid : processes.attached) {
    json.BeginObject().Key("pid").Number(pid).Key("alive").Bool(processes.Alive(pid)).EndObject();
  }
  json.EndArray();
  WriteHeader(json, model);
  WriteOwners(json, model.statistics);
  WriteFreeSpace(json, model);
  WriteChunks(json, model);
  WriteQueues(json, model);
  WriteSemaphores(json, model, processes);
  WriteQueueBlocks(json, model, processes);
  WriteRegistry(json, model);
  WriteHeldLocks(json, model, processes);
  json.Key("suggestedSize").Number(SuggestedPoolSize(model));
  WriteFindings(json, model);
  json.EndObject();
  return json.Text();
}

std::string CheckJson(const std::string& path, const PoolModel& model) {
  JsonWriter json;
  json.BeginObject();
  WritePoolFile(json, path, model);
  json.Key("blocks").Number(static_cast<int64_t>(model.blocks.size()));
  json.Key("chunks").Number(static_cast<int64_t>(model.chunks.size()));
  WriteFindings(json, model);
  json.EndObject();
  return json.Text();
}

std::string BlocksJson(const std::string& path, const PoolModel& model, int owner) {
  JsonWriter json;
  json.BeginObject();
  WritePoolFile(json, path, model);
  json.Key("owner");
  if (owner < 0) {
    json.Null();
  } else {
    json.String(OwnerName(static_cast<unsigned>(owner)));
  }
  const std::vector<Block> blocks = LiveBlocks(model, owner);
  int64_t bytes = 0;
  json.Key("blocks").BeginArray();
  for (const Block& b : blocks) {
    bytes += b.size - 8;
    json.BeginObject().Key("address").Number(int64_t{b.address} + 8);
    json.Key("offset").Number(int64_t{b.address} + 8 - model.base);
    json.Key("size").Number(b.size - 8).Key("blockSize").Number(b.size);
    json.Key("owner").String(OwnerName(b.user)).Key("user").Number(b.user).EndObject();
  }
  json.EndArray();
  json.Key("count")
      .Number(static_cast<int64_t>(blocks.size()))
      .Key("bytes")
      .Number(static_cast<int64_t>(bytes));
  json.EndObject();
  return json.Text();
}

}  // namespace nuvpool
