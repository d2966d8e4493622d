// Normal tail terms: log Q(z), the Mills ratio phi/Q, Q and phi against 50-digit mpmath
// references over z in [-40, 40] (tests/reference/companion/make_normal_tail.py), the switches
// between the rational approximations, and the infinite and NaN arguments.

#include "companion/normal_tail.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace {

struct NormalTailRef {
  double z, q, log_q, mills;
};
#include "reference/companion/normal_tail.inc"

constexpr double kEps = 2.220446049250313e-16;

double RelErr(double got, double want) {
  if (want == 0.0) return std::fabs(got);
  return std::fabs(got - want) / std::fabs(want);
}

TEST(NormalTail, LogTailAndMillsRatioWithinAFewUlpsOverMinus40To40) {
  double worstLog = 0, worstMills = 0, worstQ = 0, worstPdf = 0;
  for (const auto& r : kNormalTailRefs) {
    const auto t = velkor::NormalTail(r.z);
    // below z = -37.6 log Q (about -Phi(z)) and phi/Q are subnormal or 0: compare absolutely there
    worstLog = std::max(
        worstLog, std::fabs(r.log_q) < 1e-290 ? std::fabs(t.log_q) : RelErr(t.log_q, r.log_q));
    worstMills =
        std::max(worstMills, r.mills < 1e-290 ? std::fabs(t.mills) : RelErr(t.mills, r.mills));
    // Q and phi carry the rounding of z^2/2 into exp: about z^2/2 ulps
    const double allowance = (4.0 + 0.5 * r.z * r.z) * kEps;
    if (r.q > 1e-300) {
      EXPECT_LE(RelErr(t.q, r.q), allowance) << "Q at z = " << r.z;
    }
    worstQ = std::max(worstQ, r.q > 1e-300 ? RelErr(t.q, r.q) / allowance * 4.0 * kEps : 0.0);
    const double pdf = r.mills * r.q;  // phi = Q x Mills ratio
    if (pdf > 1e-290) worstPdf = std::max(worstPdf, RelErr(t.pdf, pdf) / (1.0 + 0.5 * r.z * r.z));
  }
  std::printf("worst relative error: log Q %.3g, Mills ratio %.3g, Q %.3g (x z^2/2), phi %.3g\n",
              worstLog, worstMills, worstQ, worstPdf);
  EXPECT_LE(worstLog, 8 * kEps);
  EXPECT_LE(worstMills, 8 * kEps);
  EXPECT_LE(worstPdf, 8 * kEps);
}

TEST(NormalTail, ScaledTailAgreesWithTheFullTermsAndBeyondTheUnderflowOfQ) {
  // above 0.6629 the log tail is -z^2/2 + log R(z): still finite where Q underflows (z > 38.5)
  for (double z : {0.7, 1.5, 5.0, 5.7, 12.0, 38.0}) {
    ASSERT_TRUE(velkor::NormalScaledTailApplies(z));
    const auto t = velkor::NormalTail(z);
    EXPECT_NEAR(t.log_q, -0.5 * z * z + std::log(velkor::NormalScaledTail(z)), 1e-15 * z * z);
  }
  EXPECT_FALSE(velkor::NormalScaledTailApplies(0.66));
  EXPECT_FALSE(velkor::NormalScaledTailApplies(std::numeric_limits<double>::quiet_NaN()));
  const auto far = velkor::NormalTail(60.0);
  EXPECT_EQ(far.q, 0.0);
  EXPECT_NEAR(far.log_q, -1805.0135606805671, 1e-11);  // log Q(60) (mpmath)
  EXPECT_NEAR(far.mills, 60.016657420241125, 1e-12);   // phi/Q at 60 (mpmath)
}

TEST(NormalTail, InfiniteAndNaNArguments) {
  const double inf = std::numeric_limits<double>::infinity();
  const auto lo = velkor::NormalTail(-inf);
  EXPECT_EQ(lo.q, 1.0);
  EXPECT_EQ(lo.log_q, 0.0);
  EXPECT_EQ(lo.pdf, 0.0);
  EXPECT_EQ(lo.mills, 0.0);
  const auto hi = velkor::NormalTail(inf);
  EXPECT_EQ(hi.q, 0.0);
  EXPECT_EQ(hi.pdf, 0.0);
  EXPECT_EQ(hi.mills, 0.0);
  const auto nan = velkor::NormalTail(std::numeric_limits<double>::quiet_NaN());
  EXPECT_TRUE(std::isnan(nan.q));
  EXPECT_TRUE(std::isnan(nan.log_q));
}

}  // namespace
