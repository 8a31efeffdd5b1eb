/// \file Real-time classes: the process's table of scheduling levels and SetRTPriority.
#include "thread/rt_priority.h"

#include <sched.h>
#include <unistd.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/kernel.h"
#include "core/log.h"
#include "thread/launch.h"

namespace {

constexpr int kClasses = 5;
constexpr int kNameSize = 64;  // the width of the %63s below is one less

// Per process and unlocked: one thread of control runs in each process.
int priTable[kClasses] = {0, 5, 10, 15, 20};
bool parsedOnce = false;

constexpr const char* kClassNames[kClasses] = {"standard", "viewer", "pipeline", "groupmaster",
                                               "switcher"};

constexpr nuv::kernel::Call kSetScheduler{"sched_setscheduler", -1, 0, false};
constexpr nuv::kernel::Call kGetScheduler{"sched_getscheduler", -1, 0, false};
constexpr nuv::kernel::Call kNice{"nice", -1, 0, false};

// One "name=value" override of NUV_RTPRI; false ends the parse.
bool ApplyOverride(const char* token) {
  char name[kNameSize];
  int value = 0;
  // Deliberate, kept: %s takes the whole token, '=' and digits included, so sscanf yields one
  // field and the parse ends at the first token. The variable is read and changes nothing. The
  // width bounds the copy; it could only matter for a name as long as the width, never a class.
  if (sscanf(token, "%63s=%d", name, &value) != 2) {
    return false;
  }
  if (strcmp(name, "none") == 0) {
    for (int& level : priTable) {
      level = 0;
    }
    return true;
  }
  for (int pri = 0; pri < kClasses; ++pri) {
    if (strcmp(name, kClassNames[pri]) == 0) {
      priTable[pri] = value;
      return true;
    }
  }
  return false;
}

// Tokens are taken from a copy, so that the process's environment is left as it was.
void ReadOverrides() {
  const char* overrides = getenv("NUV_RTPRI");
  if (overrides == nullptr) {
    return;
  }
  char* text = strdup(overrides);
  if (text == nullptr) {
    return;
  }
  char* token = strtok(text, ":\n");
  while (token != nullptr && ApplyOverride(token)) {
    token = strtok(nullptr, ":\n");
  }
  free(text);
}

void ReadOverridesOnce() {
  if (!parsedOnce) {
    parsedOnce = true;
    ReadOverrides();
  }
}

void EnterFixedPriority(int pid, int level, const char* tag) {
  sched_param param{};
  param.sched_priority = level;
  const nuv::kernel::Result result = nuv::kernel::Make(
      kSetScheduler, [pid, &param] { return sched_setscheduler(pid, SCHED_FIFO, &param); });
  if (result.Failed()) {
    nuv::log::Entry(nuv::log::kFacilityNuv, nuv::log::kPriorityCrit, tag,
                    "unable to invoke real-time scheduling, error = %d", result.error);
  } else {
    nuv::log::Entry(nuv::log::kFacilityNuv, nuv::log::kPriorityInfo, tag,
                    "thread has entered the real-time zone");
  }
}

// Leaving real-time is not reported. nice() acts on the calling process, whichever thread's
// class is set, as it always has.
void EnterTimeSharing(int pid, int level) {
  const long policy =
      nuv::kernel::Make(kGetScheduler, [pid] { return sched_getscheduler(pid); }).value;
  if (policy != SCHED_OTHER) {
    const sched_param param{};
    nuv::kernel::Ignore(
        nuv::kernel::Make(kSetScheduler,
                          [pid, &param] { return sched_setscheduler(pid, SCHED_OTHER, &param); }),
        "leaving real-time is not reported");
  }
  if (level < 0) {
    nuv::kernel::Ignore(nuv::kernel::Make(kNice, [level] { return nice(-level); }),
                        "a refused nice leaves the process as it is");
  }
}

// The name of the thread this process was launched as; a process that was never launched
// (its record's name is empty) goes by the thread object's own name.
const char* TagOf(const NuvThread& thread) {
  const char* launched = nuv::CurrentLaunchRecord().name;
  return launched[0] != '\0' ? launched : thread.GetName();
}

}  // namespace

namespace nuv {

int ClassPriority(NuvThread::rtPri pri) { return priTable[pri]; }

void SetClassPriorityForTesting(NuvThread::rtPri pri, int level) { priTable[pri] = level; }

}  // namespace nuv

// Classes of 5 and above (and any value below 0) are recorded and select nothing.
void NuvThread::SetRTPriority(rtPri pri) {
  rtPriM = pri;
  ReadOverridesOnce();
  if (static_cast<int>(pri) < 0 || static_cast<int>(pri) >= kClasses) {
    return;
  }
  const int level = priTable[pri];
  if (level > 0) {
    EnterFixedPriority(pidM, level, TagOf(*this));
  } else {
    EnterTimeSharing(pidM, level);
  }
}

// A process that no library thread adopted has no class to change.
void NuvThread::MakeRTThread(rtPri pri) {
  if (pCurrentThreadG != nullptr) {
    pCurrentThreadG->SetRTPriority(pri);
  }
}
