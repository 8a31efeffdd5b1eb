/// \file Local stream sockets: NuvServer listens on a path, NuvSocket is one connected end; data
/// goes over them in framed records (events). WriteN and ReadN move an exact number of bytes.
#ifndef NUV_SOCKET_H
#define NUV_SOCKET_H

#include <nuv/seed.h>

/// The first word of every framed record.
constexpr unsigned kNuvEventMagic = 0x2064A8EC;
/// An event on the wire: the magic, the payload's length in bytes (signed), then the payload.
/// Both words are in the writer's byte order: big-endian as the device writes them.
struct NuvEventHeader {
  unsigned magic;
  int length;
};

/// Writes exactly length bytes to fd, repeating writes that take part of them (and writes of
/// none). kNuvOk, or kNuvSocketFailed when a write fails (an interrupted one included).
int WriteN(int fd, const void* buffer, unsigned length);
/// Reads exactly length bytes from fd. kNuvOk; kNuvEndOfFile when the peer's end is closed
/// before they have all come; kNuvSocketFailed when a read fails (an interrupted one included).
int ReadN(int fd, void* buffer, unsigned length);
/// The SIGPIPE handler of Send and Receive: jumps back into the transfer that raised it, which
/// then returns kNuvEndOfFile. Installed only while a transfer runs.
void badpipe(int signal);

class NuvSocket;

/// A listening local stream socket bound to a path (pool user "nuv").
/// Layout (checked in net/layout.cpp): 0 core, 12 name, 16 fd; 20 bytes.
class NuvServer : public NuvCore {
 public:
  /// A new server in pool, opened on path: on kNuvOk out holds it (releasing what it held);
  /// otherwise out is left as it was and the server is released. Returns the result of Open.
  static int Create(NuvMempool* pool, const char* path, ref<NuvServer>& out);

  /// Not yet open: no name, fd -1.
  NuvServer();
  /// Unlinks the name (the path as given to Open, which is the bound path unless it was cut) and
  /// frees it; closes the descriptor, and a failing close stops at assertion 155 of "NuvServer".
  ~NuvServer() override;
  NuvServer(const NuvServer&) = delete;
  NuvServer& operator=(const NuvServer&) = delete;
  NuvServer(NuvServer&&) = delete;
  NuvServer& operator=(NuvServer&&) = delete;

  /// Binds a new local stream socket to path (cut to its first 107 characters) and listens with
  /// a backlog of 5; keeps a copy of the whole path in the server's pool. kNuvOk, or
  /// kNuvSocketFailed with no descriptor left open (a path that exists already fails, and so
  /// does a null path). An empty path is the abstract address of 107 NUL bytes, outside the file
  /// system. A server opens once: a second Open replaces the descriptor and the name without
  /// giving them back.
  int Open(const char* path);
  /// Waits for the next connection; on kNuvOk out holds a new socket for it in the server's pool
  /// (releasing what it held). kNuvSocketFailed when accept fails.
  int Accept(ref<NuvSocket>& out);
  int GetFd() const { return fdM; }

 private:
  friend struct NuvNetLayout;
  char* nameM = nullptr;
  int fdM = -1;
};

/// One connected end of a local stream socket (pool user "nuv").
/// Layout (checked in net/layout.cpp): 0 core, 12 fd, 16 handler; 20 bytes.
class NuvSocket : public NuvCore {
 public:
  /// Connects a new local stream socket to path (cut to its first 107 characters) and asks for a
  /// linger time of 100 seconds (a refusal is logged and ignored). On kNuvOk out holds the new
  /// socket in pool (releasing what it held); kNuvSocketFailed (also for a null path) leaves out
  /// as it was and no descriptor open.
  static int Connect(NuvMempool* pool, const char* path, ref<NuvSocket>& out);
  /// Blocks SIGIO and SIGURG, the signals of every asynchronous handler: returns sigprocmask's.
  static int BlockAsyncHandler();
  /// Unblocks SIGIO and SIGURG: returns sigprocmask's result.
  static int UnblockAsyncHandler();

  /// Takes over fd: the destructor closes it.
  explicit NuvSocket(int fd);
  /// Closes the descriptor, ignoring the result.
  ~NuvSocket() override;
  NuvSocket(const NuvSocket&) = delete;
  NuvSocket& operator=(const NuvSocket&) = delete;
  NuvSocket(NuvSocket&&) = delete;
  NuvSocket& operator=(NuvSocket&&) = delete;

  int GetFd() const { return fdM; }
  /// Closes the descriptor and returns close's result. The socket keeps the number, and its
  /// destructor closes that number again: release the socket before this process opens another
  /// descriptor, which could get the same number.
  int CloseFd() const;

  /// Writes one event: the header, then the length bytes of data. kNuvOk; kNuvEndOfFile when the
  /// peer went away during the write (its SIGPIPE is caught); kNuvSocketFailed when a write
  /// fails. The previous action of SIGPIPE is in force again when it returns. A null data with a
  /// length above 0 writes nothing and gives kNuvSocketFailed.
  int Send(const void* data, unsigned length) const;
  /// Reads one event of exactly length payload bytes: always length + 8 bytes, whatever they
  /// hold, so sender and receiver must agree on sizes (it waits while fewer have come). kNuvOk
  /// with the payload in data; kNuvBadRecord after logging "Bad magic on event read: 0x%x" or
  /// "Bad event size: %d versus %d" (received, expected), data untouched; kNuvEndOfFile when the
  /// peer's end closed first; kNuvSocketFailed when a read fails. On a failed read data is
  /// untouched for events of up to 4,088 payload bytes; a longer one may have been written in
  /// part. SIGPIPE's previous action is in force again when it returns. Send and Receive must
  /// not run inside each other (from a signal handler). A null data with a length above 0 reads
  /// nothing and gives kNuvSocketFailed.
  int Receive(void* data, unsigned length) const;

  /// Non-null handler: runs handler (SA_RESTART) on SIGIO and SIGURG, and, unless a handler was
  /// registered on this socket already, asks the kernel to signal this process (the current
  /// thread's) when data arrives. Null: SIGIO and SIGURG are ignored and the socket no longer
  /// signals. Dispositions are per process: one handler serves every socket, the last
  /// registration wins. Returns 0; a refused step stops at an assertion of
  /// "RegisterAsyncHandler" (552, 553 the actions; 556, 558 the flags; 559 the owner; 565, 566
  /// ignoring; 569, 571 clearing the flags).
  int RegisterAsyncHandler(void (*handler)(int));
  /// Whether an event (or the peer's close) is waiting to be read, without waiting. A descriptor
  /// above 1023 is outside every NuvFdSet and never seen waiting; a closed one makes Select stop
  /// at its assertion 743.
  bool IsDataPresent() const;

 private:
  friend struct NuvNetLayout;
  int fdM;
  void (*handlerM)(int) = nullptr;
};

#endif  // NUV_SOCKET_H
