#include "competing/gray_test.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "companion/distributions.h"
#include "companion/linalg.h"
#include "companion/sorting.h"
#include "core/frame_memory.h"
#include "core/numeric.h"

namespace velkor::competing {

namespace {

using namespace gray_col;

// Vectors of n elements: their blocks come from the frame's cache of released blocks, so that
// repeated tests on large data do not fault in fresh pages for them on every call.
template <class T>
using Scratch = frame_memory::ScratchVector<T>;

bool usable(double x) {
  return !IsMissing(x) && !std::isnan(x);
}

// Dense index 0 .. L-1 of each value, in ascending order of the distinct values. Few distinct
// labels (the usual case for groups and strata) are looked up in a small table, O(n L) at worst
// and O(n) for runs of equal labels; many fall back to the radix order of the values, O(n).
Scratch<std::uint32_t> dense_codes(const Scratch<double>& v, std::uint32_t& levels) {
  constexpr std::size_t kSmall = 64;
  Scratch<std::uint32_t> code(v.size());
  // One pass: codes in order of first appearance (linear search from the last label found),
  // then renumbered in ascending order of the labels.
  std::vector<double> labels;
  std::uint32_t lastCode = 0;
  bool small = true;
  for (std::size_t i = 0; i < v.size() && small; ++i) {
    const double x = v[i];
    if (!labels.empty() && labels[lastCode] == x) {
      code[i] = lastCode;
      continue;
    }
    const auto it = std::find(labels.begin(), labels.end(), x);
    if (it == labels.end()) {
      if (labels.size() == kSmall) {
        small = false;
        break;
      }
      labels.push_back(x);
    }
    lastCode =
        static_cast<std::uint32_t>(std::find(labels.begin(), labels.end(), x) - labels.begin());
    code[i] = lastCode;
  }
  if (small) {
    std::vector<std::uint32_t> byValue(labels.size()), rank(labels.size());
    for (std::uint32_t k = 0; k < labels.size(); ++k) byValue[k] = k;
    std::sort(byValue.begin(), byValue.end(),
              [&](std::uint32_t x, std::uint32_t y) { return labels[x] < labels[y]; });
    for (std::uint32_t r = 0; r < byValue.size(); ++r) rank[byValue[r]] = r;
    for (std::uint32_t& c : code) c = rank[c];
    levels = static_cast<std::uint32_t>(labels.size());
    return code;
  }
  const std::vector<std::uint32_t> order = SortOrder(v.data(), v.size());
  levels = 0;
  for (std::size_t r = 0; r < order.size(); ++r) {
    if (r > 0 && v[order[r]] != v[order[r - 1]]) ++levels;
    code[order[r]] = levels;
  }
  if (!v.empty()) ++levels;
  return code;
}

// Order of the times, ascending (NaN never reaches here). Data ordered by group blocks, each
// ascending in time, form a few ascending runs: those are merged pairwise (std::merge is stable),
// O(n log runs); otherwise the radix order, O(n).
Scratch<std::uint32_t> time_order(const Scratch<double>& t) {
  constexpr std::size_t kMaxRuns = 16;
  std::vector<std::size_t> runs{0};
  for (std::size_t i = 1; i < t.size() && runs.size() <= kMaxRuns; ++i) {
    if (t[i] < t[i - 1]) runs.push_back(i);
  }
  if (runs.size() > kMaxRuns) {
    const std::vector<std::uint32_t> radix = SortOrder(t.data(), t.size());
    return Scratch<std::uint32_t>(radix.begin(), radix.end());
  }
  runs.push_back(t.size());
  Scratch<std::uint32_t> order(t.size()), merged(t.size());
  for (std::size_t i = 0; i < t.size(); ++i) order[i] = static_cast<std::uint32_t>(i);
  const auto earlier = [&](std::uint32_t a, std::uint32_t b) { return t[a] < t[b]; };
  while (runs.size() > 2) {
    std::vector<std::size_t> next{0};
    for (std::size_t r = 0; r + 1 < runs.size(); r += 2) {
      const std::size_t lo = runs[r], mid = runs[r + 1];
      const std::size_t hi = r + 2 < runs.size() ? runs[r + 2] : mid;
      std::merge(order.begin() + lo, order.begin() + mid, order.begin() + mid, order.begin() + hi,
                 merged.begin() + lo, earlier);
      next.push_back(hi);
    }
    if (next.back() != t.size()) next.push_back(t.size());
    order.swap(merged);
    runs.swap(next);
  }
  return order;
}

// Usable rows arranged by stratum, ascending in time within each stratum.
struct OrderedData {
  Scratch<double> time, status;
  Scratch<std::uint32_t> group;
  std::vector<std::size_t> stratumStart;  // block s is [stratumStart[s], stratumStart[s + 1])
  std::uint32_t nGroups = 0;
};

OrderedData arrange(matrix<double>* times, matrix<double>* status, matrix<double>* groups,
                    matrix<double>* strata, int n) {
  const bool stratified = strata != nullptr && strata->count > 0;
  Scratch<double> t, s, g, st;
  const std::size_t rows = static_cast<std::size_t>(std::max(n, 0));
  const std::size_t expected = std::min<std::size_t>(rows, times->rows);
  t.reserve(expected);
  s.reserve(expected);
  g.reserve(expected);
  st.reserve(stratified ? expected : 0);
  for (std::size_t i = 0; i < rows; ++i) {
    if (i >= times->rows || i >= status->rows || i >= groups->rows) break;
    const double sv = stratified ? (i < strata->rows ? strata->data[i] : kMissing) : 0.0;
    if (!usable(times->data[i]) || !usable(status->data[i]) || !usable(groups->data[i]) ||
        !usable(sv)) {
      continue;
    }
    t.push_back(times->data[i]);
    s.push_back(status->data[i]);
    g.push_back(groups->data[i]);
    if (stratified) st.push_back(sv);
  }
  OrderedData d;
  const Scratch<std::uint32_t> groupCode = dense_codes(g, d.nGroups);
  std::uint32_t nStrata = 1;
  Scratch<std::uint32_t> stratumCode =
      stratified ? dense_codes(st, nStrata) : Scratch<std::uint32_t>(t.size(), 0);

  // Stable counting sort by stratum of the time order: time-ascending within each stratum.
  const Scratch<std::uint32_t> byTime = time_order(t);
  d.stratumStart.assign(nStrata + 1, 0);
  for (std::uint32_t c : stratumCode) ++d.stratumStart[c + 1];
  for (std::uint32_t k = 0; k < nStrata; ++k) d.stratumStart[k + 1] += d.stratumStart[k];
  std::vector<std::size_t> next(d.stratumStart.begin(), d.stratumStart.end() - 1);
  d.time.resize(t.size());
  d.status.resize(t.size());
  d.group.resize(t.size());
  for (std::uint32_t i : byTime) {
    const std::size_t to = next[stratumCode[i]]++;
    d.time[to] = t[i];
    d.status[to] = s[i];
    d.group[to] = groupCode[i];
  }
  return d;
}

// Score and variance of one stratum, added into `score` (K - 1) and `var` ((K - 1) x (K - 1),
// row-major, lower triangle filled). `kind` holds 0 censored, 1 failure from the cause, 2 from
// another cause. Notation of Gray (1988): within each group k, S_k and F_k are the all-cause
// survival and the incidence of the cause; left limits carry the suffix "m".
class StratumScore {
 public:
  explicit StratumScore(std::uint32_t K)
      : K_(K),
        risk_(K),
        Sm_(K),
        S_(K),
        Fm_(K),
        F_(K),
        v3_(K),
        d1_(K),
        d2_(K),
        leaving_(K),
        a_(static_cast<std::size_t>(K) * K),
        c_(static_cast<std::size_t>(K) * K),
        v2_(static_cast<std::size_t>(K) * K) {}

  void run(const double* time, const std::uint8_t* kind, const std::uint32_t* group, std::size_t m,
           double rho, std::vector<double>& score, std::vector<double>& var) {
    const std::uint32_t K = K_, K1 = K - 1;
    std::fill(risk_.begin(), risk_.end(), 0.0);
    for (std::size_t i = 0; i < m; ++i) risk_[group[i]] += 1.0;
    std::fill(Sm_.begin(), Sm_.end(), 1.0);
    std::fill(S_.begin(), S_.end(), 1.0);
    std::fill(Fm_.begin(), Fm_.end(), 0.0);
    std::fill(F_.begin(), F_.end(), 0.0);
    std::fill(v3_.begin(), v3_.end(), 0.0);
    std::fill(c_.begin(), c_.end(), 0.0);
    std::fill(v2_.begin(), v2_.end(), 0.0);
    std::vector<double> s(K1, 0.0), v(static_cast<std::size_t>(K1) * K1, 0.0);
    double pooledFm = 0.0;

    for (std::size_t lo = 0; lo < m;) {
      std::size_t hi = lo + 1;
      while (hi < m && !(time[hi] > time[lo])) ++hi;
      std::fill(d1_.begin(), d1_.end(), 0.0);
      std::fill(d2_.begin(), d2_.end(), 0.0);
      std::fill(leaving_.begin(), leaving_.end(), 0.0);
      for (std::size_t i = lo; i < hi; ++i) {
        leaving_[group[i]] += 1.0;
        if (kind[i] == 1) d1_[group[i]] += 1.0;
        if (kind[i] == 2) d2_[group[i]] += 1.0;
      }
      double D1 = 0.0, D2 = 0.0;
      for (std::uint32_t k = 0; k < K; ++k) {
        D1 += d1_[k];
        D2 += d2_[k];
      }
      double pooledF = pooledFm;
      if (D1 > 0.0 || D2 > 0.0) {
        // Group estimates at t, the hazard sum tr = sum_k n_k / S_k(t-) and
        // tq = sum_k n_k (1 - F_k(t-)) / S_k(t-).
        double tr = 0.0, tq = 0.0;
        for (std::uint32_t k = 0; k < K; ++k) {
          if (risk_[k] <= 0.0) continue;
          S_[k] = Sm_[k] * (risk_[k] - d1_[k] - d2_[k]) / risk_[k];
          F_[k] = Fm_[k] + Sm_[k] * d1_[k] / risk_[k];
          tr += risk_[k] / Sm_[k];
          tq += risk_[k] * (1.0 - Fm_[k]) / Sm_[k];
        }
        pooledF = pooledFm + D1 / tr;
        const double w = rho == 0.0 ? 1.0 : std::pow(1.0 - pooledFm, rho);
        const double cFactor = D1 / (tr * (1.0 - pooledFm));

        // a: derivative of the weighted score increments; c accumulates a x dF-pooled terms.
        for (std::uint32_t i = 0; i < K; ++i) {
          for (std::uint32_t j = i; j < K; ++j) at(a_, i, j) = 0.0;
          if (risk_[i] <= 0.0) continue;
          const double hi_ = risk_[i] / Sm_[i];
          at(a_, i, i) = w * hi_ * (1.0 - hi_ / tr);
          at(c_, i, i) += at(a_, i, i) * cFactor;
          for (std::uint32_t j = i + 1; j < K; ++j) {
            if (risk_[j] <= 0.0) continue;
            at(a_, i, j) = -w * hi_ * risk_[j] / (Sm_[j] * tr);
            at(c_, i, j) += at(a_, i, j) * cFactor;
          }
        }
        for (std::uint32_t i = 1; i < K; ++i) {
          for (std::uint32_t j = 0; j < i; ++j) {
            at(a_, i, j) = at(a_, j, i);
            at(c_, i, j) = at(c_, j, i);
          }
        }

        for (std::uint32_t i = 0; i < K1; ++i) {
          if (risk_[i] <= 0.0) continue;
          s[i] += w * (d1_[i] - D1 * risk_[i] * (1.0 - Fm_[i]) / (Sm_[i] * tq));
        }

        // Variance increments of the failures from the cause (tie-corrected).
        if (D1 > 0.0) {
          for (std::uint32_t k = 0; k < K; ++k) {
            if (risk_[k] <= 0.0) continue;
            const double t4 = S_[k] > 0.0 ? 1.0 - (1.0 - pooledF) / S_[k] : 1.0;
            const double t5 = D1 > 1.0 ? 1.0 - (D1 - 1.0) / (tr * Sm_[k] - 1.0) : 1.0;
            const double t3 = t5 * Sm_[k] * D1 / (tr * risk_[k]);
            accumulate(k, t4, t3, true, v);
          }
        }
        // ... and of the failures from the other causes.
        if (D2 > 0.0) {
          for (std::uint32_t k = 0; k < K; ++k) {
            if (S_[k] <= 0.0 || d2_[k] <= 0.0) continue;
            const double t4 = (1.0 - pooledF) / S_[k];
            const double t5 = d2_[k] > 1.0 ? 1.0 - (d2_[k] - 1.0) / (risk_[k] - 1.0) : 1.0;
            const double t3 = t5 * Sm_[k] * Sm_[k] * d2_[k] / (risk_[k] * risk_[k]);
            accumulate(k, t4, t3, false, v);
          }
        }
      }
      for (std::uint32_t k = 0; k < K; ++k) risk_[k] -= leaving_[k];
      pooledFm = pooledF;
      Fm_ = F_;
      Sm_ = S_;
      lo = hi;
    }

    // Terms of the pooled incidence's own variability.
    for (std::uint32_t i = 0; i < K1; ++i) {
      for (std::uint32_t j = 0; j <= i; ++j) {
        double& vij = v[static_cast<std::size_t>(i) * K1 + j];
        for (std::uint32_t k = 0; k < K; ++k) {
          vij += at(c_, i, k) * at(c_, j, k) * v3_[k];
          vij += at(c_, i, k) * at(v2_, j, k);
          vij += at(c_, j, k) * at(v2_, i, k);
        }
      }
    }
    for (std::uint32_t i = 0; i < K1; ++i) score[i] += s[i];
    for (std::size_t l = 0; l < v.size(); ++l) var[l] += v[l];
  }

 private:
  double& at(std::vector<double>& m, std::uint32_t i, std::uint32_t j) {
    return m[static_cast<std::size_t>(i) * K_ + j];
  }

  // One group's variance increment: b_i = a(i, k) - t4 c(i, k) for a failure from the cause,
  // b_i = t4 c(i, k) for another cause (whose v2 increment carries the opposite sign).
  void accumulate(std::uint32_t k, double t4, double t3, bool ownCause, std::vector<double>& v) {
    const std::uint32_t K1 = K_ - 1;
    v3_[k] += t4 * t4 * t3;
    for (std::uint32_t i = 0; i < K1; ++i) {
      const double t1 = ownCause ? at(a_, i, k) - t4 * at(c_, i, k) : t4 * at(c_, i, k);
      at(v2_, i, k) += (ownCause ? 1.0 : -1.0) * t1 * t4 * t3;
      for (std::uint32_t j = 0; j <= i; ++j) {
        const double t2 = ownCause ? at(a_, j, k) - t4 * at(c_, j, k) : t4 * at(c_, j, k);
        v[static_cast<std::size_t>(i) * K1 + j] += t1 * t2 * t3;
      }
    }
  }

  std::uint32_t K_;
  std::vector<double> risk_, Sm_, S_, Fm_, F_, v3_, d1_, d2_, leaving_;
  std::vector<double> a_, c_, v2_;
};

}  // namespace

int GrayTest(matrix<double>* times, matrix<double>* status, matrix<double>* groups,
             matrix<double>* strata, int n, int cause, double rho, int nCauses, int nGroups,
             matrix<double>* tests, matrix<double>* scores, matrix<double>* variance) {
  if (times == nullptr || status == nullptr || groups == nullptr) return -2;
  const OrderedData d = arrange(times, status, groups, strata, n);
  if (d.time.size() < 2) return -2;

  // The variance costs O(K^3) per distinct time: beyond kMaxGroups groups (a label column that
  // is not a grouping, e.g. a continuous covariate) the test is not attempted, so that such a
  // call ends at once instead of running for hours.
  constexpr std::uint32_t kMaxGroups = 256;
  const std::uint32_t K = d.nGroups;
  const bool testable = K >= 2 && K <= kMaxGroups;
  const std::uint32_t K1 = testable ? K - 1 : 0;
  const long long first = cause >= 1 ? cause : 1;
  long long last = cause >= 1 ? cause : nCauses;
  // Causes past every output could only reach the containers' spare elements.
  long long outCauses = 0;
  if (tests != nullptr) outCauses = std::max<long long>(outCauses, tests->rows);
  if (scores != nullptr) outCauses = std::max<long long>(outCauses, scores->cols);
  if (variance != nullptr) outCauses = std::max<long long>(outCauses, variance->cols);
  last = std::min(last, outCauses);
  const long long outK1 = std::max(nGroups - 1, 0);
  Scratch<std::uint8_t> kind(d.time.size());
  std::vector<double> score(K1), var(static_cast<std::size_t>(K1) * K1);
  StratumScore stratum(testable ? K : 1);

  for (long long cl = first; cl <= last; ++cl) {
    const int c = static_cast<int>(cl);
    const double code = static_cast<double>(c);
    for (std::size_t i = 0; i < kind.size(); ++i) {
      kind[i] = d.status[i] == 0.0 ? 0 : (d.status[i] == code ? 1 : 2);
    }
    std::fill(score.begin(), score.end(), 0.0);
    std::fill(var.begin(), var.end(), 0.0);
    if (testable) {
      for (std::size_t s = 0; s + 1 < d.stratumStart.size(); ++s) {
        const std::size_t lo = d.stratumStart[s], hi = d.stratumStart[s + 1];
        stratum.run(d.time.data() + lo, kind.data() + lo, d.group.data() + lo, hi - lo, rho, score,
                    var);
      }
    }

    // s' V^-1 s on the full symmetric V.
    double statistic = kMissing, pValue = kMissing;
    if (testable) {
      matrix<double> V(K1, K1), inv(K1, K1), sv(K1, 1);
      for (std::uint32_t i = 0; i < K1; ++i) {
        sv.data[i] = score[i];
        for (std::uint32_t j = 0; j <= i; ++j) {
          V.data[static_cast<std::size_t>(j) * K1 + i] = var[static_cast<std::size_t>(i) * K1 + j];
          V.data[static_cast<std::size_t>(i) * K1 + j] = var[static_cast<std::size_t>(i) * K1 + j];
        }
      }
      short flag = 0;
      if (M_Inverse(&V, &inv, flag, 1.0) == 0) {
        statistic = M_ProductTrVBV(&sv, &inv, static_cast<int>(K1));
        pValue = pValChiSq(statistic, static_cast<double>(K1));
        if (!std::isfinite(statistic)) statistic = pValue = kMissing;
      }
    }
    if (tests != nullptr) {
      tests->set(c, kStatistic, statistic);
      tests->set(c, kDf, K > 0 ? static_cast<double>(K - 1) : 0.0);
      tests->set(c, kPValue, pValue);
    }
    if (scores != nullptr) {
      for (std::uint32_t i = 0; i < K1 && i < outK1; ++i)
        scores->set(static_cast<int>(i + 1), c, score[i]);
    }
    if (variance != nullptr) {
      for (std::uint32_t j = 0; j < K1; ++j) {
        for (std::uint32_t i = 0; i < K1; ++i) {
          const std::size_t l = static_cast<std::size_t>(std::max(i, j)) * K1 + std::min(i, j);
          const long long row = static_cast<long long>(j) * K1 + i + 1;
          if (row <= outK1 * outK1) variance->set(static_cast<int>(row), c, var[l]);
        }
      }
    }
  }
  return 0;
}

}  // namespace velkor::competing
