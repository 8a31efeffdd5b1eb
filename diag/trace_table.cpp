/// \file TracingGlobals: the edge and process tables, and the report of the edges.
#include <nuv/logger.h>
#include <nuv/tracing.h>

#include <cstdio>

#include "core/word.h"

namespace {

constexpr const char* kTag = "TracingGlobals";
constexpr int kIdTextSize = 5;
// ", last " and up to 20 digits and " us".
constexpr int kLastTextSize = 32;
// The time that Report passes: all ones.
constexpr int64_t kNoPassage = -1;
constexpr unsigned long long kNanosecondsPerMicrosecond = 1000;

unsigned long long Microseconds(NuvTime time) {
  return static_cast<unsigned long long>(time.Nanoseconds()) / kNanosecondsPerMicrosecond;
}

// A record with no passage (a caller's free one) shows a mean of 0 rather than dividing by it.
unsigned long long MeanMicroseconds(const TracingGlobals::TraceEdge& edge) {
  return edge.count > 0 ? Microseconds(edge.total) / static_cast<unsigned>(edge.count) : 0;
}

}  // namespace

TracingGlobals::TraceEdge* TracingGlobals::FindEdge(int from, int to) {
  for (TraceEdge& edge : edgesM) {
    if (edge.from == from && edge.to == to) {
      return &edge;
    }
  }
  return nullptr;
}

TracingGlobals::ProcessFaults* TracingGlobals::FindOrCreate(int pid) {
  ProcessFaults* free = nullptr;
  for (ProcessFaults& entry : processesM) {
    if (entry.pid == pid) {
      return &entry;
    }
    if (entry.pid == 0 && free == nullptr) {
      free = &entry;
    }
  }
  if (free != nullptr) {
    free->pid = pid;
  }
  return free;
}

unsigned TracingGlobals::SumFaults() const {
  unsigned sum = 0;
  for (const ProcessFaults& entry : processesM) {
    sum += entry.faults;
  }
  return sum;
}

void TracingGlobals::AddEdge(int from, int to, NuvTime delta) {
  for (TraceEdge& edge : edgesM) {
    if (edge.count == 0) {
      edge = TraceEdge{delta, delta, delta, 1, 0, from, to};
      return;
    }
  }
}

// Under the lock word, so that no checkpoint changes a record while its line is written.
void TracingGlobals::Report() {
  nuv::TakeWord(&lockM);
  for (TraceEdge& edge : edgesM) {
    if (edge.count == 0) {
      break;
    }
    ReportEdge(&edge, NuvTime(kNoPassage));
  }
  nuv::GiveWord(&lockM);
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): the tracer's own hook by contract
void TracingGlobals::ReportEdge(TraceEdge* edge, NuvTime time) {
  char from[kIdTextSize];
  char to[kIdTextSize];
  Chid2Str(from, edge->from);
  Chid2Str(to, edge->to);
  char last[kLastTextSize] = "";
  if (time.Nanoseconds() != kNoPassage) {
    snprintf(last, sizeof last, ", last %llu us", Microseconds(time));
  }
  NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, kTag,
                 "%s -> %s: count %d, shortest %llu us, longest %llu us, mean %llu us, faults %u%s",
                 from, to, edge->count, Microseconds(edge->shortest), Microseconds(edge->longest),
                 MeanMicroseconds(*edge), edge->faults, last);
}

void Chid2Str(char* buf, int id) {
  const auto bits = static_cast<unsigned>(id);
  buf[0] = static_cast<char>(bits >> 24);
  buf[1] = static_cast<char>(bits >> 16);
  buf[2] = static_cast<char>(bits >> 8);
  buf[3] = static_cast<char>(bits);
  buf[4] = '\0';
}
