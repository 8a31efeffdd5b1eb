/// \file NuvLogger's static forms: the log records of every layer, under the logger's names.
#include <nuv/logger.h>

#include "core/log.h"

static_assert(NuvLogger::facnuv == nuv::log::kFacilityNuv, "the library's facility");
static_assert(NuvLogger::prialert == nuv::log::kPriorityAlert, "alert priority");
static_assert(NuvLogger::pricrit == nuv::log::kPriorityCrit, "critical priority");
static_assert(NuvLogger::prierr == nuv::log::kPriorityErr, "error priority");
static_assert(NuvLogger::priinfo == nuv::log::kPriorityInfo, "info priority");
static_assert(NuvLogger::pridebug == nuv::log::kPriorityDebug, "debug priority");

void NuvLogger::Log(iFacility fac, iPriority pri, const char* name, const char* format, ...) {
  va_list args;  // NOLINT(cppcoreguidelines-init-variables): set by va_start
  va_start(args, format);
  nuv::log::Record(fac, pri, name, format, args);
  va_end(args);
}

void NuvLogger::VLog(iFacility fac, iPriority pri, const char* name, const char* format,
                     va_list args) {
  nuv::log::Record(fac, pri, name, format, args);
}

void NuvLogger::MinLog(iPriority pri) { nuv::log::SetMinimum(pri); }

void NuvLogger::LogTty(bool on) { nuv::log::ToTty(on); }

const char* NuvLogger::FacToString(iFacility fac) { return nuv::log::FacilityName(fac); }

NuvLogger::iFacility NuvLogger::StringToFac(const char* s) {
  return static_cast<iFacility>(nuv::log::FacilityNamed(s));
}

const char* NuvLogger::PriToString(iPriority pri) { return nuv::log::PriorityName(pri); }

NuvLogger::iPriority NuvLogger::StringToPri(const char* s) {
  return static_cast<iPriority>(nuv::log::PriorityNamed(s));
}
