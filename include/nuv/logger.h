/// \file NuvLogger: one syslog line per entry on the local log socket, or standard output.
#ifndef NUV_LOGGER_H
#define NUV_LOGGER_H

#include <nuv/seed.h>
#include <nuv/string.h>

#include <cstdarg>

/// The static forms log with the facility, priority and name given. A logger object (user
/// "nuv") holds a facility, a default priority and a name for the member forms.
/// Layout (checked in diag/layout.cpp): 0 core, 12 facility, 16 priority, 20 name; 24 bytes.
class NuvLogger : public NuvCore {
 public:
  /// Facilities; each maps to syslog's local0 + value on the wire.
  enum iFacility : int {
    facnuv = 0,
    facorb = 1,
    facvault = 2,
    facrec = 3,
    facrun = 4,
    fachost = 5,
  };
  /// Priorities: the syslog levels.
  enum iPriority : int {
    priemerg = 0,
    prialert = 1,
    pricrit = 2,
    prierr = 3,
    priwarn = 4,
    prinotice = 5,
    priinfo = 6,
    pridebug = 7,
  };

  /// Sends "<(fac+16)*8|pri>Mmm dd hh:mm:ss name[pid]: text" and a NUL byte, unless pri is
  /// above the minimum (initially priinfo). The name is cut to 32 characters and the whole line
  /// to 511. Falls back to standard output (with "\n") when the socket cannot be reached or
  /// breaks; no failure is reported. A null name logs under an empty name, a null format
  /// gives an entry with no text.
  static void Log(iFacility fac, iPriority pri, const char* name, const char* format, ...)
      __attribute__((format(printf, 4, 5)));
  /// Log() with an argument list.
  static void VLog(iFacility fac, iPriority pri, const char* name, const char* format, va_list args)
      __attribute__((format(printf, 4, 0)));
  /// Entries with a priority value greater than pri are dropped from now on.
  static void MinLog(iPriority pri);
  /// On: every entry goes to standard output and the socket is closed. Off: the next entry
  /// connects to the socket again.
  static void LogTty(bool on);

  /// "facnuv" to "fachost" for 0 to 5; null for anything else.
  static const char* FacToString(iFacility fac);
  /// The facility named s, or -1 when none is (and for null).
  static iFacility StringToFac(const char* s);
  /// "priemerg" to "pridebug" for 0 to 7; null for anything else.
  static const char* PriToString(iPriority pri);
  /// The priority named s, or -1 when none is (and for null).
  static iPriority StringToPri(const char* s);

  /// A logger whose name is a copy of name in the logger's pool.
  NuvLogger(iFacility fac, iPriority pri, const char* name);
  ~NuvLogger() override = default;
  NuvLogger(const NuvLogger&) = delete;
  NuvLogger& operator=(const NuvLogger&) = delete;
  NuvLogger(NuvLogger&&) = delete;
  NuvLogger& operator=(NuvLogger&&) = delete;

  /// An entry with the object's facility, priority and name.
  void Log(const char* format, ...) __attribute__((format(printf, 2, 3)));
  /// An entry with the object's facility and name at priority pri.
  void Log(iPriority pri, const char* format, ...) __attribute__((format(printf, 3, 4)));
  /// An entry with the object's facility and priority under another name.
  void NameLog(const char* name, const char* format, ...) __attribute__((format(printf, 3, 4)));

 private:
  friend struct NuvDiagLayout;

  iFacility facilityM;
  iPriority priorityM;
  ref<NuvString> nameM;
};

#endif  // NUV_LOGGER_H
