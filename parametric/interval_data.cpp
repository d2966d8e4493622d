// Interval-censored records from judge-by-storage-time tables (see interval_data.h).
#include "parametric/interval_data.h"

#include <algorithm>
#include <vector>

#include "companion/linalg.h"
#include "companion/sorting.h"
#include "companion/vectors.h"
#include "core/numeric.h"

int PrepareIntervalData(matrix<double>* judge, int n, int m, matrix<double>* stimes,
                        matrix<double>* data, int d, int& nRemoved, matrix<int>* flags, int& nKept,
                        matrix<double>* bounds, matrix<double>* codes, matrix<double>* times,
                        matrix<double>* summary) {
  (void)d;  // the data matrix carries its own column count
  nRemoved = 0;
  nKept = 0;
  if (n < 0) n = 0;
  if (m < 0) m = 0;
  if (!judge || !stimes || !flags || !bounds || !codes || !times) return -2;
  auto J = [&](int i, int c) -> double { return (*judge)(i, c); };
  auto t = [&](int c) -> double { return (*stimes)(c); };
  for (int i = 1; i <= n; ++i) {
    // default record: all zeros
    codes->set(i, 0.0);
    times->set(i, 0.0);
    bounds->set(i, 1, 0.0);
    bounds->set(i, 2, 0.0);
    flags->set(i, 0);
    if (J(i, 1) == 0.0) {
      flags->set(i, 1);
      codes->set(i, -1.0);
      continue;
    }
    if (m < 2) continue;
    int c = 2;
    while (c <= m && J(i, c) != 0.0) ++c;
    if (c > m) {
      codes->set(i, 0.0);
      times->set(i, t(m));
      continue;
    }
    double code = 3.0, lower = t(c - 1), upper = t(c), time = lower;
    if (t(c - 1) == 0.0) {
      lower = t(c);
      time = lower;
      upper = t(c + 1);  // the spare element of the storage times when c = m
    }
    for (int c2 = c; c2 <= m; ++c2) {
      const double j = J(i, c2);
      if (j == 1.0) {
        code = 2.0;
        time = t(c);
      } else if (code == 2.0 && j == 0.0 && t(c2) != lower) {
        code = 3.0;
        upper = t(c2);
      }
    }
    codes->set(i, code);
    times->set(i, time);
    bounds->set(i, 1, lower);
    bounds->set(i, 2, upper);
  }
  const int rows = static_cast<int>(std::min<std::uint32_t>(
      {static_cast<std::uint32_t>(n), times->rows, codes->rows, bounds->rows, flags->rows}));
  // order by time (stable): removed subjects, time 0, come first
  matrix<double> perm(static_cast<std::uint32_t>(rows), 1);
  V_Set1toN(&perm, rows);
  const bool dataOk = data && data->rows >= static_cast<std::uint32_t>(rows);
  if (dataOk)
    SortQ(times, 1, rows, {codes, bounds, &perm, data}, {flags}, true);
  else
    SortQ(times, 1, rows, {codes, bounds, &perm}, {flags}, true);
  matrix<double> dropped(static_cast<std::uint32_t>(rows), 1);
  for (int i = 0; i < rows; ++i) {
    dropped.data[i] = flags->data[i] != 0 ? 1.0 : 0.0;
    nRemoved += flags->data[i];
  }
  if (dataOk) M_RemoveRowsInList(data, &dropped);
  M_RemoveRowsInList(codes, &dropped);
  M_RemoveRowsInList(times, &dropped);
  M_RemoveRowsInList(bounds, &dropped);
  for (int i = 1; i <= nRemoved; ++i) flags->set(i, static_cast<int>(perm(i)));
  nKept = n - nRemoved;
  if (summary) {
    for (int c = 1; c <= m; ++c) {
      double sum = 0.0;
      bool any = false;
      for (int i = 1; i <= nKept; ++i) {
        const double v = J(i, c);
        if (velkor::IsMissing(v)) continue;
        sum += v;
        any = true;
      }
      if (any) {
        summary->set(c, 1, sum);
        summary->set(c, 2, sum * 100.0 / static_cast<double>(n));  // n before removal, deliberate
      } else {
        summary->set(c, 1, velkor::kMissing);
        summary->set(c, 2, velkor::kMissing);
      }
    }
  }
  if (nKept == 0) return -2;
  for (int i = 1; i <= n; ++i) {
    const double code = (*codes)(i);
    if (code < 0.0 || code > 3.0) return -1;
  }
  return 0;
}

int TransformJudgeToInt(matrix<double>* stime, int n, int m, matrix<double>* orderKey, int nCode,
                        matrix<double>* response, matrix<double>* judge, matrix<double>* distinct) {
  if (!stime || n <= 0) return 0;
  const int rows =
      static_cast<int>(std::min<std::uint32_t>(static_cast<std::uint32_t>(n), stime->rows));
  matrix<double> tt(static_cast<std::uint32_t>(rows), 1, stime->data, 0);
  matrix<double> key(static_cast<std::uint32_t>(rows), 1);
  matrix<double> resp(static_cast<std::uint32_t>(rows), 1);
  for (int i = 1; i <= rows; ++i) {
    key.set(i, orderKey ? (*orderKey)(i) : static_cast<double>(i));
    resp.set(i, response ? (*response)(i) : 0.0);
  }
  // 1-2. distinct times in increasing order
  SortQ(&tt, 1, rows, {&key, &resp}, true);
  std::vector<double> levels;
  levels.reserve(static_cast<std::size_t>(rows));
  levels.push_back(tt.data[0]);
  for (int i = 1; i < rows; ++i)
    if (tt.data[i] > tt.data[i - 1]) levels.push_back(tt.data[i]);
  if (distinct) {
    for (int j = 0; j < static_cast<int>(levels.size()) && j < m; ++j)
      distinct->set(j + 1, levels[static_cast<std::size_t>(j)]);
  }
  // 3. back to the input order
  SortQ(&key, 1, rows, {&tt, &resp}, true);
  // 4. judgements
  if (!judge) return 0;
  for (int i = 1; i <= std::min(nCode, rows); ++i) {
    const double ti = tt(i);
    const auto it = std::lower_bound(levels.begin(), levels.end(), ti);
    if (it == levels.end() || *it != ti) continue;  // a NaN time matches no level
    const int k = static_cast<int>(it - levels.begin()) + 1;
    const double r = resp(i);
    if (r == 1.0) {
      for (int c = 1; c <= k; ++c) judge->set(i, c, 1.0);
      judge->set(i, m, 1.0);
    } else if (r == 2.0) {
      for (int c = 1; c < k; ++c) judge->set(i, c, 1.0);
    }
  }
  return 0;
}
