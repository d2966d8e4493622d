// Model criteria of a Cox fit: goodness-of-fit statistics, global tests of beta = 0 and the
// coefficient table with hazard ratios.
//
//   likelihood ratio  LR = -2 (L0 - L)                      ~ chi-square(p)
//   score             U0' I0^-1 U0 = -U0' H0^-1 U0 at beta = 0
//   Wald              beta' I beta = -beta' H beta at the final beta
//   per coefficient   se_j = sqrt(-(H^-1)_jj), (beta_j / se_j)^2 ~ chi-square(1),
//                     hazard ratio exp(beta_j) with limits exp(beta_j -+ z se_j)
// Cost O(p^2).
#include <cmath>

#include "companion/distributions.h"
#include "companion/linalg.h"
#include "core/numeric.h"
#include "cox/cox.h"

namespace velkor::cox {
namespace {

// A cell that cannot hold a number (NaN, infinite) is written as the missing value.
double Cell(double v) {
  return std::isfinite(v) ? v : kMissing;
}

double QuadraticForm(const double* v, const double* B, int p) {
  if (p < 1) return 0.0;
  const auto up = static_cast<std::uint32_t>(p);
  matrix<double> vm(up, 1, const_cast<double*>(v), 1);
  matrix<double> bm(up, up, const_cast<double*>(B), 1);
  return M_ProductTrVBV(&vm, &bm, p);
}

}  // namespace

void Criteria(int n, int p, int censoredFirst, double loglik, double loglik0, int iterations,
              double alpha, const double* beta, const double* hess, const double* inv, double& z,
              double* stats, const double* grad0, const double* inv0, double* coef,
              std::size_t ldCoef, double* tests) {
  // Model statistics, 6 x 2. The sample size of the Schwarz criterion is n minus the censored
  // count of the first stratum only, also with several strata: deliberate, the front end's
  // reports are built on this value.
  const double used = static_cast<double>(n) - censoredFirst;
  const double dp = static_cast<double>(p);
  const double m2l0 = -2.0 * loglik0, m2l = -2.0 * loglik;
  const double col1[6] = {used, 0.0, m2l0, m2l0, m2l0, 1.0};
  const double col2[6] = {
      used, dp, m2l, 2.0 * dp + m2l, dp * std::log(used) + m2l, static_cast<double>(iterations)};
  for (int r = 0; r < 6; ++r) {
    stats[r] = Cell(col1[r]);
    stats[6 + r] = Cell(col2[r]);
  }

  // Global tests, 3 x 3: degrees of freedom, statistic, p-value.
  const double lr = -2.0 * (loglik0 - loglik);
  const double lrp = (loglik0 - loglik <= 0.0) ? pValChiSq(lr, dp) : kMissing;
  const double score = -QuadraticForm(grad0, inv0, p);
  const double wald = -QuadraticForm(beta, hess, p);
  const double stat[3] = {lr, score, wald};
  const double pval[3] = {lrp, pValChiSq(score, dp), pValChiSq(wald, dp)};
  for (int r = 0; r < 3; ++r) {
    tests[r] = dp;
    tests[3 + r] = Cell(stat[r]);
    tests[6 + r] = Cell(pval[r]);
  }

  // Coefficient table, columns 1 to 7.
  z = InvCDFNormalStd(1.0 - alpha / 2.0);
  const auto up = static_cast<std::size_t>(p < 0 ? 0 : p);
  for (std::size_t j = 0; j < up; ++j) {
    double* row = coef + j;
    auto put = [&](int col, double v) { row[static_cast<std::size_t>(col - 1) * ldCoef] = v; };
    const double b = beta[j];
    put(1, Cell(b));
    const double diag = inv[j * up + j];
    if (diag > -kEpsilon) {  // not clearly negative: no standard error
      for (int c = 2; c <= 7; ++c) put(c, kMissing);
      continue;
    }
    const double se = std::sqrt(-diag);
    put(2, Cell(se));
    if (se == 0.0) {
      put(3, kMissing);
      put(4, kMissing);
    } else {
      const double chi = std::fabs((b / se) * (b / se));
      put(3, Cell(chi));
      put(4, Cell(pValChiSq(chi, 1.0)));
    }
    put(5, Cell(std::exp(b)));
    put(6, Cell(std::exp(b - z * se)));
    const double hi = b + z * se;
    put(7, hi > kExpOverflow ? kUnbounded : Cell(std::exp(hi)));
  }
}

void CriteriaDroppedRow(double* coef, std::size_t ldCoef, std::size_t row) {
  coef[row] = 0.0;
  for (std::size_t c = 1; c < 7; ++c) coef[c * ldCoef + row] = kMissing;
}

}  // namespace velkor::cox
