/// \file Tests of the names of the logger's facilities and priorities.
#include <nuv/logger.h>

#include <gtest/gtest.h>

#include <iterator>
#include <string>

namespace {

constexpr const char* kFacilityNames[] = {"facnuv", "facorb", "facvault",
                                          "facrec", "facrun", "fachost"};
constexpr const char* kPriorityNames[] = {"priemerg", "prialert",  "pricrit", "prierr",
                                          "priwarn",  "prinotice", "priinfo", "pridebug"};
constexpr int kFacilityCount = static_cast<int>(std::size(kFacilityNames));
constexpr int kPriorityCount = static_cast<int>(std::size(kPriorityNames));

NuvLogger::iFacility Facility(int value) { return static_cast<NuvLogger::iFacility>(value); }
NuvLogger::iPriority Priority(int value) { return static_cast<NuvLogger::iPriority>(value); }

TEST(LoggerNames, FacToStringNamesFacilitiesZeroToFive) {
  for (int value = 0; value < kFacilityCount; ++value) {
    const char* name = NuvLogger::FacToString(Facility(value));
    ASSERT_NE(name, nullptr) << value;
    EXPECT_STREQ(name, kFacilityNames[value]) << value;
  }
}

TEST(LoggerNames, FacToStringIsNullFromSixOn) {
  EXPECT_EQ(NuvLogger::FacToString(Facility(6)), nullptr);
  EXPECT_EQ(NuvLogger::FacToString(Facility(7)), nullptr);
  EXPECT_EQ(NuvLogger::FacToString(Facility(1000)), nullptr);
}

TEST(LoggerNames, FacToStringIsNullForMinusOne) {
  EXPECT_EQ(NuvLogger::FacToString(Facility(-1)), nullptr);
}

TEST(LoggerNames, StringToFacFindsEachName) {
  for (int value = 0; value < kFacilityCount; ++value) {
    EXPECT_EQ(NuvLogger::StringToFac(kFacilityNames[value]), value) << kFacilityNames[value];
  }
}

TEST(LoggerNames, StringToFacIsMinusOneForNoName) {
  EXPECT_EQ(NuvLogger::StringToFac("facnone"), -1);
  EXPECT_EQ(NuvLogger::StringToFac(""), -1);
}

TEST(LoggerNames, StringToFacNeedsTheWholeName) {
  EXPECT_EQ(NuvLogger::StringToFac("facnu"), -1);
  EXPECT_EQ(NuvLogger::StringToFac("facnuvx"), -1);
  EXPECT_EQ(NuvLogger::StringToFac("FACNUV"), -1);
}

TEST(LoggerNames, PriToStringNamesPrioritiesZeroToSeven) {
  for (int value = 0; value < kPriorityCount; ++value) {
    const char* name = NuvLogger::PriToString(Priority(value));
    ASSERT_NE(name, nullptr) << value;
    EXPECT_STREQ(name, kPriorityNames[value]) << value;
  }
}

TEST(LoggerNames, PriToStringIsNullForEight) {
  EXPECT_EQ(NuvLogger::PriToString(Priority(8)), nullptr);
}

TEST(LoggerNames, PriToStringIsNullForMinusOne) {
  EXPECT_EQ(NuvLogger::PriToString(Priority(-1)), nullptr);
}

TEST(LoggerNames, StringToPriFindsEachName) {
  for (int value = 0; value < kPriorityCount; ++value) {
    EXPECT_EQ(NuvLogger::StringToPri(kPriorityNames[value]), value) << kPriorityNames[value];
  }
}

TEST(LoggerNames, StringToPriOfPriwarnIsFour) { EXPECT_EQ(NuvLogger::StringToPri("priwarn"), 4); }

TEST(LoggerNames, StringToPriOfWarnIsMinusOne) { EXPECT_EQ(NuvLogger::StringToPri("warn"), -1); }

TEST(LoggerNames, StringToPriOfEmptyIsMinusOne) { EXPECT_EQ(NuvLogger::StringToPri(""), -1); }

TEST(LoggerNames, StringToFacOfNullIsMinusOne) { EXPECT_EQ(NuvLogger::StringToFac(nullptr), -1); }

TEST(LoggerNames, StringToPriOfNullIsMinusOne) { EXPECT_EQ(NuvLogger::StringToPri(nullptr), -1); }

TEST(LoggerNames, EnumeratorsMatchTheirNames) {
  EXPECT_EQ(NuvLogger::StringToFac("fachost"), NuvLogger::fachost);
  EXPECT_EQ(NuvLogger::StringToPri("priemerg"), NuvLogger::priemerg);
  EXPECT_EQ(NuvLogger::StringToPri("pridebug"), NuvLogger::pridebug);
  EXPECT_EQ(std::string(NuvLogger::FacToString(NuvLogger::facvault)), "facvault");
  EXPECT_EQ(std::string(NuvLogger::PriToString(NuvLogger::prinotice)), "prinotice");
}

}  // namespace
