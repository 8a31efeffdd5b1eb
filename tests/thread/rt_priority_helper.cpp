/// \file Second program of the real-time class tests: a process that no thread launched adopts
/// itself as a thread, enters a class and prints its scheduling.
///
/// usage: rt_priority_helper CLASS NAME [unprivileged]
///   unprivileged: first gives up root (RLIMIT_RTPRIO 0, user and group "nobody")
/// Printed after the records: "pid=P policy=N priority=N levels=L0,L1,L2,L3,L4".
#include <nuv/logger.h>
#include <nuv/mempool.h>
#include <nuv/status.h>
#include <nuv/thread.h>

#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "thread/rt_priority.h"

namespace {

constexpr unsigned kPoolSize = 64 * 1024;
constexpr unsigned kNobody = 65534;

bool GiveUpRoot() {
  const rlimit none{0, 0};
  return setrlimit(RLIMIT_RTPRIO, &none) == 0 && setgid(kNobody) == 0 && setuid(kNobody) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    fprintf(stderr, "usage: rt_priority_helper CLASS NAME [unprivileged]\n");
    return 2;
  }
  NuvLogger::LogTty(true);
  NuvMempool* pool = nullptr;
  if (NuvMempool::Allocate("rt", kPoolSize, false, nullptr, false, pool) != kNuvOk) {
    fprintf(stderr, "no pool\n");
    return 1;
  }
  auto* thread = new (pool) NuvThread(argv[2]);
  if (argc > 3 && strcmp(argv[3], "unprivileged") == 0 && !GiveUpRoot()) {
    perror("giving up root");
    return 1;
  }
  thread->SetRTPriority(static_cast<NuvThread::rtPri>(atoi(argv[1])));
  sched_param param{};
  sched_getparam(0, &param);
  printf("pid=%d policy=%d priority=%d levels=%d,%d,%d,%d,%d\n", getpid(), sched_getscheduler(0),
         param.sched_priority, nuv::ClassPriority(NuvThread::standard),
         nuv::ClassPriority(NuvThread::viewer), nuv::ClassPriority(NuvThread::pipeline),
         nuv::ClassPriority(NuvThread::groupmaster), nuv::ClassPriority(NuvThread::switcher));
  return 0;
}
