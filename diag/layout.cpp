/// \file The shared formats of logger objects and page-fault tracers, checked at compile time:
/// every thread of a group reads and writes the same tracer.
#include <nuv/logger.h>
#include <nuv/tracing.h>

#include <cstddef>

// Logger objects and tracers derive from NuvSeed, which makes them formally non-standard-layout;
// the offsets below are exactly what these checks are there to pin down.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
struct NuvDiagLayout {
  static_assert(sizeof(NuvLogger) == 24, "logger: core, facility, priority, name");
  static_assert(offsetof(NuvLogger, facilityM) == 12, "logger facility");
  static_assert(offsetof(NuvLogger, priorityM) == 16, "logger priority");
  static_assert(offsetof(NuvLogger, nameM) == 20, "logger name");

  static_assert(sizeof(TracingGlobals::TraceEdge) == 40, "trace edge");
  static_assert(offsetof(TracingGlobals::TraceEdge, shortest) == 0, "edge shortest time");
  static_assert(offsetof(TracingGlobals::TraceEdge, longest) == 8, "edge longest time");
  static_assert(offsetof(TracingGlobals::TraceEdge, total) == 16, "edge total time");
  static_assert(offsetof(TracingGlobals::TraceEdge, count) == 24, "edge count");
  static_assert(offsetof(TracingGlobals::TraceEdge, faults) == 28, "edge page faults");
  static_assert(offsetof(TracingGlobals::TraceEdge, from) == 32, "edge from-identifier");
  static_assert(offsetof(TracingGlobals::TraceEdge, to) == 36, "edge to-identifier");
  static_assert(sizeof(TracingGlobals::ProcessFaults) == 8, "process entry");
  static_assert(offsetof(TracingGlobals::ProcessFaults, pid) == 0, "process id");
  static_assert(offsetof(TracingGlobals::ProcessFaults, faults) == 4, "process page faults");

  static_assert(sizeof(TracingGlobals) == 20688, "tracer");
  static_assert(offsetof(TracingGlobals, activeM) == 12, "tracer active flag");
  static_assert(offsetof(TracingGlobals, edgesM) == 16, "tracer edge table");
  static_assert(offsetof(TracingGlobals, lastIdM) == 20496, "tracer last identifier");
  static_assert(offsetof(TracingGlobals, lastFaultsM) == 20500, "tracer last fault total");
  static_assert(offsetof(TracingGlobals, lastTimeM) == 20504, "tracer last time");
  static_assert(offsetof(TracingGlobals, processesM) == 20512, "tracer process table");
  static_assert(offsetof(TracingGlobals, lockM) == 20672, "tracer lock word");
  static_assert(offsetof(TracingGlobals, clearedTimeM) == 20676, "tracer cleared time");
  static_assert(offsetof(TracingGlobals, pageFaultsM) == 20684, "tracer page-fault flag");
};
#pragma GCC diagnostic pop
