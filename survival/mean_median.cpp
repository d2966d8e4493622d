#include "survival/mean_median.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "companion/distributions.h"
#include "core/numeric.h"
#include "survival/kaplan_meier.h"

using velkor::kEpsilon;
using velkor::kMissing;

int ComputeKaplanMeanMedian(matrix<double>* table, double alpha, int k, int nRows, double& cap,
                            matrix<double>* mean, matrix<double>* quartiles) {
  using namespace km_col;
  const double labels[3] = {0.75, 0.5, 0.25};
  cap = 0.0;
  for (int r = 1; r <= 4; ++r) mean->set(r, 1, kMissing);
  for (int r = 1; r <= 3; ++r) {
    quartiles->set(r, 1, labels[r - 1]);
    for (int c = 2; c <= 4; ++c) quartiles->set(r, c, kMissing);
  }
  const int T = std::min<long long>(nRows, table->rows) - 1;
  if (T < 1) return 0;
  auto t = [&](int j) { return table->at0(static_cast<std::uint64_t>(j), kTime - 1); };
  auto S = [&](int j) { return table->at0(static_cast<std::uint64_t>(j), kSurv - 1); };
  auto d = [&](int j) { return table->at0(static_cast<std::uint64_t>(j), kEvents - 1); };
  auto nr = [&](int j) { return table->at0(static_cast<std::uint64_t>(j), kRiskUsed - 1); };
  auto G = [&](int j) { return table->at0(static_cast<std::uint64_t>(j), kGreenwood - 1); };

  // Time cap.
  if (S(T) > kEpsilon) {
    for (int j = 2; j <= T; ++j)
      if (!(d(j) > 0.0) && t(j - 1) > cap) cap = t(j);
  }
  // Restricted mean: piece j is [t_j, t_(j+1)) at height S_j (piece 0: [0, t_1) at 1).
  double mu = t(1);
  int lastPiece = 0;
  for (int j = 1; j <= T - 1; ++j) {
    if (t(j + 1) < cap || cap == 0.0) {
      mu += (t(j + 1) - t(j)) * S(j);
      lastPiece = j;
    }
  }
  mean->set(1, 1, mu);
  if (k - 1 >= 1) {
    // A_j = area from t_j to tau, accumulated backwards over the pieces taken.
    double A = 0.0, var = 0.0;
    for (int j = lastPiece; j >= 1; --j) {
      A += (t(j + 1) - t(j)) * S(j);
      const double dj = d(j), nj = nr(j);
      if (dj > 0.0 && nj > dj) var += A * A * dj / (nj * (nj - dj));
    }
    const double se = std::sqrt(var);
    const double z = InvCDFNormalStd(1.0 - alpha * 0.5);
    mean->set(2, 1, se);
    mean->set(3, 1, std::max(0.0, mu - z * se));
    mean->set(4, 1, mu + z * se);
  }
  // Quartiles. Rows 0 .. T lie inside the table (T < rows); with the Greenwood column present
  // the scan reads the columns directly.
  const bool fast = table->data != nullptr && table->cols >= static_cast<std::uint32_t>(kGreenwood);
  const std::size_t ld = table->rows;
  const double* tc = fast ? table->data + (kTime - 1) * ld : nullptr;
  const double* Sc = fast ? table->data + (kSurv - 1) * ld : nullptr;
  const double* dc = fast ? table->data + (kEvents - 1) * ld : nullptr;
  const double* Gc = fast ? table->data + (kGreenwood - 1) * ld : nullptr;
  const double c = InvCDFChiSq(1.0 - alpha, 1.0);
  const double ps[3] = {0.25, 0.5, 0.75};
  for (int r = 0; r < 3; ++r) {
    const double p = ps[r];
    if (S(T) > p) continue;
    auto passes = [&](int j) {
      const double s = S(j);
      return (s - p) * (s - p) <= s * s * c * G(j);
    };
    double q = kMissing, lo = kMissing, up = kMissing;
    bool haveLo = false, haveUp = false;
    if (fast) {
      // The same scan on the table's columns read directly (every row 1 .. T lies inside the
      // table here), with the interval test of row j + 1 kept for the next row.
      const auto passesAt = [&](int j) {
        const double s = Sc[j];
        return (s - p) * (s - p) <= s * s * c * Gc[j];
      };
      bool passesJ = passesAt(1);
      for (int j = 1; j <= T; ++j) {
        const double Sj = Sc[j];
        if (std::fabs(Sj - p) < kEpsilon) {
          q = j < T ? (tc[j] + tc[j + 1]) / 2.0 : tc[j];
        } else if (j < T && Sj >= p && p > Sc[j + 1] && dc[j + 1] > 0.0) {
          q = tc[j + 1];
        }
        if (!haveLo && passesJ) {
          lo = tc[j];
          haveLo = true;
        }
        const bool passesNext = j < T && passesAt(j + 1);
        if (!haveUp && j >= 2 && j < T && passesJ && !passesNext && tc[j] > 0.0) {
          up = tc[j + 1];
          haveUp = true;
        }
        passesJ = passesNext;
      }
    } else {
      for (int j = 1; j <= T; ++j) {
        if (std::fabs(S(j) - p) < kEpsilon) {
          q = j < T ? (t(j) + t(j + 1)) / 2.0 : t(j);
        } else if (j < T && S(j) >= p && p > S(j + 1) && d(j + 1) > 0.0) {
          q = t(j + 1);
        }
        if (!haveLo && passes(j)) {
          lo = t(j);
          haveLo = true;
        }
        if (!haveUp && j >= 2 && j < T && passes(j) && !passes(j + 1) && t(j) > 0.0) {
          up = t(j + 1);
          haveUp = true;
        }
      }
    }
    if (!haveLo) lo = t(1) > 0.0 ? 0.0 : kMissing;
    if (!haveUp) up = t(T) > 0.0 ? t(T) : kMissing;
    quartiles->set(r + 1, 2, q);
    quartiles->set(r + 1, 3, lo);
    quartiles->set(r + 1, 4, up);
  }
  return 0;
}
