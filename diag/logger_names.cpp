/// \file NuvLogger: the names of facilities and priorities.
#include <nuv/logger.h>

#include <cstring>

namespace {

constexpr const char* kFacilityNames[] = {"facnuv", "facorb", "facvault",
                                          "facrec", "facrun", "fachost"};
constexpr const char* kPriorityNames[] = {"priemerg", "prialert",  "pricrit", "prierr",
                                          "priwarn",  "prinotice", "priinfo", "pridebug"};
constexpr int kFacilityCount = sizeof kFacilityNames / sizeof kFacilityNames[0];
constexpr int kPriorityCount = sizeof kPriorityNames / sizeof kPriorityNames[0];

const char* NameAt(const char* const* names, int count, int value) {
  return value >= 0 && value < count ? names[value] : nullptr;
}

int IndexOf(const char* const* names, int count, const char* s) {
  for (int i = 0; i < count; ++i) {
    if (strcmp(names[i], s) == 0) {
      return i;
    }
  }
  return -1;
}

}  // namespace

const char* NuvLogger::FacToString(iFacility fac) {
  return NameAt(kFacilityNames, kFacilityCount, fac);
}

NuvLogger::iFacility NuvLogger::StringToFac(const char* s) {
  return static_cast<iFacility>(IndexOf(kFacilityNames, kFacilityCount, s));
}

const char* NuvLogger::PriToString(iPriority pri) {
  return NameAt(kPriorityNames, kPriorityCount, pri);
}

NuvLogger::iPriority NuvLogger::StringToPri(const char* s) {
  return static_cast<iPriority>(IndexOf(kPriorityNames, kPriorityCount, s));
}
