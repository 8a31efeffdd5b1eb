/// \file The names of the log facilities and priorities.
#include <cstring>

#include "core/log.h"

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
  if (s == nullptr) {
    return -1;
  }
  for (int i = 0; i < count; ++i) {
    if (strcmp(names[i], s) == 0) {
      return i;
    }
  }
  return -1;
}

}  // namespace

namespace nuv::log {

const char* FacilityName(int fac) { return NameAt(kFacilityNames, kFacilityCount, fac); }
const char* PriorityName(int pri) { return NameAt(kPriorityNames, kPriorityCount, pri); }
int FacilityNamed(const char* s) { return IndexOf(kFacilityNames, kFacilityCount, s); }
int PriorityNamed(const char* s) { return IndexOf(kPriorityNames, kPriorityCount, s); }

}  // namespace nuv::log
