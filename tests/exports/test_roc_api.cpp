// The roc family through the exported symbols only: OLE arguments as a spreadsheet front end
// passes them, output layouts, optional outputs, and bad input (statuses, untouched buffers, no
// write past any array).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "support/guarded.h"
#include "support/ole_helpers.h"
#include "velkor/VELKORLI1M.h"
#include "velkor/roc_objects.h"

namespace {

using testing_support::Guarded;

// A caller buffer whose cells and guard cells all hold the sentinel.
struct Buffer : Guarded {
  explicit Buffer(std::size_t n) : Guarded(static_cast<long long>(n), kGuard) {}
};

}  // namespace

TEST(RocApi, ContingencyTableFromOleLabels) {
  SAFEARRAY* labels = testing_ole::strings({u"pos", u"neg", u"pos", u"neg", u"Pos"});
  const double values[5] = {5, 1, 2, 4, 9}, weights[5] = {2, 1, 1, 1, 0.5};
  testing_ole::Variant pos(u"pos");
  // a (pos, >= 3) = row 1; c = row 3; b = rows 4, 5 ("Pos" is another label); d = row 2.
  double table[4] = {0, 0, 0, 0};
  ASSERT_EQ(Cpp_CreateROCContingencyTable(labels, 5, &pos.v, values, 0, 3.0, 3, nullptr, table), 0);
  EXPECT_EQ(std::vector<double>(table, table + 4), (std::vector<double>{1, 1, 2, 1}));
  // Counts are added to the table passed in; weights apply.
  ASSERT_EQ(Cpp_CreateROCContingencyTable(labels, 5, &pos.v, values, 0, 3.0, 3, weights, table), 0);
  EXPECT_EQ(table[0], 3.0);
  EXPECT_EQ(table[2], 3.5);
  // Fewer labels than rows: the rows past the array have the empty label (truly negative).
  double t2[4] = {0, 0, 0, 0};
  ASSERT_EQ(Cpp_CreateROCContingencyTable(labels, 3, &pos.v, values, 0, 3.0, 3, nullptr, t2), 0);
  EXPECT_EQ(t2[0] + t2[1] + t2[2] + t2[3], 3.0);
  // Bad input: null values or table refused; n <= 0 writes nothing; no label array: every row
  // truly negative.
  const double seven[4] = {7, 7, 7, 7};
  std::copy(seven, seven + 4, table);
  EXPECT_EQ(Cpp_CreateROCContingencyTable(labels, 2, &pos.v, nullptr, 0, 1, 3, nullptr, table),
            VELKOR_E_NULL_ARRAY);
  EXPECT_EQ(Cpp_CreateROCContingencyTable(labels, 2, &pos.v, values, 0, 1, 3, nullptr, nullptr),
            VELKOR_E_NULL_ARRAY);
  for (int n : {0, -3})
    EXPECT_EQ(Cpp_CreateROCContingencyTable(labels, n, &pos.v, values, 0, 1, 3, nullptr, table), 0);
  EXPECT_EQ(std::vector<double>(table, table + 4), std::vector<double>(seven, seven + 4));
  EXPECT_EQ(Cpp_CreateROCContingencyTable(nullptr, 2, &pos.v, values, 0, 1, 3, nullptr, table), 0);
  EXPECT_EQ(table[2] + table[3], 7.0 + 7.0 + 2.0);
  SafeArrayDestroy(labels);
}

TEST(RocApi, ContingencyLabelsOfOtherTypes) {
  // A two-dimensional (n x 1) array of VARIANTs holding numbers, against a numeric positive
  // label converted to its text form "1".
  SAFEARRAYBOUND b[2] = {{4, 1}, {1, 1}};
  SAFEARRAY* labels = SafeArrayCreate(VT_VARIANT, 2, b);
  const double codes[4] = {1, 0, 1, 2};
  for (LONG i = 1; i <= 4; ++i) {
    LONG idx[2] = {i, 1};
    VARIANT v;
    VariantInit(&v);
    v.vt = VT_R8;
    v.dblVal = codes[i - 1];
    SafeArrayPutElement(labels, idx, &v);
  }
  const double values[4] = {0.9, 0.1, 0.4, 0.8};
  VARIANT one;
  VariantInit(&one);
  one.vt = VT_I4;
  one.lVal = 1;
  double table[4] = {0, 0, 0, 0};
  ASSERT_EQ(Cpp_CreateROCContingencyTable(labels, 4, &one, values, 0, 0.5, 4, nullptr, table), 0);
  EXPECT_EQ(std::vector<double>(table, table + 4), (std::vector<double>{1, 1, 1, 1}));
  // A label of an unsupported type (an array) and a null label match nothing.
  VARIANT arr;
  VariantInit(&arr);
  arr.vt = VT_ARRAY | VT_R8;
  arr.parray = testing_ole::doubles({1});
  for (VARIANT* label : {&arr, static_cast<VARIANT*>(nullptr)}) {
    double t[4] = {0, 0, 0, 0};
    ASSERT_EQ(Cpp_CreateROCContingencyTable(labels, 4, label, values, 0, 0.5, 4, nullptr, t), 0);
    EXPECT_EQ(t[2] + t[3], 4.0);
  }
  // A label array of doubles is not a label array: every label empty, "" matches an empty text.
  SAFEARRAY* numbers = testing_ole::doubles({1, 0});
  testing_ole::Variant empty(u"");
  double t4[4] = {0, 0, 0, 0};
  ASSERT_EQ(Cpp_CreateROCContingencyTable(numbers, 2, &empty.v, values, 0, 0.5, 4, nullptr, t4), 0);
  EXPECT_EQ(t4[0] + t4[1], 2.0);
  SafeArrayDestroy(numbers);
  VariantClear(&arr);
  SafeArrayDestroy(labels);
}

TEST(RocApi, ClassificationStatistics) {
  const double table[4] = {40, 10, 10, 40};  // a, c, b, d
  Buffer stats(39), props(9);
  ASSERT_EQ(Cpp_GetROCStats(table, 0.05, 0, 0, 0.0, stats.p(), props.p()), 0);
  EXPECT_DOUBLE_EQ(stats[12], 16.0);  // row 13, column 1: the odds ratio
  EXPECT_EQ(props[0], 0.4);
  EXPECT_EQ(props[2], 0.5);  // row 3, column 1: column sum
  EXPECT_EQ(props[6], 0.5);  // row 1, column 3: row sum
  EXPECT_EQ(props[8], 1.0);
  EXPECT_TRUE(stats.intact() && props.intact());
  const double nan[4] = {NAN, 1, 1, 1};
  ASSERT_EQ(Cpp_GetROCStats(nan, 0.05, 0, 0, 0.0, stats.p(), props.p()), 0);
  for (int k = 0; k < 39; ++k) EXPECT_EQ(stats[k], VELKOR_MISSING);
  Buffer untouched(39);
  EXPECT_EQ(Cpp_GetROCStats(nullptr, 0.05, 0, 0, 0.0, untouched.p(), props.p()),
            VELKOR_E_NULL_ARRAY);
  EXPECT_EQ(Cpp_GetROCStats(table, 0.05, 0, 0, 0.0, untouched.p(), nullptr), VELKOR_E_NULL_ARRAY);
  EXPECT_TRUE(untouched.untouched());
  EXPECT_EQ(GetROCStats(nullptr, 0.05, 0, 0, 0, nullptr, nullptr), VELKOR_E_NULL_ARRAY);
}

TEST(RocApi, CurveAreaAndOptionalOutputs) {
  const std::vector<double> status = {1, 1, 1, 0, 0, 0, 1, 0};
  const std::vector<double> values = {3, 4, 5, 1, 2, 3, 2.5, 0.5};
  const std::size_t n = status.size();
  const int ni = static_cast<int>(n);
  const double unitCosts[4] = {0, 1, 1, 0};
  Buffer curve(3 * (n + 1)), stats(44 * n), costs(n), auc(9), optimal(4 * n);
  int counts[3] = {0, 0, 0};
  ASSERT_EQ(
      Cpp_ComputeROC(status.data(), values.data(), nullptr, ni, 1, 0.05, 2, 0, 0, 0, 0.0, unitCosts,
                     0, curve.p(), stats.p(), costs.p(), auc.p(), optimal.p(), counts),
      0);
  EXPECT_EQ(counts[0], 7);  // distinct values
  // Positives 3, 4, 5, 2.5 over negatives 1, 2, 3, 0.5: 14.5 of 16 pairs.
  EXPECT_NEAR(auc[0], 14.5 / 16, 1e-15);
  EXPECT_EQ(curve[0], 0.0);
  EXPECT_EQ(curve[n + 1], 0.0);
  EXPECT_EQ(curve[7], 1.0);                // last curve row (k + 1 = 8 rows)
  EXPECT_EQ(curve[2 * (n + 1) + 1], 5.0);  // threshold of the second point
  EXPECT_EQ(stats[0], 0.5);                // thresholds ascending
  EXPECT_EQ(stats[7], VELKOR_MISSING);     // row past k
  EXPECT_EQ(costs[7], VELKOR_MISSING);
  for (Buffer* b : {&curve, &stats, &costs, &auc, &optimal}) EXPECT_TRUE(b->intact());
  // Every optional output may be null; the area does not change.
  Buffer auc2(9);
  ASSERT_EQ(Cpp_ComputeROC(status.data(), values.data(), nullptr, ni, 1, 0.05, 2, 0, 0, 0, 0.0,
                           nullptr, 0, nullptr, nullptr, nullptr, auc2.p(), nullptr, nullptr),
            0);
  EXPECT_EQ(auc2.buf, auc.buf);
  // The exported C++ worker gives the same result.
  std::vector<double> s(status), v(values);
  matrix<double> ms(static_cast<std::uint32_t>(n), 1, s.data(), 0);
  matrix<double> mv(static_cast<std::uint32_t>(n), 1, v.data(), 0), ma(9, 1);
  ASSERT_EQ(ComputeROC(&ms, &mv, nullptr, ni, 1, 0.05, 2, 0, 0, 0, 0.0, nullptr, nullptr, nullptr,
                       nullptr, &ma, nullptr, nullptr),
            0);
  for (int i = 0; i < 9; ++i) EXPECT_EQ(ma.data[i], auc[i]);
  EXPECT_EQ(ComputeROC(nullptr, &mv, nullptr, ni, 1, 0.05, 2, 0, 0, 0, 0.0, nullptr, nullptr,
                       nullptr, nullptr, &ma, nullptr, nullptr),
            VELKOR_E_NULL_ARRAY);
}

// One harness over bad data: each case returns -2 (or a positive code) and writes nothing.
TEST(RocApi, BadInputLeavesEveryOutputUntouched) {
  const double inf = std::numeric_limits<double>::infinity();
  struct Case {
    const char* what;
    std::vector<double> status, values, weights;
    int n;
  } cases[] = {
      {"n = 0", {}, {}, {}, 0},
      {"negative n", {1, 0}, {1, 2}, {}, -4},
      {"n = 1", {1}, {1}, {}, 1},
      {"all positive", {1, 1, 1}, {1, 2, 3}, {}, 3},
      {"all negative", {0, 0, 0}, {1, 2, 3}, {}, 3},
      {"negatives all NaN", {1, 0, 0}, {1, NAN, NAN}, {}, 3},
      {"positives infinite or missing", {1, 1, 0}, {inf, VELKOR_MISSING, 2}, {}, 3},
      {"positive weights zero", {1, 0, 0}, {1, 2, 3}, {0, 1, 1}, 3},
      {"status not 0/1", {2, 0, -1}, {1, 2, 3}, {}, 3},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const std::size_t n = c.n > 0 ? static_cast<std::size_t>(c.n) : 0;
    Buffer curve(3 * (n + 1)), stats(44 * n), costs(n), auc(9), optimal(4 * n);
    int counts[3] = {-7, -7, -7};
    EXPECT_EQ(Cpp_ComputeROC(c.status.data(), c.values.data(),
                             c.weights.empty() ? nullptr : c.weights.data(), c.n, 1, 0.05, 2, 0, 0,
                             0, 0.0, nullptr, 0, curve.p(), stats.p(), costs.p(), auc.p(),
                             optimal.p(), counts),
              -2);
    for (Buffer* b : {&curve, &stats, &costs, &auc, &optimal}) EXPECT_TRUE(b->untouched());
    EXPECT_EQ(counts[0], -7);
  }
  // Null required arrays with n > 0.
  const double s[2] = {1, 0}, v[2] = {1, 2};
  Buffer auc(9);
  EXPECT_EQ(Cpp_ComputeROC(nullptr, v, nullptr, 2, 1, 0.05, 2, 0, 0, 0, 0, nullptr, 0, nullptr,
                           nullptr, nullptr, auc.p(), nullptr, nullptr),
            VELKOR_E_NULL_ARRAY);
  EXPECT_EQ(Cpp_ComputeROC(s, v, nullptr, 2, 1, 0.05, 2, 0, 0, 0, 0, nullptr, 0, nullptr, nullptr,
                           nullptr, nullptr, nullptr, nullptr),
            VELKOR_E_NULL_ARRAY);
  EXPECT_TRUE(auc.untouched());
  // Two rows, one per group, and out-of-range options: an area with no variance, never a crash.
  ASSERT_EQ(Cpp_ComputeROC(s, v, nullptr, 2, 7, 2.0, 9, 3, 9, 1, -1, nullptr, 0, nullptr, nullptr,
                           nullptr, auc.p(), nullptr, nullptr),
            0);
  EXPECT_EQ(auc[0], 0.0);  // side 7 is taken as 3 (high values positive): the positive is lower
  EXPECT_EQ(auc[2], VELKOR_MISSING);  // alpha 2: no limits
  EXPECT_EQ(auc[4], VELKOR_MISSING);
}

TEST(RocApi, PairedComparisons) {
  const std::vector<double> status = {1, 0, 1, 0, 1, 0, 1, 0, 1, 0};
  // Two tests (n x 2, column-major) and a third that ranks the subjects in reverse.
  std::vector<double> values = {5,  1,  4,  2,  3,  3.5,  6,  0, 2,  2.5,  //
                                2,  1,  6,  4,  3,  2.5,  5,  3, 1,  0.5,  //
                                -5, -1, -4, -2, -3, -3.5, -6, 0, -2, -2.5};
  const int n = 10, m = 3;
  auto compare = [&](const std::vector<double>& x, int nn, int mm, int side, Buffer& aucs,
                     double* cov, double* global, double* pairs) {
    return Cpp_ComputeROCComparisonsDep2(status.data(), x.empty() ? nullptr : x.data(), nullptr, nn,
                                         mm, side, 0.05, aucs.p(), cov, global, pairs);
  };
  Buffer aucs(4 * m), cov(m * m), global(3), pairs(8 * 3);
  ASSERT_EQ(compare(values, n, m, 1, aucs, cov.p(), global.p(), pairs.p()), 0);
  EXPECT_NEAR(aucs[0] + aucs[2], 1.0, 1e-15);  // reversed ranks: complementary areas
  EXPECT_NEAR(cov[0], cov[8], 1e-15);          // ... with the same variance
  EXPECT_NEAR(cov[6], -cov[0], 1e-15);         // ... and covariance -var
  EXPECT_EQ(pairs[0], 1.0);
  EXPECT_EQ(pairs[3], 2.0);  // row 1 = pair (1, 2), column 2 = s
  EXPECT_EQ(global[1], 2.0);
  for (Buffer* b : {&aucs, &cov, &global, &pairs}) EXPECT_TRUE(b->intact());
  // Low values positive on the negated tests gives the same areas.
  std::vector<double> neg(values);
  for (double& x : neg) x = -x;
  Buffer aucs2(4 * m);
  ASSERT_EQ(compare(neg, n, m, 2, aucs2, nullptr, nullptr, nullptr), 0);
  for (int r = 0; r < 2 * m; ++r) EXPECT_NEAR(aucs2[r], aucs[r], 1e-15);
  // Bad shapes and data: -2 and nothing written; null values refused.
  std::vector<double> nanNeg(values);
  for (int i = 1; i < n; i += 2) nanNeg[static_cast<std::size_t>(n + i)] = NAN;  // test 2
  Buffer a3(4 * m);
  EXPECT_EQ(compare(values, n, 1, 1, a3, nullptr, nullptr, nullptr), -2);
  EXPECT_EQ(compare(values, -1, m, 1, a3, nullptr, nullptr, nullptr), -2);
  EXPECT_EQ(compare(nanNeg, n, m, 1, a3, nullptr, nullptr, nullptr), -2);
  EXPECT_TRUE(a3.untouched());
  EXPECT_EQ(compare({}, n, m, 1, a3, nullptr, nullptr, nullptr), VELKOR_E_NULL_ARRAY);
}

TEST(RocApi, TablesSizedByTheCaller) {
  // tableRows below k: the tables hold their first rows only, the area is unchanged and nothing
  // is written past any buffer.
  const std::vector<double> status = {1, 0, 1, 0, 1, 0, 1, 0};
  const std::vector<double> values = {8, 1, 7, 2, 6, 3, 5, 4};
  const int R = 3;
  Buffer curve(3 * (R + 1)), stats(44 * R), costs(R), auc(9), optimal(4 * R), full(9);
  int counts[3] = {0, 0, 0};
  ASSERT_EQ(
      Cpp_ComputeROC(status.data(), values.data(), nullptr, 8, 1, 0.05, 0, 0, 0, 0, 0.0, nullptr, R,
                     curve.p(), stats.p(), costs.p(), auc.p(), optimal.p(), counts),
      0);
  ASSERT_EQ(Cpp_ComputeROC(status.data(), values.data(), nullptr, 8, 1, 0.05, 0, 0, 0, 0, 0.0,
                           nullptr, 0, nullptr, nullptr, nullptr, full.p(), nullptr, nullptr),
            0);
  EXPECT_EQ(counts[0], 8);
  EXPECT_EQ(auc[0], 1.0);
  EXPECT_EQ(auc.buf, full.buf);
  EXPECT_EQ(stats[0], 1.0);  // thresholds 1, 2, 3
  EXPECT_EQ(stats[2], 3.0);
  for (Buffer* b : {&curve, &stats, &costs, &optimal}) EXPECT_TRUE(b->intact());
}
