// Object form after the fit: survival function, residuals, concordance, quality indices,
// proportional-hazards test, k-fold cross-validation and bootstrap (contracts in
// velkor/cox_objects.h).
//
// Replicates (folds, bootstrap samples) are independent fits on subsets of the prepared rows. A
// subset taken in ascending row order is still sorted by stratum and time, so its layout is read
// off in one pass. Replicate r draws its random numbers from GetSeedUpdate(seed, r): the results
// do not depend on the number of threads nor on the order in which replicates run.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <vector>

#include "companion/random.h"
#include "core/numeric.h"
#include "cox/post_fit.h"
#include "cox/run.h"
#include "cox/scratch.h"

namespace velkor::cox {
namespace {

// The in-model columns of the prepared design, centred on their means over all rows, row-major
// (n x q), and the matching coefficients.
struct ModelDesign {
  std::size_t n = 0;
  int q = 0;
  std::vector<int> columns;
  std::vector<double> x, beta;
};

ModelDesign MakeModelDesign(const cCOX_Results& res) {
  ModelDesign d;
  d.n = static_cast<std::size_t>(res.n < 0 ? 0 : res.n);
  for (std::uint32_t j = 0; j < static_cast<std::uint32_t>(res.p < 0 ? 0 : res.p); ++j)
    if (j < res.inModel.count && res.inModel.data[j] == 1) d.columns.push_back(static_cast<int>(j));
  d.q = static_cast<int>(d.columns.size());
  const auto uq = d.columns.size();
  d.x.assign(d.n * uq, 0.0);
  for (std::size_t c = 0; c < uq; ++c) {
    const std::size_t off = static_cast<std::size_t>(d.columns[c]) * d.n;
    if (off + d.n > res.design.count) continue;
    const double* src = res.design.data + off;
    const double mean = ColumnMean(res, d.columns[c]);
    for (std::size_t i = 0; i < d.n; ++i) d.x[i * uq + c] = src[i] - mean;
  }
  d.beta.assign(uq, 0.0);
  for (std::size_t c = 0; c < uq && c < res.beta.count; ++c) d.beta[c] = res.beta.data[c];
  return d;
}

bool Prepared(const cCOX_Results& res) {
  const auto n = static_cast<std::uint32_t>(res.n < 0 ? 0 : res.n);
  return n > 0 && res.time.count >= n && res.status.count >= n && res.eventWeights.count >= n &&
         res.strataKey.count >= n;
}

// A subset of the prepared rows (ascending), gathered with its own layout.
struct Subset {
  std::vector<double> time, status, ew, x;
  RiskLayout layout;
};

Subset MakeSubset(const cCOX_Results& res, const ModelDesign& d,
                  const std::vector<std::uint32_t>& rows) {
  Subset s;
  const auto uq = static_cast<std::size_t>(d.q);
  const std::size_t m = rows.size();
  s.time.resize(m);
  s.status.resize(m);
  s.ew.resize(m);
  s.x.resize(m * uq);
  s.layout.n = m;
  for (std::size_t r = 0; r < m; ++r) {
    const std::uint32_t i = rows[r];
    s.time[r] = res.time.data[i];
    s.status[r] = res.status.data[i];
    s.ew[r] = res.eventWeights.data[i];
    for (std::size_t j = 0; j < uq; ++j) s.x[r * uq + j] = d.x[i * uq + j];
    const bool newStratum = r == 0 || res.strataKey.data[i] != res.strataKey.data[rows[r - 1]];
    if (newStratum) {
      if (!s.layout.strata.empty()) {
        s.layout.strata.back().rows = static_cast<std::uint32_t>(r) - s.layout.strata.back().first;
        s.layout.strata.back().blockEnd = static_cast<std::uint32_t>(s.layout.blocks.size());
      }
      StratumRange st;
      st.first = static_cast<std::uint32_t>(r);
      st.blockBegin = static_cast<std::uint32_t>(s.layout.blocks.size());
      s.layout.strata.push_back(st);
    }
    if (newStratum || s.time[r] != s.time[r - 1]) {
      TiedBlock b;
      b.start = static_cast<std::uint32_t>(r);
      s.layout.blocks.push_back(b);
    }
    TiedBlock& b = s.layout.blocks.back();
    ++b.size;
    if (s.status[r] != 0.0) ++b.events;
  }
  if (!s.layout.strata.empty()) {
    s.layout.strata.back().rows = static_cast<std::uint32_t>(m) - s.layout.strata.back().first;
    s.layout.strata.back().blockEnd = static_cast<std::uint32_t>(s.layout.blocks.size());
  }
  return s;
}

double LogLikAt(const Subset& s, int q, const double* beta, TieTerms terms) {
  const auto uq = static_cast<std::size_t>(q);
  std::vector<double> g(uq), h(uq * uq);
  double ll = 0.0;
  if (q < 1 || s.layout.n == 0) return 0.0;
  EvaluateRiskSets(s.layout, s.x.data(), s.layout.n, q, s.ew.data(), beta, terms, ll, g.data(),
                   h.data(), s.x.data());
  return ll;
}

std::vector<double> Eta(const std::vector<double>& x, std::size_t n, int q, const double* beta) {
  const auto uq = static_cast<std::size_t>(q);
  std::vector<double> eta(n, 0.0);
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = 0; j < uq; ++j) eta[i] += x[i * uq + j] * beta[j];
  return eta;
}

// A replicate's fit is used when it converged, or when its step halvings ran out at the maximum:
// near the optimum the gain of a Newton step falls below the resolution of the log-likelihood
// (about 1e-13 for |L| of some hundreds) and the object-form fit reports -1 although the Newton
// step is negligible. Such a fit is accepted when its last Newton step H^-1 g is below 1e-6
// (1 + |beta_j|) for every coefficient.
bool Usable(const FitResult& f, int q) {
  if (f.status == 0) return true;
  const auto uq = static_cast<std::size_t>(q);
  if (f.iterations < 2 || f.grad.size() != uq || f.inv.size() != uq * uq || f.beta.size() != uq)
    return false;
  for (std::size_t j = 0; j < uq; ++j) {
    double step = 0.0;
    for (std::size_t k = 0; k < uq; ++k) step += f.inv[k * uq + j] * f.grad[k];
    if (!(std::fabs(step) <= 1e-6 * (1.0 + std::fabs(f.beta[j])))) return false;
  }
  return true;
}

int IterationLimit(const COX_Param& param) {
  return param.validationIterations < 1 ? 1 : param.validationIterations;
}

// Runs body(r) for r in [0, count) on the OpenMP threads, in chunks; between chunks the caller's
// progress callback is called from this (the calling) thread. Returns false when it asked to stop.
template <class Body>
bool Replicates(int count, VELKORInfo& info, Body body) {
  const int chunk = 16;
  for (int start = 0; start < count; start += chunk) {
    const int end = std::min(count, start + chunk);
#pragma omp parallel for schedule(dynamic, 1)
    for (int r = start; r < end; ++r) body(r);
    if (info.progress && !info.progress(end, count)) return false;
  }
  return true;
}

}  // namespace

// ---- Survival function, residuals, concordance, quality row, proportionality test ------------

int SurvFoncCox_ST(COX_Param& /*param*/, cCOX_Results& res) {
  if (!Prepared(res)) return -1;
  const RiskLayout layout = ObjectLayout(res);
  const ModelDesign d = MakeModelDesign(res);
  const BreslowBaseline bl = ComputeBreslowBaseline(layout, d.x.data(), d.q, d.beta.data());
  const auto m = static_cast<std::uint32_t>(layout.strata.size());
  const auto K = static_cast<std::uint32_t>(res.maxTimes < 0 ? 0 : res.maxTimes);
  const auto n = static_cast<std::uint32_t>(d.n);
  res.baseSurvival.resize(m * K, kMissing);
  res.meanSurvival.resize(m * K, kMissing);
  // Centred covariates: the mean covariate vector is 0.
  const std::vector<double> zero(static_cast<std::size_t>(d.q), 0.0);
  FillSurvival(layout, bl, d.q, d.beta.data(), zero.data(), static_cast<int>(K),
               res.baseSurvival.data, nullptr, res.meanSurvival.data);
  // Survival of each row at its own time, S0(t_i)^exp(eta_i): n values (the whole curve of row i
  // is baseSurvival^exp(eta_i); an n x K table would not fit in memory for large data sets).
  res.rowSurvival.resize(n, kMissing);
  for (std::uint32_t i = 0; i < n; ++i) {
    const std::uint32_t b = bl.blockOf[i];
    const double H = b == BreslowBaseline::kNoBlock ? 0.0 : bl.cumHaz[b];
    const double v = std::pow(std::exp(-H), std::exp(bl.eta[i]));
    res.rowSurvival.data[i] = std::isfinite(v) ? v : kMissing;
  }
  return 0;
}

int ResCox_ST(COX_Param& /*param*/, cCOX_Results& res) {
  if (!Prepared(res)) return -1;
  const RiskLayout layout = ObjectLayout(res);
  const ModelDesign d = MakeModelDesign(res);
  const BreslowBaseline bl = ComputeBreslowBaseline(layout, d.x.data(), d.q, d.beta.data());
  const auto n = static_cast<std::uint32_t>(d.n);
  res.residuals.resize(n * static_cast<std::uint32_t>(4 + 2 * d.q), kMissing);
  FillResiduals(layout, bl, res.time.data, res.status.data, d.x.data(), d.q, nullptr,
                res.residuals.data, d.n);
  return 0;
}

int ConcordIndex_ST(cCOX_Results& res) {
  res.concordance = kMissing;
  if (!Prepared(res)) return -1;
  // eta = centred x' beta of the model's columns, accumulated column by column straight from the
  // prepared design: the same sums, in the same order, as over MakeModelDesign's centred copy,
  // without building that copy.
  const auto n = static_cast<std::size_t>(res.n);
  // The model's columns, their coefficients and means (a column the design does not hold adds 0).
  struct Term {
    const double* src;
    double b, mean;
  };
  std::vector<Term> terms;
  std::uint32_t c = 0;
  for (std::uint32_t j = 0; j < static_cast<std::uint32_t>(res.p < 0 ? 0 : res.p); ++j) {
    if (!(j < res.inModel.count && res.inModel.data[j] == 1)) continue;
    const double b = c < res.beta.count ? res.beta.data[c] : 0.0;
    ++c;
    const std::size_t off = static_cast<std::size_t>(j) * n;
    Term t{nullptr, b, 0.0};
    if (off + n <= res.design.count) {
      t.src = res.design.data + off;
      t.mean = ColumnMean(res, static_cast<int>(j));
    }
    terms.push_back(t);
  }
  // Each row's terms are added in column order as before, a block of rows at a time so that the
  // block of eta stays in cache across the columns.
  FilledLaterVector<double> eta(n);
  constexpr std::size_t kBlock = 2048;
  for (std::size_t i0 = 0; i0 < n; i0 += kBlock) {
    const std::size_t i1 = std::min(n, i0 + kBlock);
    for (std::size_t i = i0; i < i1; ++i) eta[i] = 0.0;
    for (const Term& t : terms)
      for (std::size_t i = i0; i < i1; ++i) eta[i] += (t.src ? t.src[i] - t.mean : 0.0) * t.b;
  }
  res.concordance = ConcordanceFenwick(n, res.time.data, res.status.data, eta.data());
  return 0;
}

int ComputeCVTable_ST(COX_Param& /*param*/, cCOX_Results& res) {
  if (cox::ConcordIndex_ST(res) != 0 || res.modelStats.count < 12) return -1;
  const double D0 = res.modelStats.data[2], D = res.modelStats.data[8];
  res.cvTable.resize(5, kMissing);
  double row[5];
  QualityRow(D0, D, res.n, static_cast<int>(res.beta.count), D, D0, res.concordance, row);
  for (std::uint32_t c = 0; c < 5; ++c) res.cvTable.data[c] = row[c];
  return 0;
}

int Cox_ProportionalityTest_ST(COX_Param& param, cCOX_Results& res) {
  if (!Prepared(res)) return -1;
  const RiskLayout layout = ObjectLayout(res);
  const ModelDesign d = MakeModelDesign(res);
  res.phTest.resize(static_cast<std::uint32_t>(d.q + 1) * 3, kMissing);
  const int tr = param.phTransform;
  const PHTransform t = tr == 0   ? PHTransform::Identity
                        : tr == 1 ? PHTransform::Log
                        : tr == 2 ? PHTransform::Rank
                                  : PHTransform::KaplanMeier;
  ProportionalityTest(layout, res.time.data, res.status.data, res.eventWeights.data, d.x.data(),
                      d.q, d.beta.data(), t, res.phTest.data);
  return 0;
}

// ---- Cross-validation ------------------------------------------------------------------------

int CoxCV_ST(COX_Param& param, cCOX_Results& res, VELKORInfo& info) {
  if (!Prepared(res)) return -1;
  const ModelDesign d = MakeModelDesign(res);
  const std::size_t n = d.n;
  const int k = static_cast<int>(std::min<std::size_t>(n, param.cvFolds < 0 ? 0 : param.cvFolds));
  if (k < 2) return 0;
  // Folds: a random permutation of the rows (Fisher-Yates on the seed's stream 0), row at
  // position t goes to fold t mod k; fold sizes differ by at most one.
  RandomState rs;
  GetSeed(param.seed, rs);
  std::vector<std::uint32_t> perm(n);
  std::iota(perm.begin(), perm.end(), 0u);
  for (std::size_t t = n; t > 1; --t) std::swap(perm[t - 1], perm[RandomBelow(rs, t)]);
  std::vector<int> fold(n);
  for (std::size_t t = 0; t < n; ++t)
    fold[perm[t]] = static_cast<int>(t % static_cast<std::size_t>(k));

  const auto rowsOut = static_cast<std::uint32_t>(k + 2);
  // Row 1 the model on all rows, rows 2 .. k + 1 the folds, row k + 2 the mean of the folds.
  VectD table(rowsOut * 5, kMissing);
  if (res.cvTable.count >= 5)
    for (std::uint32_t c = 0; c < 5; ++c) table.data[c * rowsOut] = res.cvTable.data[c];
  const TieTerms terms = ObjectTerms(param.ties);
  const int limit = IterationLimit(param);
  const bool done = Replicates(k, info, [&](int f) {
    std::vector<std::uint32_t> train, test;
    for (std::uint32_t i = 0; i < n; ++i) (fold[i] == f ? test : train).push_back(i);
    const Subset tr = MakeSubset(res, d, train), te = MakeSubset(res, d, test);
    CoxProblem prob{&tr.layout, tr.ew.data(), terms};
    const FitResult fit = FitObject(prob, tr.x, d.q, limit, param.tolerance);
    if (!Usable(fit, d.q)) return;  // the fold's row stays missing
    const std::vector<double> zero(static_cast<std::size_t>(d.q), 0.0);
    const double D0 = -2.0 * LogLikAt(te, d.q, zero.data(), terms);
    const double D = -2.0 * LogLikAt(te, d.q, fit.beta.data(), terms);
    const std::vector<double> eta = Eta(te.x, test.size(), d.q, fit.beta.data());
    const double c = ConcordanceFenwick(test.size(), te.time.data(), te.status.data(), eta.data());
    double row[5];
    QualityRow(D0, D, static_cast<int>(test.size()), d.q, D, D0, c, row);
    for (std::uint32_t col = 0; col < 5; ++col)
      table.data[col * rowsOut + static_cast<std::uint32_t>(f) + 1] = row[col];
  });
  for (std::uint32_t col = 0; col < 5 && done; ++col) {
    double s = 0.0, cnt = 0.0;
    for (std::uint32_t f = 1; f <= static_cast<std::uint32_t>(k); ++f) {
      const double v = table.data[col * rowsOut + f];
      if (!IsMissing(v)) {
        s += v;
        cnt += 1.0;
      }
    }
    table.data[col * rowsOut + rowsOut - 1] = cnt > 0.0 ? s / cnt : kMissing;
  }
  res.cvTable = std::move(table);
  return 0;
}

// ---- Bootstrap -------------------------------------------------------------------------------

void BootSummary(int B, int cols, const double* reps, const double* estimate, double alpha,
                 double* out) {
  const auto uc = static_cast<std::size_t>(cols < 0 ? 0 : cols);
  const auto ub = static_cast<std::size_t>(B < 0 ? 0 : B);
  const double a = (alpha > 0.0 && alpha < 1.0) ? alpha : 0.05;
  std::vector<double> v;
  for (std::size_t j = 0; j < uc; ++j) {
    v.clear();
    for (std::size_t b = 0; b < ub; ++b) {
      const double x = reps[j * ub + b];
      if (std::isfinite(x) && !IsMissing(x)) v.push_back(x);
    }
    const std::size_t m = v.size();
    double mean = 0.0;
    for (double x : v) mean += x;
    mean = m > 0 ? mean / static_cast<double>(m) : kMissing;
    double ss = 0.0;
    for (double x : v) ss += (x - mean) * (x - mean);
    std::sort(v.begin(), v.end());
    // Percentile limits: R's type-7 quantile (linear interpolation between order statistics).
    auto quantile = [&](double prob) {
      if (m == 0) return kMissing;
      const double h = (static_cast<double>(m) - 1.0) * prob;
      const auto lo = static_cast<std::size_t>(std::floor(h));
      const std::size_t hi = std::min(lo + 1, m - 1);
      return v[lo] + (h - static_cast<double>(lo)) * (v[hi] - v[lo]);
    };
    out[j] = estimate ? estimate[j] : kMissing;
    out[uc + j] = mean;
    out[2 * uc + j] = m > 1 ? std::sqrt(ss / static_cast<double>(m - 1)) : kMissing;
    out[3 * uc + j] = quantile(a / 2.0);
    out[4 * uc + j] = quantile(1.0 - a / 2.0);
    out[5 * uc + j] = static_cast<double>(m);
  }
}

int ComputeBootOut_ST(COX_Param& param, cCOX_Results& res, VELKORInfo& info) {
  if (!Prepared(res)) return -1;
  const int B = param.bootstrapSamples;
  if (B < 1) {
    res.bootTable.resize(0, 0.0);
    return 0;
  }
  const ModelDesign d = MakeModelDesign(res);
  const std::size_t n = d.n;
  const auto cols = static_cast<std::size_t>(d.q) + 1;
  const auto ub = static_cast<std::size_t>(B);
  std::vector<double> reps(ub * cols, kMissing);
  const TieTerms terms = ObjectTerms(param.ties);
  const int limit = IterationLimit(param);
  Replicates(B, info, [&](int b) {
    RandomState rs;
    GetSeedUpdate(param.seed, static_cast<std::uint64_t>(b), rs);
    std::vector<std::uint32_t> rows(n);
    for (std::size_t t = 0; t < n; ++t) rows[t] = static_cast<std::uint32_t>(RandomBelow(rs, n));
    std::sort(rows.begin(), rows.end());
    const Subset s = MakeSubset(res, d, rows);
    CoxProblem prob{&s.layout, s.ew.data(), terms};
    const FitResult fit = FitObject(prob, s.x, d.q, limit, param.tolerance);
    if (!Usable(fit, d.q)) return;  // the replicate stays missing and is not counted
    for (std::size_t j = 0; j + 1 < cols; ++j)
      reps[j * ub + static_cast<std::size_t>(b)] = fit.beta[j];
    const std::vector<double> eta = Eta(s.x, n, d.q, fit.beta.data());
    reps[(cols - 1) * ub + static_cast<std::size_t>(b)] =
        ConcordanceFenwick(n, s.time.data(), s.status.data(), eta.data());
  });
  std::vector<double> est(d.beta);
  if (cox::ConcordIndex_ST(res) == 0) est.push_back(res.concordance);
  est.resize(cols, kMissing);
  res.bootTable.resize(static_cast<std::uint32_t>(cols * 6), kMissing);
  BootSummary(B, static_cast<int>(cols), reps.data(), est.data(), param.alpha, res.bootTable.data);
  return 0;
}

}  // namespace velkor::cox
