// After the fit of a Cox model: Breslow baseline hazard and survival curves, residuals,
// concordance index, quality indices and the Grambsch-Therneau proportional-hazards test.
//
// All routines read data already sorted by stratum and time (cReorganizeDataCox) and described by
// a RiskLayout; the design is given row by row (n x p, row i at x + i p). With eta_i = x_i' beta,
// the exponent guard of the likelihood (a row with eta_i >= 700 is left out of every risk sum),
// and for the k-th distinct time of a stratum with d_k events:
//
//   S_k = sum_{i in R_k} exp(eta_i)            A_k = sum_{i in R_k} exp(eta_i) x_i
//   H0(t_k) = sum_{l <= k, |S_l| > eps} d_l / S_l          (Breslow cumulative hazard)
//   xbar_k = A_k / S_k                                      (risk-weighted covariate mean)
//   G(t_k) = sum_{l <= k, |S_l| > eps} (d_l / S_l) xbar_l
//
// Costs: one backward pass per stratum, O(n p) time and memory, for everything but the
// proportional-hazards test (O(n p^2 + p^3)) and the concordance index (O(n log n)).
#pragma once

#include <cstdint>
#include <vector>

#include "cox/risk_sets.h"
#include "velkor/containers.h"

namespace velkor::cox {

// Baseline quantities of one coefficient vector.
struct BreslowBaseline {
  std::vector<double> eta;             // n: linear predictors
  std::vector<double> riskSum;         // per block of the layout: S_k
  std::vector<double> cumHaz;          // per block: H0(t_k)
  std::vector<double> meanX;           // per block, p each: xbar_k (NaN when S_k <= eps)
  std::vector<double> cumMeanHaz;      // per block, p each: G(t_k)
  std::vector<std::uint32_t> blockOf;  // n: layout block of the row's time (kNoBlock: none)
  static constexpr std::uint32_t kNoBlock = 0xFFFFFFFFu;
};

BreslowBaseline ComputeBreslowBaseline(const RiskLayout& layout, const double* x, int p,
                                       const double* beta);

// Survival outputs. Column k of a stratum's row is its k-th distinct time (layout order); cells
// past the stratum's number of times (or past `cols`) hold the missing value.
//   base: strata x cols (column-major, leading dimension nStrata)
//   rows: n x cols (leading dimension n)
//   mean: strata x cols; xMean (p) is the covariate vector of the mean curve.
void FillSurvival(const RiskLayout& layout, const BreslowBaseline& bl, int p, const double* beta,
                  const double* xMean, int cols, double* base, double* rows, double* mean);

// Residual table n x (4 + 2p), column-major (leading dimension ld >= n): time, status,
// martingale, deviance, p Schoenfeld, p score residuals. cumHazRow (n), when not null, replaces
// H0(t_i) of each row in the martingale and deviance residuals (the caller's cumulative hazard).
void FillResiduals(const RiskLayout& layout, const BreslowBaseline& bl, const double* time,
                   const double* status, const double* x, int p, const double* cumHazRow,
                   double* table, std::size_t ld);

// Concordance index of eta against (time, status), O(n log n): a direction (i, j) is comparable
// when time_j > time_i and status_i == 1, concordant when eta_i > eta_j. Missing value when no
// direction is comparable. Counts returned through num / den when not null.
double ConcordanceFenwick(std::size_t n, const double* time, const double* status,
                          const double* eta, double* num = nullptr, double* den = nullptr);
// The same by the pairwise definition, O(n^2): the reference of the tests.
double ConcordancePairs(std::size_t n, const double* time, const double* status, const double* eta);

// One quality-index row (5 values) from D0, D (-2 log L of the null and fitted models), n, p,
// the pair (a, b) of the relative reduction and the concordance index.
void QualityRow(double D0, double D, int n, int p, double a, double b, double concordance,
                double* row5);

// Time transforms of the proportional-hazards test.
enum class PHTransform { Identity = 0, Log = 1, Rank = 2, KaplanMeier = 3 };

// Grambsch-Therneau score test of beta_j(t) = beta_j + theta_j g(t), Breslow risk-set moments:
// table (p + 1) x 3 column-major (chi-square, degrees of freedom, p-value), one row per covariate
// then the global test. x must be ascending-block layout data; ew the event weights (n).
void ProportionalityTest(const RiskLayout& layout, const double* time, const double* status,
                         const double* ew, const double* x, int p, const double* beta,
                         PHTransform transform, double* table);

// The four outputs of the flat run (any may be an empty container): baseline survival, survival
// per row and at xMean (strata x cols, n x cols, strata x cols) and the residual table
// n x (4 + 2p); every cell is written through the container's bounds-checked set().
void PostFitOutputs(const RiskLayout& layout, const double* x, int p, const double* beta,
                    const double* xMean, const double* time, const double* status, int cols,
                    matrix<double>* base, matrix<double>* rows, matrix<double>* mean,
                    matrix<double>* residuals);

}  // namespace velkor::cox
