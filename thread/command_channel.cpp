/// \file The command-channel ends that this process holds, by thread object.
#include "thread/command_channel.h"

#include <nuv/os_thread.h>
#include <nuv/thread.h>

#include <unistd.h>

#include <algorithm>
#include <vector>

#include "core/kernel.h"

namespace {

struct Ends {
  const NuvThread* thread;
  int readFd;
  int writeFd;
};

std::vector<Ends>& ProcessEnds() {
  static std::vector<Ends> ends;
  return ends;
}

const Ends* Find(const NuvThread* thread) {
  const std::vector<Ends>& ends = ProcessEnds();
  const auto found = std::find_if(ends.begin(), ends.end(),
                                  [thread](const Ends& entry) { return entry.thread == thread; });
  return found != ends.end() ? &*found : nullptr;
}

void CloseEnd(int fd) {
  if (fd != -1) {
    nuv::kernel::Ignore(nuv::kernel::Close(fd), "the descriptor is gone either way");
  }
}

}  // namespace

namespace nuv::channel {

void Remember(const NuvThread* thread, int readFd, int writeFd) {
  Forget(thread);
  ProcessEnds().push_back(Ends{thread, readFd, writeFd});
}

int ReadFd(const NuvThread* thread) {
  const Ends* ends = Find(thread);
  return ends != nullptr ? ends->readFd : -1;
}

int WriteFd(const NuvThread* thread) {
  const Ends* ends = Find(thread);
  return ends != nullptr ? ends->writeFd : -1;
}

void Forget(const NuvThread* thread) {
  std::vector<Ends>& ends = ProcessEnds();
  ends.erase(std::remove_if(ends.begin(), ends.end(),
                            [thread](const Ends& entry) { return entry.thread == thread; }),
             ends.end());
}

void ForgetAllBut(const NuvThread* thread) {
  std::vector<Ends>& ends = ProcessEnds();
  ends.erase(std::remove_if(ends.begin(), ends.end(),
                            [thread](const Ends& entry) { return entry.thread != thread; }),
             ends.end());
}

}  // namespace nuv::channel

int NuvThread::GetCommandChannelReadFd() const { return nuv::channel::ReadFd(this); }

int NuvThread::GetCommandChannelWriteFd() const { return nuv::channel::WriteFd(this); }

void NuvOsThread::CloseCommandChannel(NuvThread* thread) {
  if (thread->isOpenCommandChannel() == 0) {
    return;
  }
  CloseEnd(nuv::channel::ReadFd(thread));
  CloseEnd(nuv::channel::WriteFd(thread));
  nuv::channel::Forget(thread);
}
