/// \file TracingGlobals: the group's tracer, its start and stop, and the checkpoints.
#include <nuv/thread.h>
#include <nuv/tracing.h>

#include <unistd.h>

#include "core/word.h"

namespace {

NuvThreadGroup* CurrentGroup() {
  return pCurrentThreadG != nullptr ? pCurrentThreadG->PThreadGroup() : nullptr;
}

// The group's tracer, held for as long as the handle lives: another thread of the group may
// replace it meanwhile.
ref<TracingGlobals> HeldTracer() {
  NuvThreadGroup* group = CurrentGroup();
  if (group == nullptr) {
    return {};
  }
  nuv::TakeWord(group->TracerLock());
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-static-cast-downcast): Create is its only writer
  ref<TracingGlobals> held(static_cast<TracingGlobals*>(group->GetTracer()));
  nuv::GiveWord(group->TracerLock());
  return held;
}

// Another passage of an edge taken before.
void Count(TracingGlobals::TraceEdge& edge, NuvTime delta, unsigned faults) {
  if (delta.Nanoseconds() < edge.shortest.Nanoseconds()) {
    edge.shortest = delta;
  }
  if (delta.Nanoseconds() > edge.longest.Nanoseconds()) {
    edge.longest = delta;
  }
  edge.total.Set(edge.total.Nanoseconds() + delta.Nanoseconds());
  ++edge.count;
  edge.faults += faults;
}

}  // namespace

TracingGlobals::TracingGlobals() : NuvCore(NuvMempool::nuv) {}

void TracingGlobals::Create() {
  NuvThreadGroup* group = CurrentGroup();
  if (group == nullptr) {
    return;
  }
  auto* tracer = new (group->GetPool()) TracingGlobals;
  nuv::TakeWord(group->TracerLock());
  // Keeps the replaced tracer until the word is given back, so that freeing it (which takes the
  // pool's word) adds no nesting of lock words.
  const ref<NuvCore> replaced(group->GetTracer());
  group->SetTracer(tracer);
  nuv::GiveWord(group->TracerLock());
}

TracingGlobals* TracingGlobals::Get() {
  const ref<TracingGlobals> held = HeldTracer();
  if (held) {
    held->UpRef();
  }
  return held.get();
}

void TracingGlobals::TraceStart(bool on) {
  const ref<TracingGlobals> tracer = HeldTracer();
  if (tracer && tracer->activeM == 0 && on) {
    tracer->activeM = 1;
    tracer->lastIdM = 0;
    tracer->clearedTimeM = NuvTime();
  }
}

void TracingGlobals::TraceEnd(bool on, bool report) {
  const ref<TracingGlobals> tracer = HeldTracer();
  if (tracer && tracer->activeM > 0 && on) {
    tracer->activeM = 0;
    if (report) {
      tracer->Report();
    }
  }
}

bool TracingGlobals::FActive() {
  const ref<TracingGlobals> tracer = HeldTracer();
  return tracer && tracer->activeM > 0;
}

void TracingGlobals::SetPageFaults(bool on) {
  const ref<TracingGlobals> tracer = HeldTracer();
  if (tracer) {
    tracer->pageFaultsM = on ? 1 : 0;
  }
}

void TracingGlobals::CheckPoint(int id, bool report) {
  const ref<TracingGlobals> tracer = HeldTracer();
  if (!tracer || tracer->activeM <= 0) {
    return;
  }
  NuvTime now;
  now.loadCurrent();
  nuv::TakeWord(&tracer->lockM);
  tracer->Pass(id, report, now);
  // Taken after the work above, so that a checkpoint's own cost stays out of the next edge.
  tracer->lastTimeM.loadCurrent();
  nuv::GiveWord(&tracer->lockM);
}

// With the lock word held.
void TracingGlobals::Pass(int id, bool report, NuvTime now) {
  const int64_t elapsed = now.Nanoseconds() - lastTimeM.Nanoseconds();
  const NuvTime delta(elapsed > 0 ? elapsed : 0);
  const unsigned faults = FaultsSinceLastCheckPoint();
  if (lastIdM != 0) {
    TraceEdge* edge = FindEdge(lastIdM, id);
    if (edge == nullptr) {
      AddEdge(lastIdM, id, delta);
    } else {
      Count(*edge, delta, faults);
      if (report) {
        ReportEdge(edge, delta);
      }
    }
  }
  lastIdM = id;
}

// With the lock word held. The calling process's count is read afresh; every other process of
// the group keeps the count of its own last checkpoint.
unsigned TracingGlobals::FaultsSinceLastCheckPoint() {
  if (pageFaultsM == 0) {
    return 0;
  }
  ProcessFaults* entry = FindOrCreate(getpid());
  if (entry == nullptr) {
    return 0;
  }
  entry->faults = NPageFaults(getpid());
  const unsigned total = SumFaults();
  const unsigned faults = total - lastFaultsM;
  lastFaultsM = total;
  return faults;
}
