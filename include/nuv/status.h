/// \file Result codes shared by every operation of the library that can fail.
#ifndef NUV_STATUS_H
#define NUV_STATUS_H

/// Success. Every operation that can fail returns an unsigned status, 0 when it worked.
constexpr unsigned kNuvOk = 0;
/// The pool file exists and replacement was not asked for.
constexpr unsigned kNuvPoolExists = 0x50001;
/// The pool file (or /dev/zero) could not be opened, or the mapping failed or landed elsewhere.
constexpr unsigned kNuvPoolCreateFailed = 0x50002;
/// The pool file could not be opened, or its eight-byte header could not be read whole.
constexpr unsigned kNuvPoolOpenFailed = 0x50003;
/// The pool path could not be built, or the mapping did not land at the required address.
constexpr unsigned kNuvPoolAddressFailed = 0x50004;
/// A socket operation or transfer failed.
constexpr unsigned kNuvSocketFailed = 0x50005;
/// End of file, or the peer went away during a transfer.
constexpr unsigned kNuvEndOfFile = 0x50006;
/// A framed record carried a bad magic number or size.
constexpr unsigned kNuvBadRecord = 0x50007;
/// A process operation (fork, exec, wait) failed, or the program did not exit with 0.
constexpr unsigned kNuvProcessFailed = 0x50008;
/// The pool is not active (no process holds it), or there is no such process.
constexpr unsigned kNuvNotActive = 0x5000c;

/// A short English text for a status, for messages; "unknown status" for codes not listed above.
const char* NuvStatusText(unsigned status);

#endif  // NUV_STATUS_H
