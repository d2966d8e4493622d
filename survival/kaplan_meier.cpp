#include "survival/kaplan_meier.h"

#include <cmath>

#include "companion/distributions.h"
#include "core/frame.h"
#include "core/numeric.h"

using namespace km_col;

namespace {

// Table cell of table row j (0-based, origin = 0) and column c (1-based); the spare element when
// outside the table.
inline double& cell(matrix<double>* t, std::uint64_t j, int c) {
  return t->at0(j, static_cast<std::uint64_t>(c - 1));
}

void write_origin(matrix<double>* table) {
  for (int c = 1; c <= kCount; ++c) cell(table, 0, c) = 0.0;
  cell(table, 0, kCondSurv) = 1.0;
  cell(table, 0, kSurv) = 1.0;
}

}  // namespace

namespace {

// Steps 5 to 10 of the product-limit table: rows 1, 2, ... from the observations 0 .. len - 1 of
// the block (time(i), status(i), weight(i)) into table cells cellAt(j, c) (row j, 1-based column
// c), starting from N at risk. Returns the last row written.
template <class Time, class Status, class Weight, class Cell>
std::uint32_t product_limit_rows(std::uint64_t len, short grouped, double event, double N,
                                 Time time, Status status, Weight weight, Cell cellAt) {
  double S = 1.0, G = 0.0, prevP = 1.0;
  std::uint64_t i = 0;
  std::uint32_t j = 0;
  while (i < len) {
    ++j;
    // 5. One run of equal times.
    const double t = time(i);
    double d = 0.0, c = 0.0;
    do {
      const double st = status(i);
      const double w = weight(i);
      if (grouped == -1) {
        d += st;
        c += w;
      } else if (st == event) {
        d += w;
      } else {
        c += w;
      }
      ++i;
    } while (i < len && !(time(i) > t));
    // 6.
    cellAt(j, kEvents) = d;
    cellAt(j, kCensored) = c;
    cellAt(j, kAtRisk) = N;
    const double riskUsed = N;
    N = N - d - c;
    cellAt(j, kTime) = t;
    cellAt(j, kRiskUsed) = riskUsed;
    // 7. Nobody left at risk: the row keeps its counts and the table ends here.
    if (!(riskUsed > 0.0)) return j;
    // 8. Censorings only: the previous estimate carries forward.
    if (!(d > 0.0)) {
      cellAt(j, kCondSurv) = prevP;
      cellAt(j, kSurv) = S;
      cellAt(j, kGreenwood) = G;
      continue;
    }
    // 9. Product-limit step. t_next: the first time after the run (the last run: its time + 1).
    const double p = 1.0 - d / riskUsed;
    const double Sj = p * S;
    const double tNext = i < len ? time(i) : time(i - 1) + 1.0;
    cellAt(j, kCondSurv) = p;
    cellAt(j, kSurv) = Sj;
    cellAt(j, kDensity) = (S - Sj) / (tNext - t);
    S = Sj;
    prevP = p;
    if (p > 0.0) G += (1.0 - p) / p / riskUsed;
    cellAt(j, kGreenwood) = G;
  }
  // 10.
  return j;
}

// Rows off .. off + len - 1 of an n x 1 input all inside the matrix.
bool holds(const matrix<double>* m, std::uint64_t off, std::uint64_t len) {
  return m->data != nullptr && m->cols >= 1 && off + len <= m->rows;
}

}  // namespace

// Kaplan & Meier (1958): S(t) = prod_(t_j <= t) (1 - d_j / n_j); Greenwood (1926):
// Var S(t) = S(t)^2 sum_(t_j <= t) d_j / (n_j (n_j - d_j)) = S^2 sum (1 - p_j) / (p_j n_j).
int ComputeKaplanMeier(std::uint32_t offset, int n, short grouped, int eventCode,
                       matrix<double>* times, matrix<double>* status, matrix<double>* weights,
                       double& total, matrix<double>* table, std::uint32_t& rows,
                       matrix<double>* workspace) {
  const std::uint64_t off = offset;
  const std::uint64_t len = n > 0 ? static_cast<std::uint64_t>(n) : 0;
  auto T = [&](std::uint64_t i) { return times->at0(off + i); };
  // 1. Workspace: each observation's time and the time of the one after it.
  if (workspace != nullptr) {
    for (std::uint64_t i = 0; i < len; ++i) {
      workspace->at0(i, 0) = T(i);
      workspace->at0(i, 1) = i + 1 < len ? T(i + 1) : T(i) + 1.0;
    }
  }
  // 2. Origin row.
  write_origin(table);
  // 3. Initial number at risk (weights deliberately left out in individual mode).
  double N = 0.0;
  if (grouped == -1) {
    for (std::uint64_t i = 0; i < len; ++i) N += status->at0(off + i) + weights->at0(off + i);
  } else {
    N = static_cast<double>(n);
  }
  total = N;
  // 4.
  if (n < 1) {
    rows = 0;
    return 0;
  }
  const double event = static_cast<double>(eventCode);
  // Every observation and every possible row (at most one per observation) inside the arrays:
  // the cells are read and written directly; otherwise through the spare-element rule.
  if (holds(times, off, len) && holds(status, off, len) && holds(weights, off, len) &&
      table->data != nullptr && table->rows > len && table->cols >= kCount) {
    const double *t = times->data + off, *st = status->data + off, *w = weights->data + off;
    double* cells = table->data;
    const std::uint64_t ld = table->rows;
    rows = product_limit_rows(
        len, grouped, event, N, [&](std::uint64_t k) { return t[k]; },
        [&](std::uint64_t k) { return st[k]; }, [&](std::uint64_t k) { return w[k]; },
        [&](std::uint64_t r, int c) -> double& { return cells[(c - 1) * ld + r]; });
  } else {
    rows = product_limit_rows(
        len, grouped, event, N, T, [&](std::uint64_t k) { return status->at0(off + k); },
        [&](std::uint64_t k) { return weights->at0(off + k); },
        [&](std::uint64_t r, int c) -> double& { return cell(table, r, c); });
  }
  return static_cast<int>(rows);
}

// Cutler & Ederer (1958) actuarial estimator with the withdrawal adjustment n' = N - c / 2.
int ComputeLife(std::uint32_t offset, int n, short grouped, int eventCode, matrix<double>* times,
                matrix<double>* status, matrix<double>* weights, double& total,
                matrix<double>* table, std::uint32_t& rows, double width) {
  const std::uint64_t off = offset;
  const std::uint64_t len = n > 0 ? static_cast<std::uint64_t>(n) : 0;
  write_origin(table);
  // Initial number at risk and largest finite time.
  double N = 0.0, tMax = 0.0;
  for (std::uint64_t i = 0; i < len; ++i) {
    const double t = times->at0(off + i);
    if (std::isnan(t)) continue;
    N += grouped == -1 ? status->at0(off + i) + weights->at0(off + i) : weights->at0(off + i);
    if (std::isfinite(t) && t > tMax) tMax = t;
  }
  total = N;
  if (n < 1 || table->rows < 2) {
    rows = 0;
    return 0;
  }
  double w = width;
  if (!(w > 0.0) || !std::isfinite(w)) w = tMax > 0.0 ? tMax / 10.0 : 1.0;
  const double capacity = static_cast<double>(table->rows - 1);
  const double wanted = std::floor(tMax / w) + 1.0;
  const std::uint32_t K = static_cast<std::uint32_t>(wanted < capacity ? wanted : capacity);

  // Counts per interval (the table's own columns 4 and 5 accumulate them).
  for (std::uint32_t j = 1; j <= K; ++j) {
    cell(table, j, kEvents) = 0.0;
    cell(table, j, kCensored) = 0.0;
  }
  const double event = static_cast<double>(eventCode);
  for (std::uint64_t i = 0; i < len; ++i) {
    const double t = times->at0(off + i);
    if (std::isnan(t)) continue;
    const double pos = t > 0.0 ? std::floor(t / w) : 0.0;
    const std::uint32_t j =
        pos >= static_cast<double>(K - 1) ? K : static_cast<std::uint32_t>(pos) + 1;
    const double s = status->at0(off + i), wt = weights->at0(off + i);
    if (grouped == -1) {
      cell(table, j, kEvents) += s;
      cell(table, j, kCensored) += wt;
    } else if (s == event) {
      cell(table, j, kEvents) += wt;
    } else {
      cell(table, j, kCensored) += wt;
    }
  }
  double S = 1.0, G = 0.0;
  for (std::uint32_t j = 1; j <= K; ++j) {
    const double d = cell(table, j, kEvents), c = cell(table, j, kCensored);
    const double eff = N - c / 2.0;
    const double q = eff > 0.0 ? d / eff : 0.0;
    const double p = 1.0 - q;
    const double Sj = S * p;
    const double hazDen = w * (eff - d / 2.0);
    const double h = hazDen > 0.0 ? d / hazDen : 0.0;
    if (p > 0.0 && eff > 0.0) G += q / (eff * p);
    cell(table, j, kTime) = (j - 1) * w;
    cell(table, j, kEnd) = j * w;
    cell(table, j, kAtRisk) = N;
    cell(table, j, kRiskUsed) = eff;
    cell(table, j, kCondSurv) = p;
    cell(table, j, kSurv) = Sj;
    cell(table, j, kDensity) = (S - Sj) / w;
    cell(table, j, kHazard) = h;
    cell(table, j, kGreenwood) = G;
    const double shrink = 1.0 - (h * w / 2.0) * (h * w / 2.0);
    cell(table, j, kHazardSE) = d > 0.0 && shrink > 0.0 ? h * std::sqrt(shrink / d) : 0.0;
    S = Sj;
    N = N - d - c;
  }
  rows = K;
  return static_cast<int>(K);
}

static int cRunLife_impl(matrix<double>* times, matrix<double>* status, matrix<double>* weights,
                         int n, matrix<double>* groupSizes, int nGroups, short grouped,
                         int eventCode, short lifeTable, double width, int blockRows,
                         matrix<double>* tables, matrix<double>* lastRows, matrix<double>* totals) {
  const std::int64_t total = n > 0 ? n : 0;
  const int groups = nGroups > 0 ? nGroups : 1;
  const std::uint32_t R = blockRows > 0 ? static_cast<std::uint32_t>(blockRows) : 0;
  const std::uint64_t block = static_cast<std::uint64_t>(R) * kCount;
  std::int64_t start = 0;
  for (int g = 0; g < groups; ++g) {
    std::int64_t size = total - start;
    if (nGroups > 0) {
      const double cellSize = (*groupSizes)(1, g + 1);
      size = !std::isfinite(cellSize) || cellSize <= 0.0      ? 0
             : cellSize >= static_cast<double>(total - start) ? total - start
                                                              : static_cast<std::int64_t>(cellSize);
    }
    // The group's table: a view over its slice of `tables` when the slice fits, else a private
    // table whose cells are dropped (the caller's array was too short).
    const std::uint64_t first = static_cast<std::uint64_t>(g) * block;
    const bool fits = first + block <= tables->count && block > 0;
    matrix<double> own(fits ? R : 1, kCount, fits ? tables->data + first : nullptr, fits ? 1 : 0);
    for (std::uint64_t k = 0; k < own.count; ++k) own.data[k] = velkor::kMissing;
    double groupTotal = 0.0;
    std::uint32_t rows = 0;
    const auto offset = static_cast<std::uint32_t>(start);
    if (lifeTable == -1) {
      ComputeLife(offset, static_cast<int>(size), grouped, eventCode, times, status, weights,
                  groupTotal, &own, rows, width);
    } else {
      ComputeKaplanMeier(offset, static_cast<int>(size), grouped, eventCode, times, status, weights,
                         groupTotal, &own, rows, nullptr);
    }
    lastRows->at0(static_cast<std::uint64_t>(g)) = rows;
    totals->at0(static_cast<std::uint64_t>(g)) = groupTotal;
    start += size;
  }
  return 0;
}

namespace {

// The Nelson-Aalen rows 1 .. T from product-limit cells km(i, c) (row i, 1-based column c) into
// na(r, c) (0-based row and column), one pass.
template <class In, class Out>
void nelson_aalen_rows(In km, Out na, int T, double z, int method) {
  bool started = false;
  double H = 0.0, V = 0.0;
  for (int i = 1; i <= T; ++i) {
    const auto r = static_cast<std::uint64_t>(i - 1);
    const auto row = static_cast<std::uint64_t>(i);
    const double n1 = km(row, kRiskUsed);
    const double d = km(row, kEvents);
    na(r, 0) = km(row, kTime);
    na(r, 1) = n1;
    na(r, 2) = d;
    na(r, 3) = km(row, kCensored);
    if (!(d > 0.0) || !(n1 > 0.0)) {
      // No estimate yet, or carry the previous row's estimate forward.
      for (std::uint64_t c = 4; c < 9; ++c)
        na(r, c) = (started && r > 0) ? na(r - 1, c) : velkor::kMissing;
      continue;
    }
    started = true;
    H += d / n1;
    double inc;
    if (method == 1 || n1 == 1.0) {
      inc = d / (n1 * n1);
    } else if (method == 2) {
      inc = (n1 - d) * d / (n1 * n1 * n1);
    } else {
      inc = (n1 - d) * d / (n1 * n1 * (n1 - 1.0));
    }
    V += inc;
    const double se = std::sqrt(V);
    na(r, 4) = H;
    na(r, 5) = V;
    na(r, 6) = se;
    const double factor = std::exp(z * se / H);
    na(r, 7) = H / factor;
    na(r, 8) = H * factor;
  }
}

}  // namespace

// Nelson (1972), Aalen (1978): H(t) = sum_(t_j <= t) d_j / n_j.
int TransNelsonAalen(matrix<double>* km, int T, double alpha, int method, matrix<double>* na) {
  const double z = InvCDFNormalStd(1.0 - alpha * 0.5);
  // Every cell inside both tables (the usual case): the columns are read and written directly;
  // otherwise through the spare-element rule.
  if (T > 0 && km->data != nullptr && na->data != nullptr && km->cols >= kRiskUsed &&
      km->rows > static_cast<std::uint32_t>(T) && na->cols >= 9 &&
      na->rows >= static_cast<std::uint32_t>(T)) {
    const double* in = km->data;
    const std::uint64_t ldIn = km->rows, ldOut = na->rows;
    double* out = na->data;
    nelson_aalen_rows(
        [&](std::uint64_t i, int c) { return in[(c - 1) * ldIn + i]; },
        [&](std::uint64_t r, std::uint64_t c) -> double& { return out[c * ldOut + r]; }, T, z,
        method);
  } else {
    nelson_aalen_rows([&](std::uint64_t i, int c) { return cell(km, i, c); },
                      [&](std::uint64_t r, std::uint64_t c) -> double& { return na->at0(r, c); }, T,
                      z, method);
  }
  return 0;
}

// Allocation failures become status codes (the worker is exported under its own name).
int cRunLife(matrix<double>* times, matrix<double>* status, matrix<double>* weights, int n,
             matrix<double>* groupSizes, int nGroups, short grouped, int eventCode, short lifeTable,
             double width, int blockRows, matrix<double>* tables, matrix<double>* lastRows,
             matrix<double>* totals) {
  return velkor::guarded_call([&] {
    return cRunLife_impl(times, status, weights, n, groupSizes, nGroups, grouped, eventCode,
                         lifeTable, width, blockRows, tables, lastRows, totals);
  });
}
