/// \file Texts for the library's result codes.
#include <nuv/status.h>

const char* NuvStatusText(unsigned status) {
  switch (status) {
    case kNuvOk:
      return "success";
    case kNuvPoolExists:
      return "pool file exists and replacement was not asked for";
    case kNuvPoolCreateFailed:
      return "pool file or mapping could not be created";
    case kNuvPoolOpenFailed:
      return "pool file could not be opened or its header read";
    case kNuvPoolAddressFailed:
      return "pool path could not be built, or the mapping did not land at the required address";
    case kNuvSocketFailed:
      return "socket operation or transfer failed";
    case kNuvEndOfFile:
      return "end of file, or the peer went away during a transfer";
    case kNuvBadRecord:
      return "bad framed record (magic or size)";
    case kNuvProcessFailed:
      return "process operation (fork, exec) failed";
    case kNuvNotActive:
      return "pool not active, or no such process";
    default:
      return "unknown status";
  }
}
