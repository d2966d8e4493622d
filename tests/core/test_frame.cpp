// The flat-entry frame: private copies, copy-back of outputs only, and no exception or partial
// write escaping to the caller.
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <vector>

#include "core/frame.h"

namespace {

// A worker that doubles its input into the output and reports a status.
int double_into(matrix<double>* in, matrix<double>* out, int status) {
  for (std::uint32_t i = 0; i < in->rows; ++i) out->at0(i) = 2 * in->at0(i);
  in->at0(0) = -99;  // writes to an input copy never reach the caller
  return status;
}

}  // namespace

TEST(Frame, CopiesOutputsBackAndLeavesInputsAlone) {
  double in[3] = {1, 2, 3};
  double out[4] = {9, 9, 9, 9};  // one element more than the worker writes
  const int st = velkor::flat_call(
      [&](velkor::FlatFrame& f) { return double_into(&f.in(in, 3), &f.out(out, 4), -3); });
  EXPECT_EQ(st, -3);  // the worker's status passes through unchanged
  EXPECT_EQ(in[0], 1.0);
  EXPECT_EQ(out[0], 2.0);
  EXPECT_EQ(out[2], 6.0);
  EXPECT_EQ(out[3], 9.0);  // untouched element comes back as it was passed
  // Outputs start as the caller's values.
  velkor::flat_call([&](velkor::FlatFrame& f) {
    f.out(out, 4).at0(3) += 1;
    return 0;
  });
  EXPECT_EQ(out[3], 10.0);
}

TEST(Frame, ExceptionsBecomePositiveCodesAndNothingIsWritten) {
  double out[2] = {1, 2};
  double scalar = 7;
  auto throwing = [&](auto exc) {
    return velkor::flat_call([&](velkor::FlatFrame& f) -> int {
      f.out(out, 2).at0(0) = 100;
      f.scalar(&scalar) = 100;
      throw exc;
    });
  };
  EXPECT_EQ(throwing(std::bad_alloc()), VELKOR_E_OUT_OF_MEMORY);
  EXPECT_EQ(throwing(std::runtime_error("x")), VELKOR_E_INTERNAL);
  EXPECT_EQ(throwing(42), VELKOR_E_INTERNAL);
  EXPECT_EQ(out[0], 1.0);
  EXPECT_EQ(scalar, 7.0);
}

TEST(Frame, NullArraysAndNonPositiveLengths) {
  double out[1] = {3};
  // A null array with a positive length is refused before the worker runs.
  bool ran = false;
  int st = velkor::flat_call([&](velkor::FlatFrame& f) {
    f.out(out, 1).at0(0) = 1;
    f.in<double>(nullptr, 5);
    ran = true;
    return 0;
  });
  EXPECT_EQ(st, VELKOR_E_NULL_ARRAY);
  EXPECT_FALSE(ran);
  EXPECT_EQ(out[0], 3.0);
  // Zero or negative lengths give empty containers whose spare element absorbs access.
  st = velkor::flat_call([&](velkor::FlatFrame& f) {
    auto& m = f.in<double>(nullptr, -4);
    EXPECT_EQ(m.count, 0u);
    m.set(1, 5.0);
    EXPECT_EQ(m(1), 5.0);
    return -2;
  });
  EXPECT_EQ(st, -2);
  // A null scalar output is refused.
  st = velkor::flat_call([&](velkor::FlatFrame& f) {
    f.scalar<double>(nullptr);
    return 0;
  });
  EXPECT_EQ(st, VELKOR_E_NULL_ARRAY);
}

TEST(Frame, IntegerArraysAndTables) {
  int counts[6] = {0};
  const double table_in[6] = {1, 2, 3, 4, 5, 6};
  velkor::flat_call([&](velkor::FlatFrame& f) {
    auto& t = f.in(table_in, 3, 2);
    auto& c = f.out(counts, 3, 2);
    for (int j = 1; j <= 2; ++j)
      for (int i = 1; i <= 3; ++i) c(i, j) = static_cast<int>(t(i, j)) * 10;
    return 0;
  });
  EXPECT_EQ(counts[0], 10);
  EXPECT_EQ(counts[5], 60);
}

TEST(Frame, BlockPrefixCopiesKeepTheFirstElementsOfEachBlock) {
  const double stacked[3 * 5] = {1, 2, 3, 4, 5, 11, 12, 13, 14, 15, 21, 22, 23, 24, 25};
  std::vector<double> seen;
  const int st = velkor::flat_call([&](velkor::FlatFrame& f) {
    auto& m = f.in_block_prefixes(stacked, 3, 5, 2);
    seen.assign(m.data, m.data + m.count);
    return static_cast<int>(m.rows);
  });
  EXPECT_EQ(st, 6);
  EXPECT_EQ(seen, (std::vector<double>{1, 2, 11, 12, 21, 22}));
  // The rules of in() for the whole array: null with a positive length, empty shapes.
  const double* none = nullptr;
  EXPECT_EQ(velkor::flat_call([&](velkor::FlatFrame& f) {
              f.in_block_prefixes(none, 3, 5, 2);
              return 0;
            }),
            VELKOR_E_NULL_ARRAY);
  EXPECT_EQ(velkor::flat_call([&](velkor::FlatFrame& f) {
              return static_cast<int>(f.in_block_prefixes(none, 0, 5, 2).count);
            }),
            0);
  EXPECT_EQ(velkor::flat_call([&](velkor::FlatFrame& f) {
              f.in_block_prefixes(stacked, 70000, 70000, 1);  // longer than any container
              return 0;
            }),
            VELKOR_E_OUT_OF_MEMORY);
}
