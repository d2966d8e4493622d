// Judge tables turned into censored records: the scan and reversal rule, ordering and removal,
// the summary over the subjects before removal, the spare-element reads, and the judgement table
// built from (time, response) pairs. Every expected value below is worked out by hand.
#include <gtest/gtest.h>

#include <vector>

#include "core/numeric.h"
#include "velkor/parametric.h"

namespace {

struct Prepared {
  int status = 0, removed = -1, kept = -1;
  std::vector<int> flags;
  std::vector<double> bounds, codes, times, summary, data;
};

// judge given row by row (n rows of m values)
Prepared Prepare(const std::vector<std::vector<double>>& rows, const std::vector<double>& t) {
  const int n = static_cast<int>(rows.size()), m = static_cast<int>(t.size());
  std::vector<double> judge(n * m);
  for (int i = 0; i < n; ++i)
    for (int c = 0; c < m; ++c) judge[c * n + i] = rows[i][c];
  Prepared p;
  p.flags.assign(n, -7);
  p.bounds.assign(2 * n, -7);
  p.codes.assign(n, -7);
  p.times.assign(n, -7);
  p.summary.assign(2 * m, -7);
  for (int i = 0; i < n; ++i) p.data.push_back(i + 1.0);  // one data column: the subject number
  p.status = Cpp_PrepareIntervalData(judge.data(), n, m, t.data(), p.data.data(), 1, &p.removed,
                                     p.flags.data(), &p.kept, p.bounds.data(), p.codes.data(),
                                     p.times.data(), p.summary.data());
  return p;
}

}  // namespace

TEST(IntervalData, RecordsOrderingRemovalAndSummary) {
  const Prepared p = Prepare({{1, 1, 1, 1},   // right-censored at t_4 = 6
                              {0, 1, 1, 1},   // removed: negative at the first time
                              {1, 0, 0, 0},   // t_1 = 0: interval moves to (t_2, t_3]
                              {1, 1, 0, 1},   // positive again after the first negative: left
                              {1, 0, 1, 0},   // reversal: left, then interval up to t_4
                              {1, 1, 1, 0}},  // interval (t_3, t_4]
                             {0, 2, 4, 6});
  EXPECT_EQ(p.status, 0);
  EXPECT_EQ(p.removed, 1);
  EXPECT_EQ(p.kept, 5);
  EXPECT_EQ(p.flags[0], 2);  // the removed subject's input row
  // records in increasing time order (stable): subjects 3, 5, 4, 6, 1
  EXPECT_EQ(std::vector<double>(p.data.begin(), p.data.begin() + 5),
            (std::vector<double>{3, 5, 4, 6, 1}));
  EXPECT_EQ(std::vector<double>(p.codes.begin(), p.codes.begin() + 5),
            (std::vector<double>{3, 3, 2, 3, 0}));
  EXPECT_EQ(std::vector<double>(p.times.begin(), p.times.begin() + 5),
            (std::vector<double>{2, 2, 4, 4, 6}));
  // bounds: a kept x 2 table in the first 10 elements (lower, then upper)
  EXPECT_EQ(std::vector<double>(p.bounds.begin(), p.bounds.begin() + 10),
            (std::vector<double>{2, 2, 2, 4, 0, 4, 6, 4, 6, 0}));
  EXPECT_EQ(p.codes[5], -7);  // beyond the kept rows the caller's values stay
  // summary over rows 1..5 of the judge table, percentages over all 6 subjects
  EXPECT_EQ(std::vector<double>(p.summary.begin(), p.summary.begin() + 4),
            (std::vector<double>{4, 3, 3, 3}));
  EXPECT_DOUBLE_EQ(p.summary[4], 4 * 100.0 / 6);
  EXPECT_DOUBLE_EQ(p.summary[7], 3 * 100.0 / 6);
}

TEST(IntervalData, ReversalPatternAndSpareElementRead) {
  // 1 0 1 0 with t = 1..4: interval from t_1 to t_4 with time t_2
  Prepared p = Prepare({{1, 0, 1, 0}}, {1, 2, 3, 4});
  EXPECT_EQ(p.codes[0], 3);
  EXPECT_EQ(p.times[0], 2);
  EXPECT_EQ(p.bounds[0], 1);
  EXPECT_EQ(p.bounds[1], 4);
  // negative at the last time with t_(m-1) = 0: the upper bound is read past the storage times
  // and yields the container's spare element (-1 as built)
  p = Prepare({{1, 0}}, {0, 3});
  EXPECT_EQ(p.codes[0], 3);
  EXPECT_EQ(p.times[0], 3);
  EXPECT_EQ(p.bounds[1], -1.0);
  // one storage time: a kept subject has the all-zero default record
  p = Prepare({{1}, {1}}, {5});
  EXPECT_EQ(p.status, 0);
  EXPECT_EQ(p.codes[0], 0);
  EXPECT_EQ(p.times[0], 0);
}

TEST(IntervalData, StatusesOfRemovalAndMissingCells) {
  // every subject removed: -2, summary over no row is missing
  Prepared p = Prepare({{0, 1}, {0, 0}}, {1, 2});
  EXPECT_EQ(p.status, -2);
  EXPECT_EQ(p.kept, 0);
  EXPECT_EQ(p.summary[0], velkor::kMissing);
  EXPECT_EQ((std::vector<int>{p.flags[0], p.flags[1]}), (std::vector<int>{1, 2}));
  // the last subject in input order removed: the codes read past the kept rows give its -1
  p = Prepare({{1, 1}, {0, 1}}, {1, 2});
  EXPECT_EQ(p.status, -1);
  EXPECT_EQ(p.kept, 1);
  EXPECT_EQ(p.codes[0], 0);
  // missing cells are skipped by the summary and are neither positive nor negative
  p = Prepare({{1, velkor::kMissing, 0}, {1, velkor::kMissing, 1}}, {1, 2, 3});
  EXPECT_EQ(p.summary[1], velkor::kMissing);
  EXPECT_EQ(p.summary[0], 2);
  EXPECT_EQ(p.codes[0], 3);  // subject 1: scan passes the missing cell and stops at t_3
}

TEST(IntervalData, JudgeTableFromResponses) {
  const std::vector<double> t = {2, 1, 3, 2, 1}, key = {1, 2, 3, 4, 5}, resp = {1, 2, 2, 3, 1};
  std::vector<double> judge(5 * 3, 0.0), distinct(3, -7);
  ASSERT_EQ(Cpp_TransformJudgeToInt(t.data(), 5, 3, key.data(), 5, resp.data(), judge.data(),
                                    distinct.data()),
            0);
  EXPECT_EQ(distinct, (std::vector<double>{1, 2, 3}));
  auto row = [&](int i) { return std::vector<double>{judge[i], judge[5 + i], judge[10 + i]}; };
  EXPECT_EQ(row(0), (std::vector<double>{1, 1, 1}));  // response 1 at k = 2: 1..2 and m
  EXPECT_EQ(row(1), (std::vector<double>{0, 0, 0}));  // response 2 at k = 1: nothing before
  EXPECT_EQ(row(2), (std::vector<double>{1, 1, 0}));  // response 2 at k = 3: 1..2
  EXPECT_EQ(row(3), (std::vector<double>{0, 0, 0}));  // other response: untouched
  EXPECT_EQ(row(4), (std::vector<double>{1, 0, 1}));  // response 1 at k = 1: column m too
}
