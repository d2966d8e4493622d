// Paired comparison of ROC areas measured on the same subjects (DeLong, DeLong & Clarke-Pearson,
// Biometrics 1988).
//
// Contract (flat layout in include/velkor/roc.h, Cpp_ComputeROCComparisonsDep2):
//   in : status (n x 1, 1 positive / 0 negative), values (n x m, one column per test variable),
//        weights (n x 1; no elements = unit weights), side code (as ComputeROC: 2 and 4 mean low
//        values are test-positive), alpha
//   out: aucs (m x 4: area, SE, lower, upper), covariance (m x m), global (3: chi-square, df,
//        p-value), pairs (m(m-1)/2 x 8: r, s, A_r - A_s, SE, lower, upper, z, p). Cells that
//        cannot be computed hold the missing marker.
//   Rows used: status 0 or 1, weight finite and > 0, and every one of the m values finite (the
//   paired design needs each subject measured by every test).
//   Status: 0; -2 (nothing written) when m < 2 or the rows used hold no positive or no negative.
//   Helpers: SortOrder, DeLongComponents, M_Inverse, pValChiSq, CDFNormalStd, InvCDFNormalStd.
//   Cost: O(m n log n) for the sorts and components, O(m^2 n) for the covariance, O(m^3) for
//   the global test.
//
// With the structural components V10_r(i) (positives) and V01_r(j) (negatives) of test r, and
// A_r the Mann-Whitney area (psi = 1, 1/2 within 1e-12, 0):
//   S10_rs = sum_i w_i (V10_r(i) - A_r)(V10_s(i) - A_s) / (W1 - 1),  S01 likewise over negatives,
//   S = S10 / W1 + S01 / W0                         (covariance matrix of the areas),
//   pair (r, s): z = (A_r - A_s) / sqrt(S_rr + S_ss - 2 S_rs), two-sided normal p-value,
//   all equal:   chi2 = (L A)' (L S L')^-1 (L A) on m - 1 df, L the contrasts e_1 - e_{r+1}.
#include <cmath>
#include <vector>

#include "companion/basic.h"
#include "companion/distributions.h"
#include "companion/linalg.h"
#include "companion/sorting.h"
#include "core/numeric.h"
#include "roc/contingency.h"
#include "roc/roc_curve.h"

namespace velkor::roc {

namespace {

struct Components {
  std::vector<double> pos, neg;  // in subject order of the positives / negatives
  double area = 0.0;
};

}  // namespace

int ComputeROCComparisonsDep(matrix<double>* status, matrix<double>* values,
                             matrix<double>* weights, int n, int m, int side, double alpha,
                             matrix<double>* aucs, matrix<double>* covariance,
                             matrix<double>* global, matrix<double>* pairs) {
  if (m < 2 || n <= 0) return -2;
  const bool unit = weights == nullptr || weights->count == 0;
  const bool highPositive = side != kSideBelowOrEqual && side != kSideBelow;
  const std::uint64_t rowsIn = static_cast<std::uint64_t>(n);
  const std::uint64_t mm = static_cast<std::uint64_t>(m);

  // Complete usable rows.
  std::vector<std::uint64_t> kept;
  for (std::uint64_t i = 0; i < rowsIn; ++i) {
    const double st = status->at0(i), w = unit ? 1.0 : weights->at0(i);
    bool ok = true;
    for (std::uint64_t r = 0; r < mm && ok; ++r) ok = RowIsUsable(st, values->at0(i, r), w);
    if (ok) kept.push_back(i);
  }
  std::vector<std::size_t> subject(kept.size());  // index among positives or among negatives
  std::vector<double> wPos, wNeg;
  for (std::size_t k = 0; k < kept.size(); ++k) {
    const double w = unit ? 1.0 : weights->at0(kept[k]);
    if (status->at0(kept[k]) == 1.0) {
      subject[k] = wPos.size();
      wPos.push_back(w);
    } else {
      subject[k] = wNeg.size();
      wNeg.push_back(w);
    }
  }
  if (wPos.empty() || wNeg.empty()) return -2;
  const std::size_t n1 = wPos.size(), n0 = wNeg.size();

  // Components of each test, mapped back to subject order.
  std::vector<Components> comp(static_cast<std::size_t>(m));
  double W1 = 0.0, W0 = 0.0;
  std::vector<double> v(kept.size());
  for (std::uint64_t r = 0; r < mm; ++r) {
    for (std::size_t k = 0; k < kept.size(); ++k) {
      const double x = values->at0(kept[k], r);
      v[k] = x == 0.0 ? 0.0 : x;
    }
    const std::vector<std::uint32_t> order = SortOrder(v.data(), v.size());
    GroupedValues g;
    std::vector<std::size_t> posSubject, negSubject;
    g.x.reserve(n1);
    g.wx.reserve(n1);
    g.y.reserve(n0);
    g.wy.reserve(n0);
    for (std::size_t t = 0; t < order.size(); ++t) {
      const std::size_t k = order[highPositive ? t : order.size() - 1 - t];
      const double x = highPositive ? v[k] : -v[k];
      const double w = unit ? 1.0 : weights->at0(kept[k]);
      if (status->at0(kept[k]) == 1.0) {
        g.x.push_back(x);
        g.wx.push_back(w);
        posSubject.push_back(subject[k]);
      } else {
        g.y.push_back(x);
        g.wy.push_back(w);
        negSubject.push_back(subject[k]);
      }
    }
    // Total weights summed in subject order, the same for every test.
    if (r == 0) {
      for (double w : wPos) W1 += w;
      for (double w : wNeg) W0 += w;
    }
    g.W1 = W1;
    g.W0 = W0;
    std::vector<double> cpos, cneg;
    Components& c = comp[r];
    c.area = DeLongComponents(g, cpos, cneg);
    c.pos.assign(n1, 0.0);
    c.neg.assign(n0, 0.0);
    for (std::size_t i = 0; i < n1; ++i) c.pos[posSubject[i]] = cpos[i];
    for (std::size_t j = 0; j < n0; ++j) c.neg[negSubject[j]] = cneg[j];
  }

  // Covariance matrix of the areas.
  const bool haveVariance = W1 - 1.0 > 1e-12 && W0 - 1.0 > 1e-12;
  std::vector<double> S(static_cast<std::size_t>(m) * m, kMissing);
  if (haveVariance) {
    for (std::size_t r = 0; r < comp.size(); ++r)
      for (std::size_t s = r; s < comp.size(); ++s) {
        double s10 = 0.0, s01 = 0.0;
        for (std::size_t i = 0; i < n1; ++i)
          s10 += wPos[i] * (comp[r].pos[i] - comp[r].area) * (comp[s].pos[i] - comp[s].area);
        for (std::size_t j = 0; j < n0; ++j)
          s01 += wNeg[j] * (comp[r].neg[j] - comp[r].area) * (comp[s].neg[j] - comp[s].area);
        const double cov = s10 / (W1 - 1.0) / W1 + s01 / (W0 - 1.0) / W0;
        S[r * comp.size() + s] = S[s * comp.size() + r] = cov;
      }
  }
  auto cov = [&](std::size_t r, std::size_t s) { return S[s * comp.size() + r]; };

  const double z = CriticalValueTwoSided(alpha);
  const bool haveZ = std::isfinite(z);
  if (aucs != nullptr) {
    for (std::size_t r = 0; r < comp.size(); ++r) {
      const int row = static_cast<int>(r) + 1;
      const double A = comp[r].area;
      const double se =
          haveVariance && cov(r, r) > 0.0 ? sqr(cov(r, r)) : (haveVariance ? 0.0 : kMissing);
      aucs->set(row, 1, A);
      aucs->set(row, 2, se);
      aucs->set(row, 3, haveVariance && haveZ ? Max(0.0, A - z * se) : kMissing);
      aucs->set(row, 4, haveVariance && haveZ ? Min(1.0, A + z * se) : kMissing);
    }
  }
  if (covariance != nullptr) {
    for (int r = 1; r <= m; ++r)
      for (int s = 1; s <= m; ++s)
        covariance->set(r, s,
                        cov(static_cast<std::size_t>(r - 1), static_cast<std::size_t>(s - 1)));
  }
  if (pairs != nullptr) {
    int row = 0;
    for (int r = 1; r <= m; ++r)
      for (int s = r + 1; s <= m; ++s) {
        ++row;
        const std::size_t a = static_cast<std::size_t>(r - 1), b = static_cast<std::size_t>(s - 1);
        const double d = comp[a].area - comp[b].area;
        double se = kMissing, lo = kMissing, hi = kMissing, stat = kMissing, p = kMissing;
        if (haveVariance) {
          const double var = cov(a, a) + cov(b, b) - 2.0 * cov(a, b);
          se = var > 0.0 ? sqr(var) : 0.0;
          if (haveZ) {
            lo = d - z * se;
            hi = d + z * se;
          }
          if (se > 1e-12) {
            stat = d / se;
            p = 2.0 * CDFNormalStd(-std::fabs(stat));
          }
        }
        const double cellsOut[8] = {double(r), double(s), d, se, lo, hi, stat, p};
        for (int c = 0; c < 8; ++c) pairs->set(row, c + 1, cellsOut[c]);
      }
  }
  if (global != nullptr) {
    double chi2 = kMissing, df = kMissing, p = kMissing;
    if (haveVariance) {
      // Contrasts A_1 - A_{r+1}, r = 1..m-1, and their covariance L S L'.
      const int q = m - 1;
      matrix<double> LSL(static_cast<std::uint32_t>(q), static_cast<std::uint32_t>(q));
      matrix<double> inv(static_cast<std::uint32_t>(q), static_cast<std::uint32_t>(q));
      std::vector<double> la(static_cast<std::size_t>(q));
      for (int r = 0; r < q; ++r) {
        const std::size_t rr = static_cast<std::size_t>(r) + 1;
        la[static_cast<std::size_t>(r)] = comp[0].area - comp[rr].area;
        for (int s = 0; s < q; ++s) {
          const std::size_t ss = static_cast<std::size_t>(s) + 1;
          LSL.set(r + 1, s + 1, cov(0, 0) - cov(0, ss) - cov(rr, 0) + cov(rr, ss));
        }
      }
      short flag = 0;
      if (M_Inverse(&LSL, &inv, flag, 1e-12) == 0) {
        double x2 = 0.0;
        for (int r = 0; r < q; ++r)
          for (int s = 0; s < q; ++s)
            x2 += la[static_cast<std::size_t>(r)] * inv(r + 1, s + 1) *
                  la[static_cast<std::size_t>(s)];
        if (x2 >= 0.0 && std::isfinite(x2)) {
          chi2 = x2;
          df = q;
          p = pValChiSq(chi2, df);
        }
      }
    }
    global->set(1, chi2);
    global->set(2, df);
    global->set(3, p);
  }
  return 0;
}

}  // namespace velkor::roc
