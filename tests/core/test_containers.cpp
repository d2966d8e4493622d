// Containers: spare-element rules, adopt versus copy, index comparisons, copy constructor.
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <string>

#include "core/numeric.h"
#include "velkor/containers.h"
#include "velkor/status.h"

TEST(SpecialValues, MarkersHaveTheirBitPatterns) {
  EXPECT_EQ(std::bit_cast<std::uint64_t>(velkor::kMissing), 0xFFEFFFFFFFFFFFE2ULL);
  EXPECT_EQ(std::bit_cast<std::uint64_t>(velkor::kUnbounded), 0x7FEFFFFFFFFFFFE2ULL);
  // The decimal literals of the public C header denote exactly the same doubles.
  EXPECT_EQ(VELKOR_MISSING, velkor::kMissing);
  EXPECT_EQ(VELKOR_UNBOUNDED, velkor::kUnbounded);
  EXPECT_TRUE(velkor::IsMissing(velkor::kMissing));
  EXPECT_TRUE(velkor::IsMissing(-1.7976931348623157e308));
  EXPECT_FALSE(velkor::IsMissing(-1.79769313486230e+308));
}

TEST(Matrix, CopyKeepsCallerBufferAdoptSharesIt) {
  double p[3] = {1, 2, 3};
  {
    matrix<double> m(3, 1, p, 0);
    m(2) = 20;
    EXPECT_EQ(p[1], 2.0);
    EXPECT_TRUE(m.ownsData);
  }
  {
    matrix<double> m(3, 1, p, 1);
    m(2) = 20;
    EXPECT_EQ(p[1], 20.0);
    EXPECT_FALSE(m.ownsData);
  }
  EXPECT_EQ(p[0], 1.0);  // the adopting matrix did not free or touch the caller's buffer
}

// Out-of-range access reads and writes the spare element (initially -1), which then remembers
// the last value stored through any index.
TEST(Matrix, SpareElementAbsorbsOutOfRangeAccess) {
  matrix<double> m(2, 3);
  EXPECT_EQ(m.count, 6u);
  for (int k = 1; k <= 6; ++k) EXPECT_EQ(m(k), 0.0);  // fill value
  // k = 0 and negative k are out of range (unsigned comparison).
  for (double v : {m(0), m(7), m(-5), m(3, 1), m(1, 4)}) EXPECT_EQ(v, -1.0);
  m.set(2, 3, 7.5);
  EXPECT_EQ(m(2, 3), 7.5);
  EXPECT_EQ(m(9), 7.5);  // an out-of-range read now yields the last stored value
  m.set(99, 3.0);        // out of range: only the spare element changes
  EXPECT_EQ(m(5), 0.0);
  EXPECT_EQ(m(6), 7.5);
  EXPECT_EQ(m(0), 3.0);
  matrix<double> v(2, 1);  // 0-based inline reads follow the same rule
  v.at0(1) = 4;
  EXPECT_EQ(v.at0(1), 4.0);
  EXPECT_EQ(v.at0(2), -1.0);
  matrix<double> wide(2, 0);
  EXPECT_EQ(wide.at0(0), -1.0);  // no column: everything is out of range
}

TEST(Matrix, SignedRowTestLetsRowZeroReachThePreviousColumn) {
  double p[6] = {1, 2, 3, 4, 5, 6};  // 3 x 2
  matrix<double> m(3, 2, p, 0);
  EXPECT_EQ(m(0, 2), 3.0);   // (j-1)*rows + (i-1) = 2: last element of column 1
  EXPECT_EQ(m(0, 1), -1.0);  // would lie before the buffer: the spare element instead
  EXPECT_EQ(m(-4, 2), -1.0);
  EXPECT_EQ(m(3, 2), 6.0);
  EXPECT_EQ(m.el(3, 2), m(3, 2));
  EXPECT_EQ(m.el(4), m(4));
}

TEST(Matrix, CopyConstructorCopiesAuxiliaryVectorsButNotScratchSlots) {
  matrix<double> a(2, 2);
  a(1, 1) = 3;
  a.rowWeights = new double[2]{0.5, 1.5};
  a.colScale = new double[2]{10, 20};
  a.colCodes = new std::int32_t[2]{7, 8};
  a.make_column_pair();
  a.colUpper[1] = 9;
  a.aux1 = new unsigned char[4];
  matrix<double> b(a);
  EXPECT_NE(b.data, a.data);
  EXPECT_EQ(b(1, 1), 3.0);
  ASSERT_NE(b.rowWeights, nullptr);
  EXPECT_EQ(b.rowWeights[1], 1.5);
  EXPECT_EQ(b.colScale[0], 10.0);
  EXPECT_EQ(b.colCodes[1], 8);
  EXPECT_EQ(b.pairFlag, 1);
  EXPECT_EQ(b.colUpper[1], 9.0);
  EXPECT_EQ(b.aux1, nullptr);
}

TEST(Matrix, OtherInstantiationsHaveTheirOwnSpareValues) {
  EXPECT_EQ(matrix<int>(2, 1)(3), -1);
  EXPECT_EQ(matrix<short>(1, 1)(2), -1);
  matrix<std::u16string> mw(2, 2);
  EXPECT_EQ(mw(1, 1), u"");
  mw.set(1, 2, u"abc");
  EXPECT_EQ(mw(5), u"abc");
  EXPECT_EQ(matrix<std::u16string>(mw)(1, 2), u"abc");
}

TEST(MVect, SpareAndWriteThrough) {
  cST_MVect<double> v(3, 1.0);
  EXPECT_EQ(v[5], -1.0);
  EXPECT_EQ(v.vb(0), -1.0);
  v.vbset(99, 5.0);
  EXPECT_EQ(v.vb(99), 5.0);
  for (std::uint32_t i = 0; i < 3; ++i) EXPECT_EQ(v[i], 1.0);
  v.setElement(1, 2.0);
  EXPECT_EQ(v.vb(2), 2.0);
  cST_MVect<double> w = v;
  EXPECT_EQ(w[1], 2.0);
}
