#include "survival/summary.h"

#include <cmath>
#include <cstdint>

#include "core/numeric.h"
#include "survival/kaplan_meier.h"

using velkor::kMissing;

int BuildSummary(matrix<double>* tables, int R, int G, matrix<double>* lastRows,
                 matrix<double>* totals, matrix<double>* summary) {
  const std::uint64_t rowsPer = R > 0 ? static_cast<std::uint64_t>(R) : 0;
  for (int g = 0; g < G; ++g) {
    const std::uint64_t base = static_cast<std::uint64_t>(g) * rowsPer * km_col::kCount;
    auto at = [&](std::uint64_t j, int c) {
      return tables->at0(base + static_cast<std::uint64_t>(c - 1) * rowsPer + j);
    };
    const double lr = lastRows->at0(static_cast<std::uint64_t>(g));
    const std::uint64_t last = !(lr >= 1.0) ? 0
                               : lr >= static_cast<double>(rowsPer)
                                   ? (rowsPer ? rowsPer - 1 : 0)
                                   : static_cast<std::uint64_t>(lr);
    double d = 0.0, c = 0.0;
    for (std::uint64_t j = 1; j <= last; ++j) {
      d += at(j, km_col::kEvents);
      c += at(j, km_col::kCensored);
    }
    const int row = g + 1;
    summary->set(row, 1, totals->at0(static_cast<std::uint64_t>(g)));
    summary->set(row, 2, d);
    summary->set(row, 3, c);
    summary->set(row, 4, d + c != 0.0 ? 100.0 * c / (d + c) : kMissing);
    summary->set(row, 5, last >= 1 ? at(1, km_col::kTime) : kMissing);
    summary->set(row, 6, last >= 1 ? at(last, km_col::kTime) : kMissing);
  }
  return 0;
}

int BuildWeightedSummary(matrix<double>* times, matrix<double>* status, matrix<double>* weights,
                         int n, matrix<double>* groupSizes, int nGroups, int eventCode,
                         matrix<double>* summary) {
  (void)times;
  const std::int64_t total = n > 0 ? n : 0;
  const int groups = nGroups > 0 ? nGroups : 1;
  const double event = static_cast<double>(eventCode);
  std::int64_t start = 0;
  for (int g = 1; g <= groups; ++g) {
    std::int64_t size = total - start;
    if (nGroups > 0) {
      const double cell = (*groupSizes)(1, g);
      size = !std::isfinite(cell) || cell <= 0.0          ? 0
             : cell >= static_cast<double>(total - start) ? total - start
                                                          : static_cast<std::int64_t>(cell);
    }
    double sw = 0.0, d = 0.0, c = 0.0;
    for (std::int64_t i = start; i < start + size; ++i) {
      const double w = weights->at0(static_cast<std::uint64_t>(i));
      sw += w;
      (status->at0(static_cast<std::uint64_t>(i)) == event ? d : c) += w;
    }
    summary->set(g, 1, static_cast<double>(size));
    summary->set(g, 2, sw);
    summary->set(g, 3, d);
    summary->set(g, 4, c);
    summary->set(g, 5, sw != 0.0 ? 100.0 * c / sw : kMissing);
    start += size;
  }
  return 0;
}
