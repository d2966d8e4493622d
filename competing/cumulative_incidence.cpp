#include "competing/cumulative_incidence.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "companion/distributions.h"
#include "companion/sorting.h"
#include "companion/vectors.h"
#include "core/numeric.h"

namespace velkor::competing {

namespace {

using namespace cif_col;

// Rows of a column that a count of n may address.
long long clipped_rows(const matrix<double>* m, long long n) {
  if (m == nullptr) return 0;
  return std::clamp<long long>(n, 0, static_cast<long long>(m->rows));
}

// Size of block g (1-based) from row 1, column g of the sizes: whole numbers, not finite or
// negative counts 0.
long long block_size(matrix<double>* sizes, int g) {
  const double s = (*sizes)(1, g);
  if (!std::isfinite(s) || s <= 0.0) return 0;
  return s >= 4294967296.0 ? 4294967296LL : static_cast<long long>(s);
}

}  // namespace

int ReorganizeDataCum(matrix<double>* times, int n, matrix<double>* status,
                      matrix<double>* allCause, matrix<double>* groups, matrix<double>* groupSizes,
                      int nGroups, double& maxTime) {
  // 1. Fewer than two observations: nothing is done.
  if (n < 2) return -2;

  // 2. Pending warning from the sum of the cause numbers (no range check: they are codes).
  const double sum = V_Sum2(status, n);
  int pending = sum == 0.0 ? -3 : 0;
  if (sum == static_cast<double>(n) && V_IsConstant(status, n)) pending = -5;

  // 3. Contiguous group blocks in ascending label order (stable: ties keep their order).
  if (nGroups > 1) SortQ(groups, 1, n, {times, status});

  // 4. Largest time, over a cleared exclusion mask.
  matrix<short> mask(static_cast<std::uint32_t>(clipped_rows(times, n)), 1);
  InitVectorToFalse(&mask, n);
  maxTime = V_Max(times, n, &mask);

  // 5. Each block ascending in time.
  long long start = 1;
  for (int g = 1; g <= nGroups && start <= n; ++g) {
    const long long size = block_size(groupSizes, g);
    const long long last = std::min<long long>(start + size - 1, n);
    if (last > start)
      SortQ(times, static_cast<int>(start), static_cast<int>(last), {status, groups});
    start += size;
  }

  // 6. All-cause status: any cause is an event.
  const long long rows = std::min(clipped_rows(status, n), clipped_rows(allCause, n));
  for (long long i = 0; i < rows; ++i) {
    allCause->data[i] = status->data[i] == 0.0 ? 0.0 : 1.0;
  }
  return pending;
}

// Variance in linear time. Write a_j = d_j / (n_j (n_j - d_j)), b_j = S_(j-1)^2 e_j (n_j - e_j) /
// n_j^3 and c_j = S_(j-1) e_j / n_j^2 for the rows j with n_j > d_j (0 for the others). Then
//   Var_i = Q_i + B_i - 2 R_i,  Q_i = sum_j a_j (F_i - F_j)^2,  B_i = sum_j b_j,
//                               R_i = sum_j c_j (F_i - F_j),
// sums over j = f .. i. Moving from row i-1 to row i with D = F_i - F_(i-1) >= 0:
//   Q_i = Q_(i-1) + D (2 P_(i-1) + D A_(i-1)),  P_i = P_(i-1) + D A_(i-1),
//   R_i = R_(i-1) + D C_(i-1),
// with A = sum a_j, C = sum c_j, P = sum a_j (F_i - F_j), and row i's own terms then added to A,
// B and C (its (F_i - F_i) factors vanish). Every update adds non-negative terms, so nothing
// cancels until the final Q + B - 2R, which the direct sum subtracts as well; the result agrees
// with the quadratic sum to rounding (tests/competing compares both).
void CumIncCalc(int T, matrix<double>* times, matrix<double>* status, int cause, double alpha,
                int n, int offset, matrix<double>* productLimit, matrix<double>* incidence,
                matrix<double>* complement) {
  if (incidence == nullptr || times == nullptr || status == nullptr || productLimit == nullptr) {
    return;
  }
  // Rows past the incidence matrix could only reach its spare element, and no row depends on a
  // later one: the work stops at the matrix's last row.
  T = static_cast<int>(std::min<long long>(T, incidence->rows));
  if (T < 1) return;
  matrix<double>& pl = *productLimit;
  const double target = static_cast<double>(cause);
  const double z = InvCDFNormalStd(1.0 - alpha * 0.5);

  // The table is built in the caller's matrix when it has the full T x 10 shape (the flat entry's
  // case), else in a private buffer written back cell by cell; either way the loops below index
  // plain column-major memory, row i and column c at (c - 1) * ld + i - 1.
  std::vector<double> local;
  double* base = incidence->data;
  std::size_t ld = incidence->rows;
  const bool direct = base != nullptr && incidence->cols >= kCount;
  if (!direct) {
    local.resize(static_cast<std::size_t>(T) * kCount);
    base = local.data();
    ld = static_cast<std::size_t>(T);
    for (int i = 1; i <= T; ++i) {
      for (int c = 1; c <= kCount; ++c) local[(c - 1) * ld + (i - 1)] = (*incidence)(i, c);
    }
  }
  const auto cell = [&](int i, int c) -> double& {
    return base[static_cast<std::size_t>(c - 1) * ld + static_cast<std::size_t>(i - 1)];
  };
  // Product-limit table row j (0 = origin) is matrix row j + 1; rows beyond the matrix are absent.
  const long long plLast =
      pl.cols >= 8 && pl.data != nullptr ? static_cast<long long>(pl.rows) - 1 : -1;
  const auto present = [&](long long j) { return j <= plLast; };
  const auto plv = [&](long long j, int c) {
    return pl.data[static_cast<std::size_t>(c - 1) * pl.rows + static_cast<std::size_t>(j)];
  };

  // 1. Failures from the cause per distinct time: walk the block, a new row at each time change.
  {
    const long long first = std::max<long long>(offset, 0);
    const long long end = std::min<long long>(static_cast<long long>(offset) + n,
                                              std::min<long long>(times->rows, status->rows));
    long long u = 1;
    for (long long k = first; k < end && u <= T; ++k) {
      if (status->data[k] == target) cell(static_cast<int>(u), kCauseEvents) += 1.0;
      if (k + 1 < end && times->data[k + 1] == times->data[k]) continue;
      ++u;
    }
  }

  // 2. Columns copied from the product-limit table.
  for (int i = 1; i <= T; ++i) {
    const bool p = present(i);
    cell(i, kTime) = p ? plv(i, 1) : kMissing;
    cell(i, kAtRisk) = p ? plv(i, 6) : kMissing;
    cell(i, kAllEvents) = p ? plv(i, 4) : kMissing;
    cell(i, kCensored) = p ? plv(i, 5) : kMissing;
  }
  // A row contributes an estimate when it has an event of the cause and product-limit values.
  const auto has_event = [&](int i) { return cell(i, kCauseEvents) > 0.0 && present(i); };

  // 3. Leading rows without an event of the cause carry no estimate.
  int f = 1;
  while (f < T && !has_event(f)) {
    for (int c = kIncidence; c <= kOverall; ++c) cell(f, c) = kMissing;
    ++f;
  }

  const auto limits = [&](int i, double F, double var) {
    const double se = var > 0.0 ? std::sqrt(var) : 0.0;
    const bool ok = std::isfinite(z);
    cell(i, kLower) = ok ? std::exp(std::log(F) - z * se / F) : kMissing;
    cell(i, kUpper) = ok ? std::exp(std::log(F) + z * se / F) : kMissing;
  };

  // 4-5. Estimates, variances (held in column 7 until step 6) and limits.
  double F = 0.0;
  double A = 0.0, B = 0.0, C = 0.0, P = 0.0, Q = 0.0, R = 0.0;
  for (int i = f; i <= T; ++i) {
    const bool event = has_event(i);
    const double e = cell(i, kCauseEvents);
    double Fi = F;
    if (!event) {
      // No event of the cause: the estimate and its limits repeat the row before (row 1 has none
      // before it, and takes the marker).
      for (int c : {kIncidence, kLower, kUpper, kOverall})
        cell(i, c) = i > 1 ? cell(i - 1, c) : kMissing;
      if (i > f) cell(i, kStdErr) = cell(i - 1, kStdErr);
    } else {
      Fi = (i == f ? 0.0 : F) + e * plv(i - 1, 8) / plv(i, 6);
      cell(i, kIncidence) = Fi;
      cell(i, kOverall) = 1.0 - plv(i, 8);
    }

    // Running sums over rows j = f .. i (rows without product-limit values add nothing).
    if (i > f) {
      const double D = Fi - F;
      Q += D * (2.0 * P + D * A);
      P += D * A;
      R += D * C;
    }
    if (present(i)) {
      const double nj = plv(i, 6), dj = plv(i, 4), Sprev = plv(i - 1, 8);
      if (nj - dj > 0.0) {
        A += dj / (nj * (nj - dj));
        if (e > 0.0) {
          B += Sprev * Sprev * e * (nj - e) / (nj * nj * nj);
          C += Sprev * e / (nj * nj);
        }
      }
    }
    F = Fi;

    if (!event) continue;
    const double ni = plv(i, 6);
    // The first row's variance has no S_(f-1)^2 factor: deliberate, kept as the library's form.
    const double var = i == f ? (ni - e) * e / (ni * ni * ni) : Q + B - 2.0 * R;
    cell(i, kStdErr) = var;
    limits(i, Fi, var);
  }

  // 6. Variance -> standard error.
  for (int i = f; i <= T; ++i) {
    const double v = cell(i, kStdErr);
    cell(i, kStdErr) = v > 0.0 ? std::sqrt(v) : 0.0;
  }
  if (!direct) {
    for (int i = 1; i <= T; ++i) {
      for (int c = 1; c <= kCount; ++c) incidence->set(i, c, cell(i, c));
    }
  }

  // 7. Complement table: probabilities of remaining free of the cause, limits swapped.
  if (complement == nullptr) return;
  const auto one_minus = [](double x) { return IsMissing(x) ? x : 1.0 - x; };
  const auto complement_of = [&](int i, int c) {
    const double v = cell(i, c);
    if (i < f) return v;
    switch (c) {
      case kIncidence:
        return one_minus(v);
      case kLower:
        return one_minus(cell(i, kUpper));
      case kUpper:
        return one_minus(cell(i, kLower));
      case kOverall:
        return IsMissing(v) || !present(i) ? v : plv(i, 8);
      default:
        return v;
    }
  };
  if (complement->data != nullptr && complement->rows >= static_cast<std::uint32_t>(T) &&
      complement->cols >= kCount) {
    const std::size_t cl = complement->rows;
    for (int c = 1; c <= kCount; ++c) {
      for (int i = 1; i <= T; ++i) complement->data[(c - 1) * cl + (i - 1)] = complement_of(i, c);
    }
  } else {
    for (int c = 1; c <= kCount; ++c) {
      for (int i = 1; i <= T; ++i) complement->set(i, c, complement_of(i, c));
    }
  }
}

}  // namespace velkor::competing
