/// \file Log records: one syslog line per record on the local log socket, or standard output.
/// Every layer logs through here; NuvLogger is the public face of the same records.
#ifndef NUV_CORE_LOG_H
#define NUV_CORE_LOG_H

#include <cstdarg>

namespace nuv::log {

/// The facility and priorities that the library's own records use, by their numbers
/// (NuvLogger::iFacility and iPriority name them all).
constexpr int kFacilityNuv = 0;
constexpr int kPriorityAlert = 1;
constexpr int kPriorityCrit = 2;
constexpr int kPriorityErr = 3;
constexpr int kPriorityWarn = 4;
constexpr int kPriorityInfo = 6;
constexpr int kPriorityDebug = 7;

/// Sends "<(fac+16)*8|pri>Mmm dd hh:mm:ss name[pid]: text" and a NUL byte, unless pri is above
/// the minimum (initially kPriorityInfo). The name is cut to 32 characters and the whole line
/// to 511. Falls back to standard output (with "\n") when the socket cannot be reached or
/// breaks; no failure is reported.
void Record(int fac, int pri, const char* name, const char* format, va_list args)
    __attribute__((format(printf, 4, 0)));
/// Record() with its arguments in line.
void Entry(int fac, int pri, const char* name, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
/// Records with a priority value greater than pri are dropped from now on.
void SetMinimum(int pri);
/// On: every record goes to standard output and the socket is closed. Off: the next record
/// connects to the socket again.
void ToTty(bool on);

/// "facnuv" to "fachost" for 0 to 5, "priemerg" to "pridebug" for 0 to 7; null for others.
const char* FacilityName(int fac);
const char* PriorityName(int pri);
/// The number named s, or -1 when none is.
int FacilityNamed(const char* s);
int PriorityNamed(const char* s);

}  // namespace nuv::log

#endif  // NUV_CORE_LOG_H
