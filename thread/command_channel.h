/// \file This process's ends of the command channels of threads.
#ifndef NUV_THREAD_COMMAND_CHANNEL_H
#define NUV_THREAD_COMMAND_CHANNEL_H

class NuvThread;

namespace nuv::channel {

/// A thread object is shared by the process that started the thread and the thread itself, and
/// a descriptor number means something only in its own process: each process keeps its own
/// ends here, and the thread object's fields hold only the end of the process that owns it.
void Remember(const NuvThread* thread, int readFd, int writeFd);
/// This process's ends, -1 for one it does not have.
int ReadFd(const NuvThread* thread);
int WriteFd(const NuvThread* thread);
/// Forgets the thread's ends without closing them.
void Forget(const NuvThread* thread);
/// In a new thread process: forgets every end that belongs to its parent's threads.
void ForgetAllBut(const NuvThread* thread);

}  // namespace nuv::channel

#endif  // NUV_THREAD_COMMAND_CHANNEL_H
