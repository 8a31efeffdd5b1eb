/// \file Page-fault tracing: a profiler of code paths shared by the threads of one group.
#ifndef NUV_TRACING_H
#define NUV_TRACING_H

#include <nuv/lockword.h>
#include <nuv/seed.h>
#include <nuv/time.h>

/// The tracer of a thread group. Code marks checkpoints with four-character identifiers
/// (0x41424344 is "ABCD"); for every pair of consecutive checkpoints (an edge) the tracer keeps
/// how often it was taken, its shortest, longest and total time and the major page faults that
/// the group's processes took on it. It lives in the pool of the group, so every thread of the
/// group (each a process) adds to the same table.
///
/// The static operations act on the tracer of the current thread's group (pCurrentThreadG); in
/// a process with no current thread, or whose thread has no group, they do nothing and Get()
/// returns null.
///
/// Layout (checked in diag/layout.cpp): 0 core, 12 active flag, 16 edge table (512 records of
/// 40 bytes), 20496 last checkpoint identifier, 20500 last total of page faults, 20504 time of
/// the last checkpoint, 20512 process table (20 entries of 8 bytes), 20672 lock word, 20676 a
/// time value cleared by construction and TraceStart, 20684 page-fault flag; 20688 bytes.
class TracingGlobals : public NuvCore {
 public:
  static constexpr int kEdges = 512;
  static constexpr int kProcesses = 20;

  /// One edge. Layout: 0 shortest, 8 longest, 16 total time, 24 count (0 marks a free record),
  /// 28 page faults, 32 from-identifier, 36 to-identifier; 40 bytes.
  struct TraceEdge {
    NuvTime shortest;
    NuvTime longest;
    NuvTime total;
    int count = 0;
    unsigned faults = 0;
    int from = 0;
    int to = 0;
  };

  /// A process of the group and its count of major page faults. Layout: 0 process id (0 marks
  /// a free entry), 4 faults; 8 bytes.
  struct ProcessFaults {
    int pid = 0;
    unsigned faults = 0;
  };

  /// Makes the group's tracer in the group's pool (inactive, empty, page-fault flag off) and
  /// puts it in place of any earlier one.
  static void Create();
  /// The group's tracer with a reference added for the caller, or null.
  static TracingGlobals* Get();
  /// Starts an existing, inactive tracer when on is true; the next checkpoint opens no edge.
  static void TraceStart(bool on);
  /// Stops an active tracer when on is true, and then logs its table when report is true.
  static void TraceEnd(bool on, bool report);
  static bool FActive();
  /// Counts the edge from the previous checkpoint to this one on an active tracer; with report
  /// true an edge taken before is logged with this passage's time.
  static void CheckPoint(int id, bool report);
  /// Switches the page-fault flag of the group's tracer: while it is on, every checkpoint reads
  /// the calling process's count of major page faults ("/proc/<pid>/stat").
  static void SetPageFaults(bool on);

  TracingGlobals();
  ~TracingGlobals() override = default;
  TracingGlobals(const TracingGlobals&) = delete;
  TracingGlobals& operator=(const TracingGlobals&) = delete;
  TracingGlobals(TracingGlobals&&) = delete;
  TracingGlobals& operator=(TracingGlobals&&) = delete;

  /// The record of the edge from-to, or null.
  TraceEdge* FindEdge(int from, int to);
  /// The entry of process pid, claiming the first free one for it; null when all are taken.
  ProcessFaults* FindOrCreate(int pid);
  /// The faults of all entries together.
  unsigned SumFaults() const;
  /// Records an edge's first passage (its faults are not counted) in the first free record;
  /// with all records in use the edge is dropped.
  void AddEdge(int from, int to, NuvTime delta);
  /// Logs every record in table order, up to the first free one.
  void Report();
  /// Logs one edge (docs/design.md, "Page-fault tracing", has the line); a time of all ones
  /// (NuvTime(-1)) means no passage of its own.
  void ReportEdge(TraceEdge* edge, NuvTime time);

  const TraceEdge& EdgeAt(int index) const { return edgesM[index]; }
  const ProcessFaults& ProcessAt(int index) const { return processesM[index]; }
  bool FPageFaults() const { return pageFaultsM != 0; }

 private:
  friend struct NuvDiagLayout;

  void Pass(int id, bool report, NuvTime now);
  unsigned FaultsSinceLastCheckPoint();

  int activeM = 0;
  TraceEdge edgesM[kEdges] = {};
  int lastIdM = 0;
  unsigned lastFaultsM = 0;
  NuvTime lastTimeM;
  ProcessFaults processesM[kProcesses] = {};
  volatile NuvLock lockM = 0;
  NuvTime clearedTimeM;
  int pageFaultsM = 0;
};

/// Writes the identifier's four bytes, most significant first, and a zero into buf (5 chars).
void Chid2Str(char* buf, int id);

/// The major page faults of process pid: field 12 of "/proc/<pid>/stat", read from its first
/// 254 bytes (a command name with blanks shifts the field; 0 when the text ends before it). A
/// process whose file cannot be opened stops at assertion 337 of "NPageFaults".
unsigned NPageFaults(int pid);

#endif  // NUV_TRACING_H
