#include "survival/mean_median.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "companion/distributions.h"
#include "core/numeric.h"
#include "survival/kaplan_meier.h"

using velkor::kEpsilon;
using velkor::kMissing;

namespace {

// The mean and quartiles from the five columns read (rows 0 .. T, T >= 1): time, survival,
// events, number at risk used, Greenwood sum.
void mean_and_quartiles(const double* const col[5], int T, double alpha, int k, double& cap,
                        matrix<double>* mean, matrix<double>* quartiles) {
  const double *t = col[0], *S = col[1], *d = col[2], *nr = col[3], *G = col[4];

  // Time cap (a select rather than a branch: censored-only rows come at random).
  if (S[T] > kEpsilon) {
    for (int j = 2; j <= T; ++j) {
      const bool take = !(d[j] > 0.0) && t[j - 1] > cap;
      cap = take ? t[j] : cap;
    }
  }
  // Restricted mean: piece j is [t_j, t_(j+1)) at height S_j (piece 0: [0, t_1) at 1).
  double mu = t[1];
  int lastPiece = 0;
  for (int j = 1; j <= T - 1; ++j) {
    if (t[j + 1] < cap || cap == 0.0) {
      mu += (t[j + 1] - t[j]) * S[j];
      lastPiece = j;
    }
  }
  mean->set(1, 1, mu);
  if (k - 1 >= 1) {
    // A_j = area from t_j to tau, accumulated backwards over the pieces taken.
    double A = 0.0, var = 0.0;
    for (int j = lastPiece; j >= 1; --j) {
      A += (t[j + 1] - t[j]) * S[j];
      const double dj = d[j], nj = nr[j];
      if (dj > 0.0 && nj > dj) var += A * A * dj / (nj * (nj - dj));
    }
    const double se = std::sqrt(var);
    const double z = InvCDFNormalStd(1.0 - alpha * 0.5);
    mean->set(2, 1, se);
    mean->set(3, 1, std::max(0.0, mu - z * se));
    mean->set(4, 1, mu + z * se);
  }
  // Quartiles p = 0.25, 0.5, 0.75 (result rows 1, 2, 3), all three in one scan of rows 1 .. T.
  // A quartile whose level the curve never reaches (S_T > p) is skipped; the interval test of row
  // j + 1 is kept for the next row.
  const double c = InvCDFChiSq(1.0 - alpha, 1.0);
  const double ps[3] = {0.25, 0.5, 0.75};
  bool active[3], haveLo[3] = {}, haveUp[3] = {}, passesJ[3];
  double q[3], lo[3], up[3];
  const auto passes = [&](int j, double p) {
    const double s = S[j];
    return (s - p) * (s - p) <= s * s * c * G[j];
  };
  for (int r = 0; r < 3; ++r) {
    active[r] = !(S[T] > ps[r]);
    q[r] = lo[r] = up[r] = kMissing;
    passesJ[r] = active[r] && passes(1, ps[r]);
  }
  if (active[0] || active[1] || active[2]) {
    for (int j = 1; j <= T; ++j) {
      const double Sj = S[j];
      for (int r = 0; r < 3; ++r) {
        if (!active[r]) continue;
        const double p = ps[r];
        if (std::fabs(Sj - p) < kEpsilon) {
          q[r] = j < T ? (t[j] + t[j + 1]) / 2.0 : t[j];
        } else if (j < T && Sj >= p && p > S[j + 1] && d[j + 1] > 0.0) {
          q[r] = t[j + 1];
        }
        if (!haveLo[r] && passesJ[r]) {
          lo[r] = t[j];
          haveLo[r] = true;
        }
        const bool passesNext = j < T && passes(j + 1, p);
        if (!haveUp[r] && j >= 2 && j < T && passesJ[r] && !passesNext && t[j] > 0.0) {
          up[r] = t[j + 1];
          haveUp[r] = true;
        }
        passesJ[r] = passesNext;
      }
    }
  }
  for (int r = 0; r < 3; ++r) {
    if (!active[r]) continue;
    if (!haveLo[r]) lo[r] = t[1] > 0.0 ? 0.0 : kMissing;
    if (!haveUp[r]) up[r] = t[T] > 0.0 ? t[T] : kMissing;
    quartiles->set(r + 1, 2, q[r]);
    quartiles->set(r + 1, 3, lo[r]);
    quartiles->set(r + 1, 4, up[r]);
  }
}

// Every output at its "nothing computed" value: cap 0, mean record missing, quartile labels with
// missing times and limits.
void clear_outputs(double& cap, matrix<double>* mean, matrix<double>* quartiles) {
  const double labels[3] = {0.75, 0.5, 0.25};
  cap = 0.0;
  for (int r = 1; r <= 4; ++r) mean->set(r, 1, kMissing);
  for (int r = 1; r <= 3; ++r) {
    quartiles->set(r, 1, labels[r - 1]);
    for (int c = 2; c <= 4; ++c) quartiles->set(r, c, kMissing);
  }
}

}  // namespace

int ComputeKaplanMeanMedian(matrix<double>* table, double alpha, int k, int nRows, double& cap,
                            matrix<double>* mean, matrix<double>* quartiles) {
  using namespace km_col;
  clear_outputs(cap, mean, quartiles);
  const int T = std::min<long long>(nRows, table->rows) - 1;
  if (T < 1) return 0;
  // Rows 0 .. T lie inside the table (T < rows). The five columns read: the table's own when it
  // has them, otherwise a copy read through the spare-element rule.
  const auto len = static_cast<std::size_t>(T) + 1;
  const double* col[5];
  std::vector<double> gathered;
  if (table->data != nullptr && table->cols >= static_cast<std::uint32_t>(kGreenwood)) {
    for (int c = 0; c < 5; ++c)
      col[c] = table->data + static_cast<std::size_t>(kMeanMedianColumns[c]) * table->rows;
  } else {
    gathered.resize(5 * len);
    for (int c = 0; c < 5; ++c) {
      for (std::size_t j = 0; j < len; ++j)
        gathered[c * len + j] = table->at0(j, kMeanMedianColumns[c]);
      col[c] = gathered.data() + c * len;
    }
  }
  mean_and_quartiles(col, T, alpha, k, cap, mean, quartiles);
  return 0;
}

int KaplanMeanMedianColumns(matrix<double>* columns, double alpha, int k, double& cap,
                            matrix<double>* mean, matrix<double>* quartiles) {
  clear_outputs(cap, mean, quartiles);
  const int T = static_cast<int>(columns->rows) - 1;
  if (T < 1 || columns->cols < 5) return 0;
  const double* col[5];
  for (int c = 0; c < 5; ++c) col[c] = columns->data + static_cast<std::size_t>(c) * columns->rows;
  mean_and_quartiles(col, T, alpha, k, cap, mean, quartiles);
  return 0;
}
