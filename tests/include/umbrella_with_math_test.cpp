/// \file The umbrella header in one translation unit with <cmath> and <random>, in a program
/// that also links the math library.
#include <cmath>
#include <random>

#include <nuv/nuv.h>

#include <gtest/gtest.h>

int CallFaddThroughCLinkage(volatile unsigned* word, int addend);

namespace {

TEST(UmbrellaHeader, FaddAddsToAWordBesideTheMathLibrarysDeclarations) {
  volatile unsigned word = 7;
  EXPECT_EQ(fadd(&word, 3), 7);
  EXPECT_EQ(word, 10U);
}

TEST(UmbrellaHeader, FaddIsExportedWithCLinkage) {
  volatile unsigned word = 1;
  EXPECT_EQ(CallFaddThroughCLinkage(&word, 5), 1);
  EXPECT_EQ(word, 6U);
}

TEST(UmbrellaHeader, MathLibraryKeepsWorkingInTheSameProgram) {
  volatile double two = 2.0;
  EXPECT_DOUBLE_EQ(std::sqrt(two * two), 2.0);
  EXPECT_NEAR(std::log(std::exp(two)), 2.0, 1e-12);
  std::mt19937 engine(42);
  std::normal_distribution<double> normal(0.0, 1.0);
  const double sample = normal(engine);
  EXPECT_TRUE(std::isfinite(sample));
}

}  // namespace
