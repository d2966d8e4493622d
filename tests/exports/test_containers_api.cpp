// matrix3D through the library's exported members, as a caller of the shared library uses them.
#include <gtest/gtest.h>

#include "support/ole_helpers.h"
#include "velkor/containers.h"
#include "velkor/status.h"

using testing_ole::RecordArray;

TEST(Matrix3DApi, RecordArrayBecomesOneSlicePerColumn) {
  RecordArray recs({{u"time", {VT_R8, testing_ole::doubles({5, 8, 12})}},
                    {u"status", {VT_R8, testing_ole::doubles({1, 0})}}});
  matrix3D<cST_MVect<double>> m(recs.psa, 0);
  ASSERT_EQ(m.nSlices, 2);
  EXPECT_EQ(m(1).name, u"time");
  EXPECT_EQ(m(2).role, 10);
  EXPECT_EQ(m.vbget(1, 3), 12.0);
  EXPECT_EQ(m.vbget(1, 1), m.getElement(0, 0));
  EXPECT_EQ(m.vbget(2, 2), 0.0);
  EXPECT_EQ(m.vbget(1, 4), -1.0);  // never stored: the initial spare value
  m.vbset(1, 99, 77);
  EXPECT_EQ(m.vbget(1, 99), 77.0);
  EXPECT_EQ(m.getElement(0, 98), 77.0);
  EXPECT_EQ(m.vbget(1, 1), 5.0);  // no element changed
  EXPECT_EQ(m.vbget(1, 2), 8.0);
  EXPECT_EQ(m.vbget(1, 3), 12.0);
  m.setElement(1, 0, 7);
  EXPECT_EQ(m.vbget(2, 1), 7.0);
  EXPECT_EQ(m(1, 1, 2), 8.0);  // element 2 of entry 1 of slice 1
  matrix3D<cST_MVect<double>> limited(recs.psa, 1);
  EXPECT_EQ(limited.nSlices, 1);
}

TEST(Matrix3DApi, EmptyAndMalformedArraysGiveEmptyObjects) {
  matrix3D<cST_MVect<double>> none(static_cast<SAFEARRAY*>(nullptr), 0);
  EXPECT_EQ(none.nSlices, 0);
  SAFEARRAY* plain = testing_ole::doubles({1, 2});  // 8-byte elements, not records
  matrix3D<cST_MVect<double>> wrong(plain, 0);
  EXPECT_EQ(wrong.nSlices, 0);
  SafeArrayDestroy(plain);
  matrix3D<cST_MVect<double>> zero(0);
  EXPECT_EQ(zero.nSlices, 0);
  matrix3D<cST_MVect<double>> slots(3);
  EXPECT_EQ(slots.nSlices, 3);
  EXPECT_EQ(slots.vbget(1, 1), -1.0);  // empty slot: reads give the default, nothing crashes
  slots.vbset(2, 1, 4.0);
  EXPECT_EQ(slots.vbget(9, 1), -1.0);
}

TEST(Matrix3DApi, StringAndIntegerColumns) {
  RecordArray recs({{u"label", {VT_BSTR, testing_ole::strings({u"pos", u"neg"})}}});
  matrix3D<cST_MVect<std::u16string>> s(recs.psa, 0);
  ASSERT_EQ(s.nSlices, 1);
  EXPECT_EQ(s.vbget(1, 1), u"pos");
  EXPECT_EQ(s.vbget(1, 3), u"");
  RecordArray nums({{u"n", {VT_R8, testing_ole::doubles({3.0, -2.0, 1e12})}}});
  matrix3D<cST_MVect<int>> i(nums.psa, 0);
  EXPECT_EQ(i.vbget(1, 1), 3);
  EXPECT_EQ(i.vbget(1, 2), -2);
  EXPECT_EQ(i.vbget(1, 3), 0);  // not representable as a 32-bit integer
  // Strings read as doubles: numeric text converts, other text is missing.
  RecordArray txt({{u"x", {VT_BSTR, testing_ole::strings({u"2.5", u"abc"})}}});
  matrix3D<cST_MVect<double>> d(txt.psa, 0);
  EXPECT_EQ(d.vbget(1, 1), 2.5);
  EXPECT_EQ(d.vbget(1, 2), VELKOR_MISSING);
}

TEST(Matrix3DApi, CubeFillsSlicesRowsAndColumns) {
  auto f = [](LONG k, LONG i, LONG j) { return 100.0 * k + 10.0 * i + j; };
  SAFEARRAY* cube = testing_ole::cube(2, 3, 4, f);
  matrix3D<matrix<double>> m(cube);
  ASSERT_EQ(m.nSlices, 2);
  EXPECT_EQ(m(2).rows, 3u);
  EXPECT_EQ(m(2).cols, 4u);
  EXPECT_EQ(m(2)(3, 4), 234.0);
  EXPECT_EQ(m(1)(2, 1), 121.0);
  EXPECT_EQ(m.vbget(1, 2), 121.0);  // linear index 2 of slice 1 = row 2, column 1
  EXPECT_EQ(m.vbget(1, 13), -1.0);
  SAFEARRAY* cube2 = testing_ole::cube(2, 3, 4, [](LONG, LONG, LONG) { return 1.5; });
  m.Update(cube2);
  EXPECT_EQ(m(2)(3, 4), 1.5);
  SAFEARRAY* other = testing_ole::cube(1, 3, 4, [](LONG, LONG, LONG) { return 9.0; });
  m.Update(other);  // another shape: nothing changes
  EXPECT_EQ(m(1)(1, 1), 1.5);
  SafeArrayDestroy(cube);
  SafeArrayDestroy(cube2);
  SafeArrayDestroy(other);
}

TEST(Matrix3DApi, SizedConstructorBuildsSlicesWithEntries) {
  matrix3D<cST_MVect<double>> m(2, 3, 4, 0.25);
  ASSERT_EQ(m.nSlices, 2);
  EXPECT_EQ(m(2).entries.size(), 3u);
  EXPECT_EQ(m(2, 3, 4), 0.25);
  m(2, 3, 4) = 1.0;
  EXPECT_EQ(m(2, 3, 4), 1.0);
  EXPECT_EQ(m(1, 1, 5), -1.0);  // the entry's spare element
  matrix3D<cST_MVect<double>> neg(-1, -1, -1, 0);
  EXPECT_EQ(neg.nSlices, 0);
}
