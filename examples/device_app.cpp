/// \file Example: a small device application. The main process adopts itself as a library
/// thread, starts a shared worker and hands it work through its queue, exchanges framed records
/// with a server thread over a local socket, starts an unshared background thread in a pool of
/// its own, and shows the fatal report of a thread that dies of an unexpected signal (built
/// without the device restart, the report ends only that thread).
#include <nuv/logger.h>
#include <nuv/mempool.h>
#include <nuv/messenger.h>
#include <nuv/os_thread.h>
#include <nuv/socket.h>
#include <nuv/status.h>
#include <nuv/thread.h>

#include <sys/wait.h>
#include <unistd.h>
#include <csignal>
#include <string>

#include "examples/example_main.h"

namespace {

constexpr const char* kPoolName = "device_app";
constexpr const char* kTag = "device_app";
constexpr unsigned kPoolSize = 256 * 1024;
constexpr unsigned kWork = 1;
constexpr unsigned kStop = 0;
constexpr unsigned kRequests = 3;

// The record that goes over the socket both ways: a request's number and its value, and the
// answer under the same number. The number kStop ends the exchange.
struct Record {
  unsigned number;
  unsigned value;
};

// Adds up the work it is sent until told to stop; the total becomes its exit code.
int Worker(long /*arg*/) {
  unsigned total = 0;
  for (;;) {
    NuvMessage message{};
    if (pCurrentThreadG->NextMessage(message, nullptr) != kNuvMessageDone ||
        message.type == kStop) {
      break;
    }
    total += message.payload[0];
    NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, pCurrentThreadG->GetName(),
                   "worker <%d>: work item %u, total %u", pCurrentThreadG->GetId(),
                   message.payload[0], total);
  }
  return static_cast<int>(total);
}

// Accepts one connection on the server passed as arg and answers each request with the square
// of its value until the stop record; the number of answers becomes its exit code.
int Server(long arg) {
  auto* server = reinterpret_cast<NuvServer*>(arg);
  ref<NuvSocket> connection;
  if (server->Accept(connection) != kNuvOk) {
    return 0;
  }
  const char* name = pCurrentThreadG->GetName();
  const int pid = pCurrentThreadG->GetId();
  int answered = 0;
  Record record{};
  while (connection->Receive(&record, sizeof record) == static_cast<int>(kNuvOk) &&
         record.number != kStop) {
    NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, name, "server <%d>: request %u, value %u",
                   pid, record.number, record.value);
    record.value *= record.value;
    connection->Send(&record, sizeof record);
    ++answered;
  }
  NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, name,
                 "server <%d>: stopped after %d requests", pid, answered);
  return answered;
}

int Background(long /*arg*/) {
  NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, pCurrentThreadG->GetName(),
                 "background <%d>: running alone in pool %s at %p", pCurrentThreadG->GetId(),
                 pCurrentThreadG->GetPool()->GetName(),
                 static_cast<void*>(pCurrentThreadG->GetPool()));
  return 0;
}

int Crasher(long /*arg*/) {
  raise(SIGSEGV);
  return 0;
}

void RunWorker(NuvMempool* pool) {
  ref<NuvThread> worker(new (pool) NuvThread(Worker, "worker"));
  if (worker->Start(0) != kNuvOk) {
    return;
  }
  for (unsigned item = 1; item <= 3; ++item) {
    NuvMessage work{kWork, {item * 10, 0, 0, 0, 0, 0}};
    worker->SendMessage(work, nullptr);
  }
  NuvMessage stop{kStop, {}};
  worker->SendMessage(stop, nullptr);
  worker->Join();
  const int pid = worker->GetId();
  NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, kTag, "worker <%d> joined", pid);
}

// The server listens before the client connects, so the connection waits in its backlog for
// the thread's accept: no retrying, and nothing is started when either side fails.
void RunServer(NuvMempool* pool) {
  const std::string path = "/tmp/nuv_example_" + std::to_string(getpid()) + ".socket";
  ref<NuvServer> server;
  ref<NuvSocket> client;
  if (NuvServer::Create(pool, path.c_str(), server) != kNuvOk ||
      NuvSocket::Connect(pool, path.c_str(), client) != kNuvOk) {
    NuvLogger::Log(NuvLogger::facnuv, NuvLogger::prierr, kTag, "no connection on %s", path.c_str());
    return;
  }
  ref<NuvThread> thread(new (pool) NuvThread(Server, "server"));
  if (thread->Start(reinterpret_cast<long>(server.get())) != kNuvOk) {
    return;
  }
  for (unsigned number = 1; number <= kRequests; ++number) {
    Record record{number, number + 10};
    client->Send(&record, sizeof record);
    client->Receive(&record, sizeof record);
    NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, kTag, "answer to request %u: %u",
                   record.number, record.value);
  }
  const Record stop{kStop, 0};
  client->Send(&stop, sizeof stop);
  thread->Join();
  NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, kTag, "server <%d> joined",
                 thread->GetId());
}

void RunBackground() {
  int pid = 0;
  NuvThread::BackgroundThread(Background, 0, "background", 16 * 1024, &pid);
  const int status = NuvOsThread::Wait(pid, nullptr);
  NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, kTag,
                 "background <%d> ended with exit code %d", pid, WEXITSTATUS(status));
}

void RunCrasher(NuvMempool* pool) {
  NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, kTag,
                 "starting a thread that dies of SIGSEGV: its report follows, then it ends "
                 "after the log's five seconds");
  auto* crasher = new (pool) NuvThread(Crasher, "crasher");
  crasher->Emancipate();  // reaped here, to show how it ended
  crasher->UpRef();
  crasher->Start(0);
  const int status = NuvOsThread::Wait(crasher->GetId(), nullptr);
  NuvLogger::Log(NuvLogger::facnuv, NuvLogger::priinfo, kTag, "crasher <%d> ended by signal %d",
                 crasher->GetId(), WIFSIGNALED(status) ? WTERMSIG(status) : 0);
  crasher->DownRef();
}

}  // namespace

int main() {
  return example::RunAsMainThread(kPoolName, kPoolSize, kTag, [](NuvMempool* pool) {
    RunWorker(pool);
    RunServer(pool);
    RunBackground();
    RunCrasher(pool);
  });
}
