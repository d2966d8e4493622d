#include "methodcomp/deming.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "companion/basic.h"
#include "companion/distributions.h"
#include "companion/sorting.h"
#include "core/numeric.h"

namespace velkor::methodcomp {

namespace {

constexpr int kTooFew = -2;
constexpr int kUndefined = -5;

bool present(double v) {
  return !IsMissing(v) && !std::isnan(v);
}

// Weighted centred sums of one set of points.
struct Moments {
  double W = 0.0, mx = 0.0, my = 0.0, Sxx = 0.0, Syy = 0.0, Sxy = 0.0;
  long long count = 0;
};

// Two-pass centred sums over the points with a usable weight (w null: unit weights).
Moments moments(const double* x, const double* y, const double* w, std::size_t m) {
  Moments s;
  for (std::size_t i = 0; i < m; ++i) {
    const double wi = w ? w[i] : 1.0;
    if (!(wi > 0.0)) continue;
    s.W += wi;
    s.mx += wi * x[i];
    s.my += wi * y[i];
    ++s.count;
  }
  if (s.count == 0) return s;
  s.mx /= s.W;
  s.my /= s.W;
  for (std::size_t i = 0; i < m; ++i) {
    const double wi = w ? w[i] : 1.0;
    if (!(wi > 0.0)) continue;
    const double dx = x[i] - s.mx, dy = y[i] - s.my;
    s.Sxx += wi * dx * dx;
    s.Syy += wi * dy * dy;
    s.Sxy += wi * dx * dy;
  }
  return s;
}

bool defined_fit(double Sxx, double Syy, double Sxy, double lambda) {
  if (std::isnan(lambda) || !(lambda > 0.0)) return false;
  return std::fabs(Sxy) > kEpsilon * std::sqrt(Sxx * Syy) && Sxy != 0.0;
}

// Deming slope from centred sums, cancellation-free root; lambda = +inf is least squares.
double stable_slope(double Sxx, double Syy, double Sxy, double lambda) {
  if (std::isinf(lambda)) return Sxy / Sxx;
  const double D = Syy - lambda * Sxx;
  const double R = std::sqrt(D * D + 4.0 * lambda * Sxy * Sxy);
  return D >= 0.0 ? (D + R) / (2.0 * Sxy) : 2.0 * lambda * Sxy / (R - D);
}

double jackknife_se(const std::vector<double>& t) {
  const double dm = static_cast<double>(t.size());
  double mean = 0.0;
  for (double v : t) mean += v;
  mean /= dm;
  double ss = 0.0;
  for (double v : t) ss += (v - mean) * (v - mean);
  return std::sqrt((dm - 1.0) / dm * ss);
}

// Leave-one-out jackknife standard errors of (a, b) for unit-weight points, each point's sums
// downdated from the full ones. Two passes (mean of the leave-one-out estimates, then their
// squared deviations) recompute the estimates instead of storing them. False when a
// leave-one-out fit is undefined.
bool jackknife_closed_form(const double* x, const double* y, std::size_t m, const Moments& s,
                           double lambda, double& seA, double& seB) {
  const double dm = static_cast<double>(m), f = dm / (dm - 1.0);
  auto leave_out = [&](std::size_t i, double& ai, double& bi) {
    const double dx = x[i] - s.mx, dy = y[i] - s.my;
    const double Sxx = s.Sxx - f * dx * dx, Syy = s.Syy - f * dy * dy, Sxy = s.Sxy - f * dx * dy;
    if (!defined_fit(Sxx, Syy, Sxy, lambda)) return false;
    bi = stable_slope(Sxx, Syy, Sxy, lambda);
    ai = (s.my - dy / (dm - 1.0)) - bi * (s.mx - dx / (dm - 1.0));
    return std::isfinite(ai) && std::isfinite(bi);
  };
  double sumA = 0.0, sumB = 0.0, ai = 0.0, bi = 0.0;
  for (std::size_t i = 0; i < m; ++i) {
    if (!leave_out(i, ai, bi)) return false;
    sumA += ai;
    sumB += bi;
  }
  const double meanA = sumA / dm, meanB = sumB / dm;
  double ssA = 0.0, ssB = 0.0;
  for (std::size_t i = 0; i < m; ++i) {
    leave_out(i, ai, bi);
    ssA += (ai - meanA) * (ai - meanA);
    ssB += (bi - meanB) * (bi - meanB);
  }
  seA = std::sqrt((dm - 1.0) / dm * ssA);
  seB = std::sqrt((dm - 1.0) / dm * ssB);
  return true;
}

// Writes the 8-row coefficient table; missing standard errors leave the limits missing.
void write_coefficients(matrix<double>* coef, double a, double seA, double b, double seB,
                        double alpha, double df) {
  for (int k = 1; k <= kDemingCoefRows; ++k) coef->set(k, kMissing);
  coef->set(1, a);
  coef->set(5, b);
  if (IsMissing(seA) || IsMissing(seB)) return;
  coef->set(2, seA);
  coef->set(6, seB);
  if (!(alpha > 0.0 && alpha < 1.0) || df < 1.0) return;
  const double t = InvCDFStudent(1.0 - alpha * 0.5, df);
  if (!std::isfinite(t)) return;
  coef->set(3, a - t * seA);
  coef->set(4, a + t * seA);
  coef->set(7, b - t * seB);
  coef->set(8, b + t * seB);
}

void write_fit(matrix<double>* x, matrix<double>* y, int n, const std::vector<bool>& used, double a,
               double b, matrix<double>* fitted, matrix<double>* residuals) {
  for (int i = 0; i < n; ++i) {
    if (!used[static_cast<std::size_t>(i)]) {
      fitted->at0(i) = kMissing;
      residuals->at0(i) = kMissing;
      continue;
    }
    const double f = a + b * x->at0(i);
    fitted->at0(i) = f;
    residuals->at0(i) = y->at0(i) - f;
  }
}

// Subject summaries of replicated measurements.
struct Subjects {
  std::vector<double> xm, ym, vx, vy;  // means and sums of squared deviations
};

// Iteratively weighted Deming on subject summaries; `skip` (or SIZE_MAX) leaves one subject out.
int weighted_deming_core(const Subjects& s, std::size_t skip, int maxIter, double tol, double& b,
                         double& a, int& iterations) {
  const std::size_t k = s.xm.size();
  double sumVx = 0.0, sumVy = 0.0;
  for (std::size_t i = 0; i < k; ++i) {
    if (i == skip) continue;
    sumVx += s.vx[i];
    sumVy += s.vy[i];
  }
  const double lambda = sumVy / sumVx;  // +inf when x has no replicate error
  std::vector<double> w(k);
  b = 0.0;
  a = kMissing;
  iterations = 0;
  const int cap = maxIter < 1 ? 1 : maxIter;
  double bNew = 0.0, aNew = 0.0;
  for (int it = 0; it < cap; ++it) {
    std::size_t weighted = 0;
    for (std::size_t i = 0; i < k; ++i) {
      const double den = s.vx[i] * b * b + s.vy[i];
      w[i] = (i == skip || !(den > kEpsilon)) ? 0.0 : 1.0 / den;
      weighted += w[i] > 0.0 ? 1 : 0;
    }
    if (weighted < 2) {
      b = kMissing;
      return kTooFew;
    }
    const Moments mo = moments(s.xm.data(), s.ym.data(), w.data(), k);
    if (!defined_fit(mo.Sxx, mo.Syy, mo.Sxy, lambda)) {
      b = kMissing;
      return kUndefined;
    }
    bNew = stable_slope(mo.Sxx, mo.Syy, mo.Sxy, lambda);
    aNew = mo.my - bNew * mo.mx;
    iterations = it + 1;
    const bool converged = std::fabs(bNew - b) < tol;
    b = bNew;
    a = aNew;
    if (converged) break;
  }
  return 0;
}

// Groups complete rows into subjects (by exact code; every row its own subject without codes).
// `order` receives the rows in subject order and `size` the block sizes.
void group_subjects(const std::vector<double>& codes, bool haveCodes,
                    std::vector<std::uint32_t>& order, std::vector<std::size_t>& size) {
  const std::size_t m = codes.size();
  order.clear();
  size.clear();
  if (!haveCodes) {
    for (std::size_t i = 0; i < m; ++i) {
      order.push_back(static_cast<std::uint32_t>(i));
      size.push_back(1);
    }
    return;
  }
  order = SortOrder(codes.data(), m);
  for (std::size_t r = 0; r < m;) {
    std::size_t e = r + 1;
    while (e < m && codes[order[e]] == codes[order[r]]) ++e;
    size.push_back(e - r);
    r = e;
  }
}

Subjects summarise(const std::vector<double>& x, const std::vector<double>& y,
                   const std::vector<std::uint32_t>& order, const std::vector<std::size_t>& size) {
  Subjects s;
  std::size_t r = 0;
  for (std::size_t g = 0; g < size.size(); ++g) {
    double sx = 0.0, sy = 0.0;
    for (std::size_t t = r; t < r + size[g]; ++t) {
      sx += x[order[t]];
      sy += y[order[t]];
    }
    const double cnt = static_cast<double>(size[g]);
    const double mx = sx / cnt, my = sy / cnt;
    double vx = 0.0, vy = 0.0;
    for (std::size_t t = r; t < r + size[g]; ++t) {
      vx += std::pow(x[order[t]] - mx, 2);
      vy += std::pow(y[order[t]] - my, 2);
    }
    s.xm.push_back(mx);
    s.ym.push_back(my);
    s.vx.push_back(vx);
    s.vy.push_back(vy);
    r += size[g];
  }
  return s;
}

}  // namespace

int Deming(matrix<double>* x, matrix<double>* y, matrix<double>* w, int n, double lambda, double& a,
           double& b) {
  double sw = 0.0, sx = 0.0, sy = 0.0;
  for (int i = 0; i < n; ++i) {
    const double wi = w ? w->at0(i) : 1.0;
    sw += wi;
    sx += wi * x->at0(i);
    sy += wi * y->at0(i);
  }
  const double mx = sx / sw, my = sy / sw;
  double Sxx = 0.0, Syy = 0.0, Sxy = 0.0;
  for (int i = 0; i < n; ++i) {
    const double wi = w ? w->at0(i) : 1.0, dx = x->at0(i) - mx, dy = y->at0(i) - my;
    Sxx += wi * dx * dx;
    Syy += wi * dy * dy;
    Sxy += wi * dx * dy;
  }
  const double D = Syy - lambda * Sxx;
  b = (D + std::pow(4.0 * lambda * Sxy * Sxy + D * D, 0.5)) / (2.0 * Sxy);
  a = my - b * mx;
  return 0;
}

int NewDeming(matrix<double>* x, matrix<double>* y, matrix<double>* w, int n, double lambda,
              double& a, double& b) {
  a = b = kMissing;
  std::vector<double> xs, ys, ws;
  for (int i = 0; i < n; ++i) {
    const double xi = x->at0(i), yi = y->at0(i), wi = w ? w->at0(i) : 1.0;
    if (!present(xi) || !present(yi) || !present(wi) || !(wi > 0.0)) continue;
    xs.push_back(xi);
    ys.push_back(yi);
    ws.push_back(wi);
  }
  if (xs.size() < 2) return kTooFew;
  const Moments s = moments(xs.data(), ys.data(), ws.data(), xs.size());
  if (!defined_fit(s.Sxx, s.Syy, s.Sxy, lambda)) return kUndefined;
  b = stable_slope(s.Sxx, s.Syy, s.Sxy, lambda);
  a = s.my - b * s.mx;
  return 0;
}

int WeightedDeming(matrix<double>* groupSize, int k, matrix<double>* x, matrix<double>* y, int n,
                   int maxIter, double tol, double& b, double& a, int& iterations) {
  Subjects s;
  long long row = 0;
  for (int g = 0; g < k; ++g) {
    const double sz = groupSize->at0(g);
    if (!(sz >= 1.0)) continue;
    const long long first = row;
    row += static_cast<long long>(sz);
    double sx = 0.0, sy = 0.0, cx = 0.0, cy = 0.0;
    for (long long r = first; r < row && r < n; ++r) {
      const double xi = x->at0(r), yi = y->at0(r);
      if (present(xi)) sx += xi, cx += 1.0;
      if (present(yi)) sy += yi, cy += 1.0;
    }
    if (cx == 0.0 || cy == 0.0) continue;
    const double mx = sx / cx, my = sy / cy;
    double vx = 0.0, vy = 0.0;
    for (long long r = first; r < row && r < n; ++r) {
      const double xi = x->at0(r), yi = y->at0(r);
      if (present(xi)) vx += std::pow(xi - mx, 2);
      if (present(yi)) vy += std::pow(yi - my, 2);
    }
    s.xm.push_back(mx);
    s.ym.push_back(my);
    s.vx.push_back(vx);
    s.vy.push_back(vy);
  }
  const int st =
      weighted_deming_core(s, static_cast<std::size_t>(-1), maxIter, tol, b, a, iterations);
  if (st != 0) a = b = kMissing;
  return st;
}

int DemingRegression(matrix<double>* x, matrix<double>* y, int n, double lambda, double alpha,
                     matrix<double>* coef, matrix<double>* fitted, matrix<double>* residuals) {
  const std::size_t rows = static_cast<std::size_t>(n > 0 ? n : 0);
  std::vector<bool> used(rows, false);
  std::size_t m = 0;
  for (std::size_t i = 0; i < rows; ++i) {
    used[i] = present(x->at0(i)) && present(y->at0(i));
    m += used[i] ? 1 : 0;
  }
  if (m < 3) return kTooFew;
  // The complete rows, in place when every row is complete (the usual case), else compacted.
  std::vector<double> xs, ys;
  const double* px = x->data;
  const double* py = y->data;
  if (m < rows || x->count < rows || y->count < rows) {
    xs.reserve(m);
    ys.reserve(m);
    for (std::size_t i = 0; i < rows; ++i) {
      if (!used[i]) continue;
      xs.push_back(x->at0(i));
      ys.push_back(y->at0(i));
    }
    px = xs.data();
    py = ys.data();
  }
  const Moments s = moments(px, py, nullptr, m);
  if (!defined_fit(s.Sxx, s.Syy, s.Sxy, lambda) || std::isinf(lambda)) return kUndefined;
  const auto mrows = static_cast<std::uint32_t>(m);
  matrix<double> mx(mrows, 1, const_cast<double*>(px), 1), my(mrows, 1, const_cast<double*>(py), 1);
  double a = 0.0, b = 0.0;
  Deming(&mx, &my, nullptr, static_cast<int>(m), lambda, a, b);  // unit weights
  double seA = kMissing, seB = kMissing;
  if (!jackknife_closed_form(px, py, m, s, lambda, seA, seB)) seA = seB = kMissing;
  write_coefficients(coef, a, seA, b, seB, alpha, static_cast<double>(m) - 2.0);
  write_fit(x, y, n, used, a, b, fitted, residuals);
  return 0;
}

int NewDemingRegression(matrix<double>* x, matrix<double>* y, int n, matrix<double>* subject,
                        short weighted, double lambda, double alpha, int maxIter, double tol,
                        matrix<double>* coef, matrix<double>* info, matrix<double>* fitted,
                        matrix<double>* residuals) {
  const bool haveCodes = subject != nullptr;
  std::vector<double> xs, ys, codes;
  std::vector<bool> used(static_cast<std::size_t>(n > 0 ? n : 0), false);
  for (int i = 0; i < n; ++i) {
    const double xi = x->at0(i), yi = y->at0(i);
    const double ci = haveCodes ? subject->at0(i) : 0.0;
    if (!present(xi) || !present(yi) || !present(ci)) continue;
    used[static_cast<std::size_t>(i)] = true;
    xs.push_back(xi);
    ys.push_back(yi);
    codes.push_back(ci);
  }
  std::vector<std::uint32_t> order;
  std::vector<std::size_t> size;
  group_subjects(codes, haveCodes, order, size);
  const Subjects subj = summarise(xs, ys, order, size);
  const std::size_t k = subj.xm.size();
  if (k < 3) return kTooFew;

  double a = kMissing, b = kMissing, seA = kMissing, seB = kMissing, lambdaUsed = kMissing;
  int iterations = 0;
  if (weighted == -1) {
    if (!haveCodes) return kUndefined;
    const std::size_t none = static_cast<std::size_t>(-1);
    if (weighted_deming_core(subj, none, maxIter, tol, b, a, iterations) != 0) return kUndefined;
    std::vector<double> as(k), bs(k);
    bool ok = true;
    for (std::size_t j = 0; j < k && ok; ++j) {
      int it = 0;
      ok = weighted_deming_core(subj, j, maxIter, tol, bs[j], as[j], it) == 0;
    }
    if (ok) {
      seA = jackknife_se(as);
      seB = jackknife_se(bs);
    }
  } else {
    if (lambda > 0.0) {
      lambdaUsed = lambda;
    } else {
      double ssx = 0.0, ssy = 0.0;
      for (std::size_t g = 0; g < k; ++g) {
        ssx += subj.vx[g];
        ssy += subj.vy[g];
      }
      if (xs.size() <= k || !(ssx + ssy > 0.0)) return kUndefined;
      lambdaUsed = ssy / ssx;
    }
    const Moments s = moments(subj.xm.data(), subj.ym.data(), nullptr, k);
    if (!defined_fit(s.Sxx, s.Syy, s.Sxy, lambdaUsed)) return kUndefined;
    b = stable_slope(s.Sxx, s.Syy, s.Sxy, lambdaUsed);
    a = s.my - b * s.mx;
    if (!jackknife_closed_form(subj.xm.data(), subj.ym.data(), k, s, lambdaUsed, seA, seB))
      seA = seB = kMissing;
  }
  write_coefficients(coef, a, seA, b, seB, alpha, static_cast<double>(k) - 2.0);
  info->set(1, lambdaUsed);
  info->set(2, static_cast<double>(k));
  info->set(3, static_cast<double>(iterations));
  write_fit(x, y, n, used, a, b, fitted, residuals);
  return 0;
}

}  // namespace velkor::methodcomp
