// Forward selection and backward elimination of Cox model variables.
//
// A variable is a run of consecutive design columns (one for a quantitative covariate, one per
// non-reference level for a qualitative one); it enters and leaves the model as a whole, with as
// many degrees of freedom as it has columns.
//
// Forward: from the empty model (log-likelihood L0 at beta = 0), each candidate v is added in
// turn and its likelihood-ratio statistic -2 (Lcur - Lv) referred to chi-square(df_v); the
// smallest p-value strictly below the running best (starting at 1) enters when it is at most the
// threshold. A candidate with no gain (Lcur - Lv >= 0) gets p-value 0, which excludes it.
// Backward: from the full model, the variable with the largest p-value (Wald b' V^-1 b over its
// columns, or the likelihood-ratio statistic of the model without it) leaves unless that p-value
// is below the threshold or it is the last variable.
// Cost: one fit per candidate per step, O(V^2) fits in all for V variables.
#include <algorithm>
#include <cmath>
#include <limits>

#include "companion/distributions.h"
#include "companion/linalg.h"
#include "cox/cox.h"

namespace velkor::cox {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

std::vector<int> Union(const std::vector<std::vector<int>>& varCols, const std::vector<bool>& in) {
  std::vector<int> cols;
  for (std::size_t v = 0; v < varCols.size(); ++v)
    if (in[v]) cols.insert(cols.end(), varCols[v].begin(), varCols[v].end());
  std::sort(cols.begin(), cols.end());
  return cols;
}

void SetRow(SelectionResult& r, std::size_t nVars, int step, int col, double v) {
  const std::size_t row = static_cast<std::size_t>(step - 1);
  if (row < nVars) r.stepTable[static_cast<std::size_t>(col) * nVars + row] = v;
}

// Wald chi-square of variable v in a fit over `cols`: b' V^-1 b with V = -inv restricted to the
// variable's columns. A block that cannot be inverted gives NaN.
double WaldChiSquare(const FitResult& fit, const std::vector<int>& cols,
                     const std::vector<int>& var) {
  std::vector<std::size_t> pos;
  for (int c : var) {
    const auto it = std::find(cols.begin(), cols.end(), c);
    if (it == cols.end()) return kNaN;
    pos.push_back(static_cast<std::size_t>(it - cols.begin()));
  }
  const std::size_t q = cols.size(), k = pos.size();
  if (k == 1) {
    const double var1 = -fit.inv[pos[0] * q + pos[0]];
    const double b = fit.beta[pos[0]];
    return std::fabs(b * b / var1);
  }
  matrix<double> V(static_cast<std::uint32_t>(k), static_cast<std::uint32_t>(k));
  matrix<double> Vi(static_cast<std::uint32_t>(k), static_cast<std::uint32_t>(k));
  for (std::size_t a = 0; a < k; ++a)
    for (std::size_t b = 0; b < k; ++b) V.data[b * k + a] = -fit.inv[pos[b] * q + pos[a]];
  short flag = 0;
  if (M_Inverse(&V, &Vi, flag, 0.0) < 0) return kNaN;
  double chi = 0.0;
  for (std::size_t a = 0; a < k; ++a)
    for (std::size_t b = 0; b < k; ++b)
      chi += fit.beta[pos[a]] * Vi.data[b * k + a] * fit.beta[pos[b]];
  return std::fabs(chi);
}

}  // namespace

bool VariableColumns(const std::vector<int>& varCoefs, int p,
                     std::vector<std::vector<int>>& columns) {
  columns.clear();
  long long next = 0;
  for (int c : varCoefs) {
    if (c < 1 || next + c > p) return false;
    std::vector<int> v;
    for (int j = 0; j < c; ++j) v.push_back(static_cast<int>(next + j));
    next += c;
    columns.push_back(std::move(v));
  }
  return next == p && !columns.empty();
}

SelectionResult Forward(const ColumnFit& fit, const std::vector<int>& varCoefs, int p,
                        double threshold, double loglikNull) {
  SelectionResult r;
  std::vector<std::vector<int>> varCols;
  if (!VariableColumns(varCoefs, p, varCols)) {
    r.status = -1;
    return r;
  }
  const std::size_t nv = varCols.size();
  r.variableStep.assign(nv, 0);
  r.stepTable.assign(nv * 4, kNaN);
  std::vector<bool> in(nv, false);
  double lcur = loglikNull;
  for (;;) {
    double best = 1.0, bestStat = 0.0, bestLoglik = 0.0;
    int pick = -1;
    for (std::size_t v = 0; v < nv; ++v) {
      if (in[v]) continue;
      in[v] = true;
      const FitResult f = fit(Union(varCols, in));
      in[v] = false;
      if (f.status < 0) {
        r.status = -1;
        return r;
      }
      const double gain = lcur - f.loglik;
      const double stat = -2.0 * gain;
      const double pv = gain >= 0.0 ? 0.0 : pValChiSq(stat, static_cast<double>(varCols[v].size()));
      if (pv != 0.0 && pv < best) {
        best = pv;
        bestStat = stat;
        bestLoglik = f.loglik;
        pick = static_cast<int>(v);
      }
    }
    if (pick < 0 || best > threshold) break;
    in[static_cast<std::size_t>(pick)] = true;
    lcur = bestLoglik;
    ++r.steps;
    r.variableStep[static_cast<std::size_t>(pick)] = r.steps;
    SetRow(r, nv, r.steps, 0, static_cast<double>(std::count(in.begin(), in.end(), true)));
    SetRow(r, nv, r.steps, 1, bestStat);
    SetRow(r, nv, r.steps, 2, best);
    SetRow(r, nv, r.steps, 3, pick + 1);
  }
  r.columns = Union(varCols, in);
  if (r.columns.empty()) {
    // The empty model: its log-likelihood is the null one, no iteration.
    r.fit.loglik = r.fit.loglik0 = loglikNull;
  } else {
    r.fit = fit(r.columns);
    if (r.fit.status < 0) {
      r.status = -1;
      return r;
    }
  }
  r.status = r.steps;
  return r;
}

SelectionResult Backward(const ColumnFit& fit, const std::vector<int>& varCoefs, int p,
                         double threshold, int statistic) {
  SelectionResult r;
  std::vector<std::vector<int>> varCols;
  if (!VariableColumns(varCoefs, p, varCols)) {
    r.status = -1;
    return r;
  }
  const std::size_t nv = varCols.size();
  r.variableStep.assign(nv, 0);
  r.stepTable.assign(nv * 4, kNaN);
  std::vector<bool> in(nv, true);
  r.columns = Union(varCols, in);
  r.fit = fit(r.columns);
  if (r.fit.status < 0) {
    r.status = -1;
    return r;
  }
  for (int step = 1;; ++step) {
    const auto nin = std::count(in.begin(), in.end(), true);
    SetRow(r, nv, step, 0, static_cast<double>(nin));
    r.steps = step;
    double worst = -1.0, worstStat = 0.0;
    int pick = -1;
    for (std::size_t v = 0; v < nv; ++v) {
      if (!in[v]) continue;
      const double df = static_cast<double>(varCols[v].size());
      double stat;
      if (statistic == 0) {
        stat = WaldChiSquare(r.fit, r.columns, varCols[v]);
      } else {
        in[v] = false;
        const std::vector<int> cols = Union(varCols, in);
        in[v] = true;
        FitResult f;
        if (cols.empty()) {
          f.loglik = r.fit.loglik0;  // the empty model: the null log-likelihood
        } else {
          f = fit(cols);
          if (f.status < 0) {
            r.status = -1;
            return r;
          }
        }
        stat = -2.0 * (f.loglik - r.fit.loglik);
      }
      // A statistic that cannot be computed (a singular variance block) marks the variable as
      // the first to leave: its effect is not estimable in this model.
      const double pv = std::isfinite(stat) ? pValChiSq(stat, df) : 1.0;
      if (pv > worst) {
        worst = pv;
        worstStat = stat;
        pick = static_cast<int>(v);
      }
    }
    if (pick < 0 || worst < threshold || nin <= 1) break;
    SetRow(r, nv, step, 1, worstStat);
    SetRow(r, nv, step, 2, worst);
    SetRow(r, nv, step, 3, pick + 1);
    r.variableStep[static_cast<std::size_t>(pick)] = step;
    in[static_cast<std::size_t>(pick)] = false;
    r.columns = Union(varCols, in);
    r.fit = fit(r.columns);
    if (r.fit.status < 0) {
      r.status = -1;
      return r;
    }
  }
  r.status = r.steps;
  return r;
}

}  // namespace velkor::cox
