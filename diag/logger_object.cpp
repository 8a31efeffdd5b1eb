/// \file Logger objects: the member forms of NuvLogger over a facility, priority and name.
#include <nuv/logger.h>

#include <cstdarg>

NuvLogger::NuvLogger(iFacility fac, iPriority pri, const char* name)
    : NuvCore(NuvMempool::nuv),
      facilityM(fac),
      priorityM(pri),
      nameM(new (GetPool()) NuvString(name != nullptr ? name : "")) {}

void NuvLogger::Log(const char* format, ...) {
  va_list args;  // NOLINT(cppcoreguidelines-init-variables): set by va_start
  va_start(args, format);
  VLog(facilityM, priorityM, nameM->Utf8(), format, args);
  va_end(args);
}

void NuvLogger::Log(iPriority pri, const char* format, ...) {
  va_list args;  // NOLINT(cppcoreguidelines-init-variables): set by va_start
  va_start(args, format);
  VLog(facilityM, pri, nameM->Utf8(), format, args);
  va_end(args);
}

void NuvLogger::NameLog(const char* name, const char* format, ...) {
  va_list args;  // NOLINT(cppcoreguidelines-init-variables): set by va_start
  va_start(args, format);
  VLog(facilityM, priorityM, name, format, args);
  va_end(args);
}
