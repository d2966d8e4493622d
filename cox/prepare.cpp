// Cox data preparation: rows sorted by stratum and time, and the tables of tied blocks that the
// likelihood walks (see cox.h for the contract of cReorganizeDataCox).
#include <algorithm>
#include <cmath>

#include "companion/sorting.h"
#include "cox/cox.h"

namespace velkor::cox {
namespace {

double Linear(const matrix<double>* m, std::size_t k) {
  return (m && k < m->count && m->data) ? m->data[k] : 0.0;
}

}  // namespace

int SortedRowOrder(matrix<double>* time, int n, matrix<double>* status, matrix<double>* strataKey,
                   matrix<double>* strataSizes, int m, std::vector<std::uint32_t>& order,
                   std::vector<std::size_t>& first, std::vector<std::size_t>& size) {
  // Rows actually held by the time and status containers (a shorter container clips n).
  std::size_t rows = n > 0 ? static_cast<std::size_t>(n) : 0;
  rows = std::min<std::size_t>(rows, time ? time->rows : 0);
  rows = std::min<std::size_t>(rows, status ? status->rows : 0);

  // Checks, before anything is reordered or written: status in [0, 1] (a NaN is not), at least
  // two rows, at least one event.
  double events = 0.0;
  for (std::size_t i = 0; i < rows; ++i) {
    const double s = status->data[i];
    if (!(s >= 0.0 && s <= 1.0)) return -1;
    events += s;
  }
  if (rows < 2) return -2;
  if (events == 0.0) return -3;

  // One stable permutation: by stratum key (with more than one stratum), then by time inside each
  // stratum's run of rows.
  const bool identity = !(m > 1 && strataKey && strataKey->rows >= rows);
  const int nStrata = m < 1 ? 0 : m;
  first.assign(static_cast<std::size_t>(nStrata), 0);
  size.assign(first.size(), 0);
  {
    std::size_t at = 0;
    for (int s = 0; s < nStrata; ++s) {
      const double want = m == 1 && (!strataSizes || strataSizes->count == 0)
                              ? static_cast<double>(rows)
                              : Linear(strataSizes, static_cast<std::size_t>(s));
      std::size_t len = 0;
      if (want > 0 && at < rows) len = static_cast<std::size_t>(std::min(want, double(rows - at)));
      first[static_cast<std::size_t>(s)] = at;
      size[static_cast<std::size_t>(s)] = len;
      at += len;
    }
  }
  // One stratum holding every row in input order: the order is the time order itself (no
  // identity permutation to build first). Otherwise start from the identity or the key order.
  if (identity && nStrata >= 1 && size[0] == rows && rows >= 2) {
    order = SortOrder(time->data, rows);
    return 0;
  }
  if (identity) {
    order.resize(rows);
    for (std::size_t i = 0; i < rows; ++i) order[i] = static_cast<std::uint32_t>(i);
  } else {
    order = SortOrder(strataKey->data, rows);
  }
  std::vector<double> block_times;
  for (std::size_t s = 0; s < first.size(); ++s) {
    if (size[s] < 2) continue;
    if (identity && first[s] == 0) {  // rows still in input order: sort the times where they are
      std::vector<std::uint32_t> by_time = SortOrder(time->data, size[s]);
      if (size[s] == rows) {
        order.swap(by_time);  // the whole order: no copy
      } else {
        std::copy(by_time.begin(), by_time.end(), order.begin());
      }
      continue;
    }
    block_times.resize(size[s]);
    for (std::size_t r = 0; r < size[s]; ++r) block_times[r] = time->data[order[first[s] + r]];
    const std::vector<std::uint32_t> by_time = SortOrder(block_times.data(), size[s]);
    std::vector<std::uint32_t> sub(size[s]);
    for (std::size_t r = 0; r < size[s]; ++r) sub[r] = order[first[s] + by_time[r]];
    std::copy(sub.begin(), sub.end(), order.begin() + static_cast<std::ptrdiff_t>(first[s]));
  }
  return 0;
}

void FillBlockTables(const matrix<double>* time, const matrix<double>* status,
                     const matrix<double>* col3, const std::vector<std::size_t>& first,
                     const std::vector<std::size_t>& size, matrix<int>* nTimes,
                     matrix<int>* nCensored, matrix<int>* blockStart, matrix<int>* blockSize,
                     matrix<int>* blockEvents, int* maxTimes) {
  // Block tables.
  int kmax = 0;
  auto third = [&](std::size_t i) { return (col3 && i < col3->rows) ? col3->data[i] : 1.0; };
  for (std::size_t s = 0; s < first.size(); ++s) {
    const int sr = static_cast<int>(s) + 1;
    const std::size_t lo = first[s], hi = first[s] + size[s];
    int censored = 0;
    for (std::size_t i = lo; i < hi; ++i)
      if (status->data[i] == 0.0) ++censored;
    nCensored->set(sr, censored);
    if (size[s] == 0) {
      nTimes->set(sr, 0);
      continue;
    }
    int k = 1;
    std::size_t start = lo, len = 1;
    auto close_block = [&]() {
      int zeros = 0;
      for (std::size_t i = start; i < start + len && i < hi; ++i)
        if (status->data[i] == 0.0) ++zeros;
      blockStart->set(sr, k, static_cast<int>(start + 1));
      blockSize->set(sr, k, static_cast<int>(len));
      blockEvents->set(sr, k, static_cast<int>(len) - zeros);
    };
    for (std::size_t i = lo + 1; i < hi; ++i) {
      if (time->data[i] == time->data[i - 1]) {  // exact equality: no tolerance
        if (third(i) != 0.0) ++len;
      } else {
        close_block();
        ++k;
        start = i;
        len = 1;
      }
    }
    close_block();
    nTimes->set(sr, k);
    kmax = std::max(kmax, k);
  }
  if (maxTimes) *maxTimes = kmax;
}

int cReorganizeDataCox(matrix<double>* time, int n, int p, matrix<double>* status,
                       matrix<double>* col2, matrix<double>* col3, matrix<double>* X,
                       matrix<double>* strataKey, matrix<double>* strataSizes, int m,
                       matrix<int>* nTimes, matrix<int>* nCensored, matrix<int>* blockStart,
                       matrix<int>* blockSize, matrix<int>* blockEvents, int* maxTimes) {
  std::vector<std::uint32_t> order;
  std::vector<std::size_t> first, size;
  const int rc = SortedRowOrder(time, n, status, strataKey, strataSizes, m, order, first, size);
  if (rc != 0) return rc;
  for (matrix<double>* col : {time, status, col2, col3, X, strataKey}) {
    if (col && col->rows >= order.size()) ApplyRowPermutation(col, 0, order);
  }
  (void)p;  // every column of X moves with its row
  FillBlockTables(time, status, col3, first, size, nTimes, nCensored, blockStart, blockSize,
                  blockEvents, maxTimes);
  return 0;
}

RiskLayout LayoutFromTables(std::size_t n, int nStrata, matrix<double>* strataSizes,
                            matrix<int>* nTimes, matrix<int>* blockStart, matrix<int>* blockSize,
                            matrix<int>* blockEvents) {
  auto cell = [](matrix<int>* t, int s, int k) -> int {
    if (!t || s < 0 || k < 0) return 0;
    const auto us = static_cast<std::size_t>(s), uk = static_cast<std::size_t>(k);
    return (us < t->rows && uk < t->cols) ? t->data[uk * t->rows + us] : 0;
  };
  int cols = 0;
  if (blockStart && blockSize && blockEvents)
    cols = static_cast<int>(std::min({blockStart->cols, blockSize->cols, blockEvents->cols}));
  return MakeRiskLayout(
      n, nStrata, [&](int s) { return Linear(strataSizes, static_cast<std::size_t>(s)); },
      [&](int s) {
        const std::size_t us = static_cast<std::size_t>(s);
        return (nTimes && us < nTimes->count) ? nTimes->data[us] : 0;
      },
      [&](int s, int k) { return cell(blockStart, s, k); },
      [&](int s, int k) { return cell(blockSize, s, k); },
      [&](int s, int k) { return cell(blockEvents, s, k); }, cols);
}

}  // namespace velkor::cox
