// The flat Cox regression run: preparation, fit or selection, criteria (and, later in the
// family, survival function and residuals).
#include <algorithm>
#include <cmath>
#include <memory>

#include "companion/linalg.h"
#include "companion/sorting.h"
#include "core/frame_memory.h"
#include "core/numeric.h"
#include "cox/cox.h"
#include "cox/post_fit.h"
#include "cox/run.h"

namespace velkor::cox {

TieTerms FlatTerms(int ties) {
  // Code 1 (Efron) truncates (j - 1) / d to 0 in integer arithmetic: the Breslow terms exactly.
  return (ties == 0 || ties == 1) ? TieTerms::BreslowCount : TieTerms::Nothing;
}

ColumnFit FlatColumnFit(const CoxProblem& prob, const double* rows, std::size_t n, int p,
                        int maxIter, double tol) {
  return [&prob, rows, n, p, maxIter, tol](const std::vector<int>& cols) {
    const int q = static_cast<int>(cols.size());
    if (q == p) return FitFlat(prob, rows, p, maxIter, tol);
    return FitFlat(prob, RowMajorColumns(rows, p, n, cols), q, maxIter, tol);
  };
}

double NullLogLik(const CoxProblem& prob, const double* rowMajor, std::size_t n, int p) {
  if (p < 1) return 0.0;
  const auto up = static_cast<std::size_t>(p);
  std::vector<double> zero(up, 0.0), g(up), h(up * up);
  double ll = 0.0;
  EvaluateRiskSets(*prob.layout, rowMajor, n, p, prob.w, zero.data(), prob.terms, ll, g.data(),
                   h.data(), rowMajor);
  return ll;
}

namespace {

// The rows in sorted order (order[r] = input row of sorted row r): time, status, event weights
// (weight x status; only with case weights, see the caller) and the column-major design X
// (leading dimension ldx, p columns) as rows of p values. Each source is read on its own (a
// random read of one column stays far better in cache than of all at once), and the design is
// filled in blocks of rows so that the p column passes over a block write to memory in cache.
void GatherSorted(const std::vector<std::uint32_t>& order, const double* time, const double* status,
                  const double* weight, const double* X, std::size_t ldx, std::size_t p, double* t,
                  double* s, double* ew, double* design) {
  const std::size_t n = order.size();
  const std::uint32_t* o = order.data();
  for (std::size_t r = 0; r < n; ++r) t[r] = time[o[r]];
  for (std::size_t r = 0; r < n; ++r) s[r] = status[o[r]];
  if (weight)
    for (std::size_t r = 0; r < n; ++r) ew[r] = weight[o[r]] * s[r];
  constexpr std::size_t kBlock = 4096;
  for (std::size_t r0 = 0; r0 < n; r0 += kBlock) {
    const std::size_t r1 = std::min(n, r0 + kBlock);
    for (std::size_t j = 0; j < p; ++j) {
      const double* col = X + j * ldx;
      for (std::size_t r = r0; r < r1; ++r) design[r * p + j] = col[o[r]];
    }
  }
}

}  // namespace

int cRunCoxReg(matrix<double>* time, matrix<double>* status, matrix<double>* weights,
               matrix<double>* X, matrix<double>* strata, matrix<double>* strataSizes, int n, int p,
               int m, int ties, int* maxIter, double tol, int selection, double threshold,
               int backStatistic, int nVars, matrix<int>* varCoefs, double alpha, short survRes,
               int survCols, matrix<double>* beta, matrix<double>* modelStats,
               matrix<double>* globalTests, matrix<double>* coefTable, double& z,
               matrix<double>* stepTable, matrix<int>* variableStep, int* nFinal,
               matrix<double>* baseSurvival, matrix<double>* rowSurvival,
               matrix<double>* meanSurvival, matrix<double>* residuals) {
  const std::size_t rows = n > 0 ? static_cast<std::size_t>(n) : 0;
  if (p < 0) p = 0;
  if (X->cols < static_cast<std::uint32_t>(p) || X->rows < rows) p = 0;

  const bool weighted = rows > 0 && weights->count >= rows;

  // Stratum sizes not given with several strata: counted from the keys (rows per distinct key in
  // ascending key order).
  matrix<double> counted(static_cast<std::uint32_t>(m > 1 ? m : 0), 1);
  if (m > 1 && strataSizes->count < static_cast<std::uint64_t>(m) && strata->count >= rows) {
    std::vector<double> keys(strata->data, strata->data + rows);
    std::sort(keys.begin(), keys.end());
    int s = -1;
    for (std::size_t i = 0; i < rows; ++i) {
      if (i == 0 || keys[i] != keys[i - 1]) ++s;
      if (s < m) counted.data[s] += 1.0;
    }
    strataSizes = &counted;
  }

  // Tables: strata x the largest stratum (the most distinct times a stratum can have).
  const int strataCount = m < 1 ? 1 : m;
  double largest = m <= 1 ? static_cast<double>(rows) : 0.0;
  for (int s = 0; m > 1 && s < m; ++s)
    largest =
        std::max(largest, s < static_cast<int>(strataSizes->count) ? strataSizes->data[s] : 0.0);
  const auto K = static_cast<std::uint32_t>(std::clamp(largest, 1.0, std::max(1.0, double(rows))));
  const auto um = static_cast<std::uint32_t>(strataCount);
  matrix<int> nTimes(um, 1), nCensored(um, 1);
  // Block tables without a fill: only their first nTimes entries per stratum are written and read.
  matrix<int> bStart(um, K, nullptr, 0), bSize(um, K, nullptr, 0), bEvents(um, K, nullptr, 0);
  matrix<double> sizesOne(1, 1);
  sizesOne.data[0] = static_cast<double>(rows);
  matrix<double>* sizes = m <= 1 ? &sizesOne : strataSizes;
  int maxTimes = 0;
  // The preparation of cReorganizeDataCox with the rows moved once: time and status in place,
  // and the covariates gathered straight into the design row by row in sorted order (the layout
  // the likelihood reads). Every row joins its tied block (no third column).
  std::vector<std::uint32_t> order;
  std::vector<std::size_t> first, size;
  const int prep = SortedRowOrder(time, n, status, strata, sizes, strataCount, order, first, size);
  if (prep != 0) return prep;
  // One gather in sorted order: time, status, the event weights (the case weight of an event
  // row, 0 for a censored row, so that censored rows never enter the event terms) and the design
  // row by row. Every element is written, so the buffers need no initial fill.
  const auto up = static_cast<std::size_t>(p);
  // The buffers come from the frame's block cache (memory already faulted in by an earlier call
  // is reused); each is written completely before it is read.
  using frame_memory::Block;
  Block sortedTime(rows * sizeof(double)), sortedStatus(rows * sizeof(double));
  // Without case weights the event weight 1 x status is the sorted status itself.
  Block ewBuf(weighted ? rows * sizeof(double) : 0);
  Block designBuf((rows * up + 1) * sizeof(double));
  auto* tBuf = static_cast<double*>(sortedTime.get());
  auto* sBuf = static_cast<double*>(sortedStatus.get());
  auto* eBuf = static_cast<double*>(ewBuf.get());
  auto* dBuf = static_cast<double*>(designBuf.get());
  GatherSorted(order, time->data, status->data, weighted ? weights->data : nullptr, X->data,
               X->rows, up, tBuf, sBuf, eBuf, dBuf);
  // The sorted time and status replace the caller's copies for everything that follows.
  matrix<double> timeSorted(static_cast<std::uint32_t>(rows), 1, tBuf, 1);
  matrix<double> statusSorted(static_cast<std::uint32_t>(rows), 1, sBuf, 1);
  time = &timeSorted;
  status = &statusSorted;
  const double* ew = weighted ? eBuf : sBuf;
  const double* design = dBuf;
  FillBlockTables(time, status, nullptr, first, size, &nTimes, &nCensored, &bStart, &bSize,
                  &bEvents, &maxTimes);
  const RiskLayout layout =
      LayoutFromTables(rows, strataCount, sizes, &nTimes, &bStart, &bSize, &bEvents);
  CoxProblem prob{&layout, ew, FlatTerms(ties)};
  const int limit = maxIter ? *maxIter : 1;

  // Variables: nVars runs of varCoefs columns, or one variable per column.
  std::vector<int> coefs;
  if (nVars > 0) {
    for (int v = 0; v < nVars; ++v)
      coefs.push_back(v < static_cast<int>(varCoefs->count) ? varCoefs->data[v] : 0);
  } else {
    coefs.assign(static_cast<std::size_t>(p), 1);
  }
  const ColumnFit fit = FlatColumnFit(prob, design, rows, p, limit, tol);

  SelectionResult sel;
  if (selection == 0 || selection == 1) {
    sel = selection == 0 ? Forward(fit, coefs, p, threshold, NullLogLik(prob, design, rows, p))
                         : Backward(fit, coefs, p, threshold, backStatistic);
    if (sel.status < 0) return -5;
  } else {
    for (int j = 0; j < p; ++j) sel.columns.push_back(j);
    sel.fit = FitFlat(prob, design, p, limit, tol);
    sel.variableStep.assign(coefs.size(), 0);
  }

  // Criteria of the final model, placed into the full-design tables.
  const FitResult& f = sel.fit;
  const int q = static_cast<int>(sel.columns.size());
  const auto uq = static_cast<std::size_t>(q);
  std::vector<double> stats(12), tests(9), coefCompact(uq * 9 + 1);
  Criteria(n, q, nCensored.data[0], f.loglik, f.loglik0, f.iterations, alpha, f.beta.data(),
           f.hess.data(), f.inv.data(), z, stats.data(), f.grad0.data(), f.inv0.data(),
           coefCompact.data(), uq, tests.data());
  for (int k = 0; k < 12; ++k) modelStats->set(k + 1, stats[static_cast<std::size_t>(k)]);
  for (int k = 0; k < 9; ++k) globalTests->set(k + 1, tests[static_cast<std::size_t>(k)]);
  std::vector<int> varOfCol(static_cast<std::size_t>(p), 0);
  {
    std::vector<std::vector<int>> vc;
    if (VariableColumns(coefs, p, vc))
      for (std::size_t v = 0; v < vc.size(); ++v)
        for (int c : vc[v]) varOfCol[static_cast<std::size_t>(c)] = static_cast<int>(v);
  }
  std::vector<double> row(9), finalBeta(up, 0.0);
  for (int j = 0; j < p; ++j) {
    const auto pos = std::find(sel.columns.begin(), sel.columns.end(), j);
    const bool in = pos != sel.columns.end();
    if (in) {
      const auto k = static_cast<std::size_t>(pos - sel.columns.begin());
      for (std::size_t c = 0; c < 7; ++c) row[c] = coefCompact[c * uq + k];
    } else {
      CriteriaDroppedRow(row.data(), 1, 0);
    }
    row[7] = in ? 1.0 : 0.0;
    const auto v = static_cast<std::size_t>(varOfCol[static_cast<std::size_t>(j)]);
    row[8] = v < sel.variableStep.size() ? sel.variableStep[v] : 0.0;
    for (int c = 0; c < 9; ++c) coefTable->set(j + 1, c + 1, row[static_cast<std::size_t>(c)]);
    beta->set(j + 1, row[0]);
    finalBeta[static_cast<std::size_t>(j)] = row[0];
  }

  // Selection outputs: the rows of the step table that were written, the step of each variable.
  const auto nv = coefs.size();
  for (std::size_t r = 0; r < nv && !sel.stepTable.empty(); ++r)
    for (std::size_t c = 0; c < 4; ++c) {
      const double v = sel.stepTable[c * nv + r];
      if (!std::isnan(v)) stepTable->set(static_cast<int>(r) + 1, static_cast<int>(c) + 1, v);
    }
  for (std::size_t v = 0; v < sel.variableStep.size(); ++v)
    variableStep->set(static_cast<int>(v) + 1, sel.variableStep[v]);
  if (nFinal) {
    int count = 0;
    std::vector<bool> seen(nv, false);
    for (int c : sel.columns) {
      const auto v = static_cast<std::size_t>(varOfCol[static_cast<std::size_t>(c)]);
      if (v < nv && !seen[v]) {
        seen[v] = true;
        ++count;
      }
    }
    *nFinal = count;
  }
  if (maxIter) *maxIter = f.iterations;

  // Survival function and residuals at the final coefficients (0 for columns left out).
  if (survRes == -1) {
    std::vector<double> xMean(up, 0.0);
    for (std::size_t i = 0; i < rows; ++i)
      for (std::size_t j = 0; j < up; ++j) xMean[j] += design[i * up + j];
    for (std::size_t j = 0; j < up; ++j) xMean[j] /= static_cast<double>(rows);
    PostFitOutputs(layout, design, p, finalBeta.data(), xMean.data(), time->data, status->data,
                   survCols, baseSurvival, rowSurvival, meanSurvival, residuals);
  }
  return 0;
}

}  // namespace velkor::cox
