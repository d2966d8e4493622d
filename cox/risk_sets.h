// Risk-set sums of the stratified Cox partial likelihood, shared by the flat and object forms.
//
// The data are sorted by stratum and, inside each stratum, by time (cReorganizeDataCox), so the
// risk set of the k-th distinct time of a stratum is the contiguous run of rows from the first row
// of that time's tied block to the last row of the stratum. For a coefficient vector beta, with
// eta_i = x_i' beta and the exponent guard (a row with eta_i >= 700 is left out of every
// exponential sum, not clamped):
//
//   S_k = sum_{i in R_k} exp(eta_i)         A_k = sum_{i in R_k} exp(eta_i) x_i
//   C_k = sum_{i in R_k} exp(eta_i) x_i x_i'
//
// and over the tied block D_k of time k, weighted by the event weights w_i:
//
//   T_k = sum_{i in D_k} w_i exp(eta_i)     B_k = sum w_i exp(eta_i) x_i
//   E_k = sum w_i exp(eta_i) x_i x_i'
//
// The risk-set sums are unweighted and the block sums weighted: this is the library's documented
// likelihood, identical to the usual one for unit weights.
//
// Cost: the sums are accumulated as backward cumulative sums, one pass from the last row of a
// stratum to its first, so that one evaluation costs O(n p^2) whatever the number of distinct
// times (the direct sums over each risk set cost O(n p^2) per distinct time). Both give the same
// values to rounding. Blocks whose starts are not ascending (a caller-built table) fall back to
// the direct sums, so any table gives the direct-sum result.
// With a row-major design of at most 6 columns (what the fits pass) the pass is fused: each row's
// eta_i and exp(eta_i) are formed as the row is added, so an evaluation reads the design once and
// keeps no per-row vector (Efron keeps exp(eta) of the rows just added for its tied-block sums).
// The fused pass adds in the same order as the three-pass evaluation it replaced (linear
// predictors, exponentials, sums): its values are the same bit for bit.
#pragma once

#include <cstdint>
#include <vector>

namespace velkor::cox {

// One tied block: 0-based first row, number of rows, number of events d.
struct TiedBlock {
  std::uint32_t start = 0;
  std::uint32_t size = 0;
  std::int32_t events = 0;
};

// One stratum: its rows [first, first + rows) and its blocks [blockBegin, blockEnd) of
// RiskLayout::blocks, in ascending time.
struct StratumRange {
  std::uint32_t first = 0;
  std::uint32_t rows = 0;
  std::uint32_t blockBegin = 0;
  std::uint32_t blockEnd = 0;
  bool ascending = true;  // block starts non-decreasing: the cumulative pass applies
};

// The validated block structure of a sorted data set. Every index is within [0, n): entries of a
// caller's table that point outside their stratum are clipped or dropped when it is built.
struct RiskLayout {
  std::size_t n = 0;
  std::vector<TiedBlock> blocks;
  std::vector<StratumRange> strata;
};

// How the terms of a time with d events are formed.
enum class TieTerms {
  // d log S_k, d A_k / S_k, d (C_k / S_k - A_k A_k' / S_k^2): the flat form's Breslow terms,
  // also used for its Efron code, whose integer fraction (j - 1) / d is always 0.
  BreslowCount,
  // Breslow with the event terms weighted: W_k = sum of the event weights of block k replaces d.
  BreslowWeighted,
  // Efron: for j = 1..d, f_j = (j - 1) / d in floating point, the mean event weight W_k / d times
  // log(S_k - f_j T_k), (A_k - f_j B_k) / (S_k - f_j T_k) and the matching second moment.
  EfronWeighted,
  // A ties code the likelihood does not know: nothing is computed (all outputs 0).
  Nothing,
};

// Builds the validated layout from per-stratum row counts and the block tables of
// cReorganizeDataCox. `table(s, k)` accessors are 0-based (stratum s, distinct time k);
// `blockStart` holds 1-based global row numbers as the tables do.
template <class StrataRows, class NTimes, class Start, class Size, class Events>
RiskLayout MakeRiskLayout(std::size_t n, int nStrata, StrataRows strataRows, NTimes nTimes,
                          Start blockStart, Size blockSize, Events blockEvents, int tableCols) {
  RiskLayout lay;
  lay.n = n;
  std::size_t first = 0;
  for (int s = 0; s < nStrata; ++s) {
    StratumRange st;
    const double want = strataRows(s);
    std::size_t rows = 0;
    if (want > 0 && first < n) {
      const double room = static_cast<double>(n - first);
      rows = static_cast<std::size_t>(want < room ? want : room);
    }
    st.first = static_cast<std::uint32_t>(first);
    st.rows = static_cast<std::uint32_t>(rows);
    st.blockBegin = static_cast<std::uint32_t>(lay.blocks.size());
    const int k_max = nTimes(s) < tableCols ? nTimes(s) : tableCols;
    long long last_start = -1;
    for (int k = 0; rows > 0 && k < k_max; ++k) {
      const long long start = static_cast<long long>(blockStart(s, k)) - 1;
      if (start < static_cast<long long>(first) || start >= static_cast<long long>(first + rows))
        continue;  // outside the stratum: the block contributes nothing
      TiedBlock b;
      b.start = static_cast<std::uint32_t>(start);
      const long long room = static_cast<long long>(first + rows) - start;
      const long long size = blockSize(s, k);
      b.size = static_cast<std::uint32_t>(size < 0 ? 0 : (size < room ? size : room));
      const long long d = blockEvents(s, k);
      b.events =
          static_cast<std::int32_t>(d < 0 ? 0 : (d < static_cast<long long>(rows) ? d : rows));
      if (start < last_start) st.ascending = false;
      last_start = start;
      lay.blocks.push_back(b);
    }
    st.blockEnd = static_cast<std::uint32_t>(lay.blocks.size());
    lay.strata.push_back(st);
    first += rows;
  }
  return lay;
}

// Scratch space of an evaluation (linear predictors and their exponentials, n each), kept by a
// fit across its evaluations so that large vectors are not allocated and faulted in each time.
// The event terms that do not depend on beta (the sum of w_i x_i over the event rows of every
// block with events, and each block's total event weight W_k) are computed at the first
// evaluation and reused by the later ones.
struct RiskWorkspace {
  std::vector<double> eta, ex;
  std::vector<double> rangeEx;  // fused Efron pass: exp(eta) of the rows the pass last added
  bool eventTermsReady = false;
  std::vector<double> blockWeight;  // W_k per block of the layout
  std::vector<double> eventSum;     // p: sum of w_i x_i over the event rows
};

// Log partial likelihood, gradient (p) and second-derivative matrix (p x p, column-major) at beta.
// X is column-major with leading dimension ldx (>= layout.n); w holds the event weights (n).
// rowMajor, when not null, is the same design stored row by row (n x p, row i at rowMajor + i p):
// it is then read instead of X, which keeps each row's covariates in one cache line (the fits
// build it once per fit). Outputs are overwritten. With p < 1 everything is 0 (nothing is
// accumulated).
void EvaluateRiskSets(const RiskLayout& layout, const double* X, std::size_t ldx, int p,
                      const double* w, const double* beta, TieTerms terms, double& loglik,
                      double* grad, double* hess, const double* rowMajor = nullptr,
                      RiskWorkspace* work = nullptr);

// Row-major copy of the first n rows of a column-major design (leading dimension ldx).
std::vector<double> RowMajorCopy(const double* X, std::size_t ldx, std::size_t n, int p);

// The same quantities from the direct sums over each risk set (O(n p^2) per distinct time), as
// the textbook formula reads. Used by the fallback for unordered tables and by the tests.
void EvaluateRiskSetsDirect(const RiskLayout& layout, const double* X, std::size_t ldx, int p,
                            const double* w, const double* beta, TieTerms terms, double& loglik,
                            double* grad, double* hess);

}  // namespace velkor::cox
