#include "survival/preparation.h"

#include <cmath>
#include <vector>

#include "companion/sorting.h"
#include "core/frame.h"
#include "core/numeric.h"

namespace {

// Whole-number block size from a double cell: non-finite or negative sizes count as 0, sizes
// beyond `limit` are clipped to it (a double that does not fit an int never reaches a cast).
std::int64_t block_size(double cell, std::int64_t limit) {
  if (!std::isfinite(cell) || cell <= 0.0) return 0;
  if (cell >= static_cast<double>(limit)) return limit;
  return static_cast<std::int64_t>(cell);
}

}  // namespace

static int cReorganizeData_impl(matrix<double>* times, int& n, matrix<double>* status,
                                matrix<double>* weights, matrix<double>* groups,
                                matrix<double>* groupSizes, int nGroups, short grouped,
                                cReorganizeResult& result) {
  // 1. Status range check (skipped for grouped data, whose status column holds counts).
  if (grouped != -1) {
    for (int i = 0; i < n; ++i) {
      const double s = status->at0(static_cast<std::uint64_t>(i));
      if (s < 0.0 || s > 1.0) return -1;
    }
  }
  // 2. Too few observations.
  if (n < 2) return -2;

  // 3-4. Pending warning: no event at all, or every observation an event.
  double events = 0.0;
  for (int i = 0; i < n; ++i) events += status->at0(static_cast<std::uint64_t>(i));
  int pending = (events == 0.0) ? -3 : 0;
  if (events == static_cast<double>(n)) {
    bool constant = true;
    const double first = status->at0(0);
    for (int i = 1; i < n && constant; ++i)
      constant = status->at0(static_cast<std::uint64_t>(i)) == first;
    pending = constant ? -5 : (events == 0.0 ? -3 : 0);
  }

  // The ordering works on the rows every column actually has.
  std::uint64_t rows = static_cast<std::uint64_t>(n);
  for (const matrix<double>* m : {times, status, weights, groups})
    if (m->rows < rows) rows = m->rows;

  // 5. Group blocks: one stable sort by label applied to every column (the same permutation as
  // sorting status/weights by label and then times/labels by label, since the sort is stable).
  if (nGroups > 1 && rows > 1) {
    const std::vector<std::uint32_t> order = SortOrder(groups->data, rows);
    ApplyRowPermutation({status, weights, times, groups}, 0, order);
  }

  // 6. Largest time.
  double largest = velkor::kMissing;
  for (std::uint64_t i = 0; i < static_cast<std::uint64_t>(n); ++i) {
    const double t = times->at0(i);
    if (t > largest) largest = t;
  }
  result.maxTime = largest;

  // 7. No groups: no time ordering.
  if (nGroups <= 0) return pending;

  // 8. Each block ascending in time, carrying status and weights.
  std::int64_t start = 0;
  const std::int64_t total = static_cast<std::int64_t>(rows);
  for (int g = 1; g <= nGroups && start < total; ++g) {
    const std::int64_t size = block_size((*groupSizes)(1, g), total - start);
    if (size > 1) {
      const std::size_t off = static_cast<std::size_t>(start);
      const std::vector<std::uint32_t> order =
          SortOrder(times->data + off, static_cast<std::size_t>(size));
      ApplyRowPermutation({status, weights, times}, off, order);
    }
    start += size;
  }
  // 9.
  return pending;
}

int CheckStatusFormat(const matrix<double>* status, int n, matrix<double>* codes,
                      std::uint32_t& nCodes, int censorCode, matrix<double>* recoded) {
  auto& st = const_cast<matrix<double>&>(*status);
  const double censor = static_cast<double>(censorCode);
  // 1. Copy.
  for (int i = 0; i < n; ++i)
    recoded->at0(static_cast<std::uint64_t>(i)) = st.at0(static_cast<std::uint64_t>(i));
  // 2. First value that differs from the censoring code (a NaN differs).
  int k = 0;
  while (k < n && st.at0(static_cast<std::uint64_t>(k)) == censor) ++k;
  if (k >= n) return -1;
  // 3.
  recoded->at0(static_cast<std::uint64_t>(k)) = 1.0;
  nCodes = 1;
  codes->at0(0) = st.at0(static_cast<std::uint64_t>(k));
  // 4. Row 0 is not revisited (deliberate: a censored first row keeps the code itself).
  for (int i = 1; i < n; ++i) {
    const double v = st.at0(static_cast<std::uint64_t>(i));
    if (v == censor) {
      recoded->at0(static_cast<std::uint64_t>(i)) = 0.0;
      continue;
    }
    std::uint32_t m = 0;
    for (std::uint32_t c = 0; c < nCodes; ++c) {
      const double code = codes->at0(c);
      if (code == v) {  // a NaN matches nothing, so each NaN gets a code of its own
        m = c + 1;
        break;
      }
    }
    if (m == 0) {
      codes->at0(nCodes) = v;
      m = ++nCodes;
    }
    recoded->at0(static_cast<std::uint64_t>(i)) = static_cast<double>(m);
  }
  return 0;
}

// Allocation failures become status codes (the worker is exported under its own name).
int cReorganizeData(matrix<double>* times, int& n, matrix<double>* status, matrix<double>* weights,
                    matrix<double>* groups, matrix<double>* groupSizes, int nGroups, short grouped,
                    cReorganizeResult& result) {
  return velkor::guarded_call([&] {
    return cReorganizeData_impl(times, n, status, weights, groups, groupSizes, nGroups, grouped,
                                result);
  });
}
