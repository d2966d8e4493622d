#include "methodcomp/bland_altman.h"

#include <cmath>
#include <vector>

#include <boost/math/distributions/non_central_t.hpp>

#include "companion/basic.h"
#include "companion/distributions.h"
#include "companion/linalg.h"
#include "companion/vectors.h"
#include "core/numeric.h"

namespace velkor::methodcomp {

namespace {

// Missing in the sense of this family: the marker (or below) and NaN.
bool absent(double v) {
  return IsMissing(v) || std::isnan(v);
}

double finite_or_missing(double v) {
  return std::isfinite(v) ? v : kMissing;
}

// Difference of one complete row by the type rules; false when the denominator is zero.
bool row_difference(double xi, double yi, int type, double& d) {
  const double mean = (xi + yi) * 0.5;
  if (type == kDiffAbsolute) {
    d = yi - xi;
    return true;
  }
  if (type == kDiffRelative) {
    if (std::fabs(mean) > kEpsilon) {
      d = (yi - xi) / mean;
      return true;
    }
    return false;
  }
  if (std::fabs(xi) > kEpsilon) {
    d = yi / xi;
    return true;
  }
  return false;
}

using NoThrow = boost::math::policies::policy<
    boost::math::policies::domain_error<boost::math::policies::errno_on_error>,
    boost::math::policies::pole_error<boost::math::policies::errno_on_error>,
    boost::math::policies::overflow_error<boost::math::policies::errno_on_error>,
    boost::math::policies::evaluation_error<boost::math::policies::errno_on_error>>;

// Quantile of the non-central t with df degrees of freedom and non-centrality delta; NaN when
// the evaluation fails.
double noncentral_t_quantile(double p, double df, double delta) {
  try {
    const boost::math::non_central_t_distribution<double, NoThrow> d(df, delta);
    return boost::math::quantile(d, p);
  } catch (...) {
    return std::nan("");
  }
}

}  // namespace

int BlandAltman(matrix<double>* x, matrix<double>* y, int n, int type, double alpha,
                matrix<double>* diffs, matrix<double>* means, double& bias, double& sd,
                double& biasLow, double& biasHigh, double& loaLow, double& loaHigh) {
  const int rows = n > 0 ? n : 0;
  matrix<short> mask(static_cast<std::uint32_t>(rows), 1);
  InitVectorToFalse(&mask, rows);

  long long m = 0;
  for (int i = 0; i < rows; ++i) {
    const double xi = x->at0(i), yi = y->at0(i);
    if (absent(xi) || absent(yi)) {
      // Deliberate: the row is excluded from bias and sd but still counts in m (degrees of
      // freedom and standard error of the bias); diffs and means keep the caller's values.
      ++m;
      mask.data[i] = -1;
      continue;
    }
    ++m;
    means->at0(i) = (xi + yi) * 0.5;
    double d = 0.0;
    if (row_difference(xi, yi, type, d)) {
      diffs->at0(i) = d;
    } else {
      diffs->at0(i) = kMissing;
      mask.data[i] = -1;
      --m;
    }
  }

  // Unit weights (a null weight column is a column of n ones): sample mean and SD of the
  // differences not excluded by the mask.
  V_MeanStdev(diffs, rows, bias, sd, &mask, nullptr, -1, -1);
  biasLow = biasHigh = loaLow = loaHigh = kMissing;
  if (IsMissing(bias) || IsMissing(sd)) return 0;
  const double q = 1.0 - alpha * 0.5;
  if (m >= 2) {
    const double t = InvCDFStudent(q, static_cast<double>(m - 1));
    const double half = t * sd / sqr(static_cast<double>(m));
    biasLow = finite_or_missing(bias - half);
    biasHigh = finite_or_missing(bias + half);
  }
  const double z = InvCDFNormalStd(q);
  loaLow = finite_or_missing(bias - z * sd);
  loaHigh = finite_or_missing(bias + z * sd);
  return 0;
}

int BlandAltmanLoACI(matrix<double>* x, matrix<double>* y, int n, int type, double alpha,
                     double alphaCI, int method, matrix<double>* out) {
  for (int k = 1; k <= 6; ++k) out->set(k, kMissing);
  std::vector<double> d;
  d.reserve(n > 0 ? static_cast<std::size_t>(n) : 0);
  for (int i = 0; i < n; ++i) {
    const double xi = x->at0(i), yi = y->at0(i);
    double di = 0.0;
    if (!absent(xi) && !absent(yi) && row_difference(xi, yi, type, di)) d.push_back(di);
  }
  const double m = static_cast<double>(d.size());
  if (d.size() < 2 || !(alpha > 0.0 && alpha < 1.0) || !(alphaCI > 0.0 && alphaCI < 1.0)) return 0;
  double mean = 0.0;
  for (double v : d) mean += v;
  mean /= m;
  double ss = 0.0;
  for (double v : d) ss += (v - mean) * (v - mean);
  const double s = std::sqrt(ss / (m - 1.0));
  const double z = InvCDFNormalStd(1.0 - alpha * 0.5);
  const double lo = mean - z * s, hi = mean + z * s;
  double kLow = 0.0, kHigh = 0.0;  // the upper LoA's interval is mean + s [kLow, kHigh]
  if (method == kLoaApproximate) {
    // Var(mean +/- z s) ~ s^2 (1/m + z^2 / (2 (m - 1))) (Bland & Altman 1999).
    const double t = InvCDFStudent(1.0 - alphaCI * 0.5, m - 1.0);
    const double se = std::sqrt(1.0 / m + z * z / (2.0 * (m - 1.0)));
    kLow = z - t * se;
    kHigh = z + t * se;
  } else {
    // With theta = mu + z sigma the upper limit, T = sqrt(m) (theta - mean) / s is a
    // non-central t with m - 1 degrees of freedom and non-centrality z sqrt(m), so theta lies
    // in mean + s [t'(alphaCI/2), t'(1 - alphaCI/2)] / sqrt(m) (Carkeet 2015).
    const double rm = std::sqrt(m), delta = z * rm;
    kLow = noncentral_t_quantile(alphaCI * 0.5, m - 1.0, delta) / rm;
    kHigh = noncentral_t_quantile(1.0 - alphaCI * 0.5, m - 1.0, delta) / rm;
  }
  out->set(1, finite_or_missing(lo));
  out->set(2, finite_or_missing(mean - kHigh * s));
  out->set(3, finite_or_missing(mean - kLow * s));
  out->set(4, finite_or_missing(hi));
  out->set(5, finite_or_missing(mean + kLow * s));
  out->set(6, finite_or_missing(mean + kHigh * s));
  return 0;
}

int GetRepeatability(matrix<double>* x, int n, matrix<double>* subject, double alpha, double& sw,
                     double& swLow, double& swHigh) {
  const int rows = n > 0 ? n : 0;
  const int k = V_NbDistinct(subject, rows);
  // Rows whose subject code has no slot among 1..k are taken as missing measurements.
  matrix<double> xs(static_cast<std::uint32_t>(rows), 2);
  for (int i = 0; i < rows; ++i) {
    const double c = subject->at0(i);
    const bool valid_code = IsLong(c) && c >= 1.0 && c <= static_cast<double>(k);
    xs.data[i] = valid_code ? x->at0(i) : kMissing;
    xs.data[rows + i] = c;
  }
  const int N = V_NbNonMissing(&xs, rows);
  const double g = V_Mean2(&xs, rows);
  const double v = V_Var2(&xs, rows, 0, 0);

  matrix<double> subjectMeans(static_cast<std::uint32_t>(k > 0 ? k : 0), 1);
  M_GroupBy(&xs, 2, 1, &subjectMeans);
  double ssb = 0.0;
  for (int i = 0; i < rows; ++i) {
    if (absent(xs.data[i])) continue;
    const double mi = subjectMeans.at0(static_cast<std::uint64_t>(xs.data[rows + i]) - 1);
    ssb += (g - mi) * (g - mi);
  }
  int kUsed = 0;
  for (int j = 0; j < k; ++j) kUsed += IsMissing(subjectMeans.data[j]) ? 0 : 1;

  sw = swLow = swHigh = kMissing;
  if (N == 0) return 0;
  const double ssw = v * N - ssb;
  const double df = static_cast<double>(N - kUsed);
  if (ssw <= kEpsilon || df <= 0.0) return 0;
  sw = sqr(ssw / df);
  const double a = alpha * 0.5;
  swLow = finite_or_missing(sw / sqr(InvCDFChiSq(1.0 - a, df) / df));
  swHigh = finite_or_missing(sw / sqr(InvCDFChiSq(a, df) / df));
  return 0;
}

}  // namespace velkor::methodcomp
