// Placeholder until the real-time classes and external names land: delete this file when
// merging them.
#include <nuv/os_thread.h>
#include <nuv/thread.h>
void NuvThread::SetRTPriority(rtPri pri) { rtPriM = pri; }
void NuvThread::MakeRTThread(rtPri pri) {
  if (pCurrentThreadG != nullptr)
    pCurrentThreadG->SetRTPriority(pri);
}
void NuvOsThread::ExternalizeName(const char*) {}
