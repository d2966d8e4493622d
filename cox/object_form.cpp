// The object (_ST) form of the Cox regression: preparation from a data set with qualitative
// variables, centred fits with the true Efron correction and weighted event terms, criteria and
// selection into cCOX_Results.
#include <algorithm>
#include <cmath>
#include <map>
#include <memory>

#include "core/numeric.h"
#include "cox/run.h"
#include "cox/scratch.h"

namespace velkor::cox {
namespace {

bool Present(double v) {
  return !std::isnan(v) && !IsMissing(v);
}

// The listed design columns, each centred on its mean over the rows, stored row by row (n x q)
// or, with columnMajor, column by column.
// The copy comes from the frame's block cache (memory of an earlier call reused) and is written
// completely, so it gets no initial fill.
FilledLaterVector<double> CentredColumns(const cCOX_Results& res, const std::vector<int>& cols,
                                         bool columnMajor = false) {
  const auto n = static_cast<std::size_t>(res.n);
  const std::size_t q = cols.size();
  FilledLaterVector<double> x(n * q);
  std::vector<double> mean(q, 0.0);
  for (std::size_t j = 0; j < q; ++j) mean[j] = ColumnMean(res, cols[j]);
  if (columnMajor) {
    for (std::size_t j = 0; j < q; ++j) {
      const double* src = res.design.data + static_cast<std::size_t>(cols[j]) * n;
      for (std::size_t i = 0; i < n; ++i) x[j * n + i] = src[i] - mean[j];
    }
    return x;
  }
  // Row by row, in blocks of rows: the q column passes over a block write to memory in cache.
  constexpr std::size_t kBlock = 4096;
  for (std::size_t i0 = 0; i0 < n; i0 += kBlock) {
    const std::size_t i1 = std::min(n, i0 + kBlock);
    for (std::size_t j = 0; j < q; ++j) {
      const double* src = res.design.data + static_cast<std::size_t>(cols[j]) * n;
      for (std::size_t i = i0; i < i1; ++i) x[i * q + j] = src[i] - mean[j];
    }
  }
  return x;
}

std::vector<int> AllColumns(int p) {
  std::vector<int> c(static_cast<std::size_t>(p < 0 ? 0 : p));
  for (std::size_t j = 0; j < c.size(); ++j) c[j] = static_cast<int>(j);
  return c;
}

FitResult FitColumns(COX_Param& param, cCOX_Results& res, const RiskLayout& layout,
                     const std::vector<int>& cols) {
  CoxProblem prob{&layout, res.eventWeights.data, ObjectTerms(param.ties)};
  const double lim = param.maxIterations;
  const int limit = std::isfinite(lim) && lim < 2147483647.0 ? static_cast<int>(lim) : 2147483647;
  return FitObject(prob, CentredColumns(res, cols).data(), static_cast<int>(cols.size()), limit,
                   param.tolerance);
}

// Stores a fit of the columns `cols` as the final model of res.
void StoreFit(COX_Param& param, cCOX_Results& res, const FitResult& f,
              const std::vector<int>& cols) {
  AssignValues(res.beta, f.beta);
  AssignValues(res.se, f.se);
  AssignValues(res.gradient, f.grad);
  AssignValues(res.hessian, f.hess);
  AssignValues(res.inverse, f.inv);
  AssignValues(res.initGradient, f.grad0);
  AssignValues(res.initInverse, f.inv0);
  res.logLik = f.loglik;
  res.logLik0 = f.loglik0;
  res.iterations = f.iterations;
  param.maxIterations = f.iterations;
  res.notConverged = (f.notConverged && res.reportConvergence == -1) ? 1.0 : 0.0;
  res.zeroCoefficient = 0.0;
  for (double b : f.beta)
    if (b == 0.0) res.zeroCoefficient = 1.0;
  res.inModel.resize(static_cast<std::uint32_t>(res.p), 0);
  for (int c : cols) res.inModel.setElement(static_cast<std::uint32_t>(c), 1);
  if (res.means.count != static_cast<std::uint32_t>(res.p)) {
    std::vector<double> means(static_cast<std::size_t>(res.p < 0 ? 0 : res.p));
    for (int j = 0; j < res.p; ++j) means[static_cast<std::size_t>(j)] = ColumnMean(res, j);
    AssignValues(res.means, means);
  }
}

std::vector<int> VariableCoefs(const cCOX_Results& res) {
  return std::vector<int>(res.variableCoefs.data, res.variableCoefs.data + res.variableCoefs.count);
}

}  // namespace

double ColumnMean(const cCOX_Results& res, int j) {
  const auto n = static_cast<std::size_t>(res.n < 0 ? 0 : res.n);
  if (j < 0 || j >= res.p || n == 0) return 0.0;
  if (res.means.count == static_cast<std::uint32_t>(res.p)) return res.means.data[j];
  const std::size_t off = static_cast<std::size_t>(j) * n;
  if (off + n > res.design.count) return 0.0;
  double s = 0.0;
  for (std::size_t i = 0; i < n; ++i) s += res.design.data[off + i];
  return s / static_cast<double>(n);
}

TieTerms ObjectTerms(int ties) {
  return ties == 1 ? TieTerms::EfronWeighted
                   : (ties == 0 ? TieTerms::BreslowWeighted : TieTerms::Nothing);
}

RiskLayout ObjectLayout(cCOX_Results& res) {
  const int K = res.maxTimes;
  const int m = res.nStrata;
  auto cell = [&](const VectI& t, int s, int k) {
    const long long idx = static_cast<long long>(k) * m + s;
    return idx >= 0 && idx < static_cast<long long>(t.count) ? t.data[idx] : 0;
  };
  return MakeRiskLayout(
      static_cast<std::size_t>(res.n), m,
      [&](int s) {
        return s < static_cast<int>(res.strataSizes.count) ? res.strataSizes.data[s] : 0.0;
      },
      [&](int s) { return s < static_cast<int>(res.nTimes.count) ? res.nTimes.data[s] : 0; },
      [&](int s, int k) { return cell(res.blockStart, s, k); },
      [&](int s, int k) { return cell(res.blockSize, s, k); },
      [&](int s, int k) { return cell(res.blockEvents, s, k); }, K);
}

int ReorganizeDataCox_ST(cST_DataSet& data, COX_Param& param, cCOX_Results& res,
                         cST_FactorsInfo& factors) {
  {
    const std::int16_t suppress = res.suppressSurvival, report = res.reportConvergence;
    res = cCOX_Results{};
    res.suppressSurvival = suppress;
    res.reportConvergence = report;
  }
  const std::size_t n0 = data.rows();
  auto column = [&](int idx) -> const VectD* {
    if (idx < 0 || idx >= static_cast<int>(data.columns.size()) || !data.columns[idx])
      return nullptr;
    return data.columns[static_cast<std::size_t>(idx)]->count >= n0 ? data.columns[idx].get()
                                                                    : nullptr;
  };
  const VectD* time = column(param.timeColumn);
  const VectD* status = column(param.statusColumn);
  const VectD* weight = param.weightColumn >= 0 ? column(param.weightColumn) : nullptr;
  const VectD* strata = param.strataColumn >= 0 ? column(param.strataColumn) : nullptr;
  if (!time || !status || (param.weightColumn >= 0 && !weight) ||
      (param.strataColumn >= 0 && !strata))
    return -2;

  // Design columns: quantitative covariates, then the indicators of each qualitative variable
  // (every level but the first, the reference).
  std::vector<const VectD*> quant;
  std::vector<std::u16string> names;
  std::vector<int> designVar, varCoefs;
  int varNo = 0;
  for (int idx : factors.quantitative) {
    const VectD* c = column(idx);
    if (!c) return -2;
    quant.push_back(c);
    names.push_back(idx < static_cast<int>(data.names.size())
                        ? data.names[static_cast<std::size_t>(idx)]
                        : u"");
    designVar.push_back(varNo++);
    varCoefs.push_back(1);
  }
  struct Quali {
    const cST_QualiInfo* info;
    std::map<std::u16string, int> level;
  };
  std::vector<Quali> qualis;
  for (int idx : factors.qualitative) {
    if (idx < 0 || idx >= static_cast<int>(data.qualitative.size())) return -2;
    const cST_QualiInfo& qi = data.qualitative[static_cast<std::size_t>(idx)];
    if (!qi.values || qi.values->count < n0) return -2;
    std::vector<std::u16string> levels = qi.levels;
    if (levels.empty()) {
      levels.assign(qi.values->data, qi.values->data + n0);
      std::sort(levels.begin(), levels.end());
      levels.erase(std::unique(levels.begin(), levels.end()), levels.end());
      levels.erase(std::remove(levels.begin(), levels.end(), std::u16string()), levels.end());
    }
    Quali q{&qi, {}};
    for (std::size_t l = 0; l < levels.size(); ++l) q.level.emplace(levels[l], static_cast<int>(l));
    qualis.push_back(q);
    if (levels.size() < 2) continue;  // a single level codes no column
    for (std::size_t l = 1; l < levels.size(); ++l) {
      names.push_back(qi.name + u"=" + levels[l]);
      designVar.push_back(varNo);
    }
    varCoefs.push_back(static_cast<int>(levels.size()) - 1);
    ++varNo;
  }
  const int p = static_cast<int>(names.size());

  // Complete rows; a present status outside [0, 1] is an error. `keep` lists the complete rows
  // only when some row is left out; otherwise every row is used as it stands.
  std::vector<std::size_t> keep;
  bool allRows = true;
  for (std::size_t i = 0; i < n0; ++i) {
    const double s = status->data[i];
    if (Present(s) && !(s >= 0.0 && s <= 1.0)) return -1;
    bool ok = Present(time->data[i]) && Present(s);
    if (weight) ok = ok && Present(weight->data[i]);
    if (strata) ok = ok && Present(strata->data[i]);
    for (const VectD* c : quant) ok = ok && Present(c->data[i]);
    for (const Quali& q : qualis) ok = ok && q.level.count(q.info->values->data[i]) > 0;
    if (!ok && allRows) {
      allRows = false;
      keep.reserve(n0);
      for (std::size_t k = 0; k < i; ++k) keep.push_back(k);
    }
    if (ok && !allRows) keep.push_back(i);
  }
  const auto n = static_cast<std::uint32_t>(allRows ? n0 : keep.size());

  // The shared preparation orders the complete rows by stratum key then time (SortedRowOrder,
  // the order cReorganizeDataCox applies), the block tables are read off the sorted time and
  // status (FillBlockTables), and every per-row vector and design column is gathered once in
  // sorted order. SortedRowOrder only reads time, status and key: with every row complete they
  // are the data set's own columns, otherwise copies of the complete rows. Buffers that are
  // written completely get no initial fill.
  const auto up = static_cast<std::uint32_t>(p);
  std::unique_ptr<double[]> tCopy, sCopy, kCopy;
  double* tSrc = time->data;
  double* sSrc = status->data;
  double* kSrc = strata ? strata->data : nullptr;
  if (!allRows) {
    tCopy.reset(new double[n + 1]);
    sCopy.reset(new double[n + 1]);
    for (std::uint32_t r = 0; r < n; ++r) tCopy[r] = time->data[keep[r]];
    for (std::uint32_t r = 0; r < n; ++r) sCopy[r] = status->data[keep[r]];
    tSrc = tCopy.get();
    sSrc = sCopy.get();
    if (strata) {
      kCopy.reset(new double[n + 1]);
      for (std::uint32_t r = 0; r < n; ++r) kCopy[r] = strata->data[keep[r]];
      kSrc = kCopy.get();
    }
  }
  // Without strata the key is never read (one stratum) and every row's key is 0.
  matrix<double> t(n, 1, tSrc, 1), st(n, 1, sSrc, 1), key(kSrc ? n : 0, 1, kSrc, 1);
  // Strata: distinct keys in ascending order and their row counts.
  std::vector<double> sizes;
  if (strata) {
    std::vector<double> keys(key.data, key.data + n);
    std::sort(keys.begin(), keys.end());
    for (std::size_t i = 0; i < keys.size(); ++i) {
      if (i == 0 || keys[i] != keys[i - 1]) sizes.push_back(0.0);
      sizes.back() += 1.0;
    }
  } else if (n > 0) {
    sizes.push_back(static_cast<double>(n));
  }
  const int m = sizes.empty() ? 1 : static_cast<int>(sizes.size());
  if (sizes.empty()) sizes.push_back(0.0);
  const double largest = *std::max_element(sizes.begin(), sizes.end());
  const auto K = static_cast<std::uint32_t>(std::max(1.0, largest));
  matrix<double> sizeM(static_cast<std::uint32_t>(m), 1, sizes.data(), 0);
  const auto um = static_cast<std::uint32_t>(m);
  // Block tables without a fill: only their first nTimes entries per stratum are written and read.
  matrix<int> nTimes(um, 1), nCens(um, 1), bStart(um, K, nullptr, 0), bSize(um, K, nullptr, 0),
      bEvents(um, K, nullptr, 0);
  int maxTimes = 0;
  std::vector<std::uint32_t> order;
  std::vector<std::size_t> first, size;
  const int rc = SortedRowOrder(&t, static_cast<int>(n), &st, &key, &sizeM, m, order, first, size);
  if (rc != 0) return rc;

  res.n = static_cast<int>(n);
  res.p = p;
  res.nStrata = m;
  ResizeFilledLater(res.time, n);
  ResizeFilledLater(res.status, n);
  ResizeFilledLater(res.rowIndex, n);
  ResizeFilledLater(res.weights, n);
  ResizeFilledLater(res.eventWeights, n);
  // One vector per loop: each loop reads a single source in random order, which keeps that
  // source in cache far better than reading all of them row by row.
  const std::uint32_t* o = order.data();
  for (std::uint32_t r = 0; r < n; ++r) res.time.data[r] = tSrc[o[r]];
  for (std::uint32_t r = 0; r < n; ++r) res.status.data[r] = sSrc[o[r]];
  if (kSrc) {
    ResizeFilledLater(res.strataKey, n);
    for (std::uint32_t r = 0; r < n; ++r) res.strataKey.data[r] = kSrc[o[r]];
  } else {
    res.strataKey.resize(n, 0.0);  // one stratum: every key 0
  }
  if (allRows) {
    for (std::uint32_t r = 0; r < n; ++r) res.rowIndex.data[r] = static_cast<int>(o[r]);
  } else {
    for (std::uint32_t r = 0; r < n; ++r) res.rowIndex.data[r] = static_cast<int>(keep[o[r]]);
  }
  if (weight) {
    for (std::uint32_t r = 0; r < n; ++r)
      res.weights.data[r] = weight->data[static_cast<std::size_t>(res.rowIndex.data[r])];
  } else {
    for (std::uint32_t r = 0; r < n; ++r) res.weights.data[r] = 1.0;
  }
  for (std::uint32_t r = 0; r < n; ++r)
    res.eventWeights.data[r] = res.weights.data[r] * res.status.data[r];
  {
    matrix<double> tSorted(n, 1, res.time.data, 1), sSorted(n, 1, res.status.data, 1);
    FillBlockTables(&tSorted, &sSorted, nullptr, first, size, &nTimes, &nCens, &bStart, &bSize,
                    &bEvents, &maxTimes);
  }
  // Cells past a stratum's own number of times (strata with fewer distinct times than the
  // largest) were never written: they are reported as 0, not as whatever the memory held.
  for (std::uint32_t s = 0; s < um; ++s)
    for (int k = std::max(0, nTimes.data[s]); k < maxTimes; ++k) {
      const std::size_t cell = static_cast<std::size_t>(k) * um + s;
      bStart.data[cell] = 0;
      bSize.data[cell] = 0;
      bEvents.data[cell] = 0;
    }
  AssignValues(res.strataSizes, sizes.data(), um);
  // The design, column by column in sorted order (each column's reads stay within one source
  // column).
  // The column means over the n rows are summed as the columns are written (the same order of
  // summation as a pass over each column), for the fit's centring and the later steps.
  ResizeFilledLater(res.design, n * up);
  std::vector<double> sums(up, 0.0);
  {
    double* out = res.design.data;
    const int* rowIndex = res.rowIndex.data;
    std::size_t j = 0;
    for (const VectD* c : quant) {
      double* col = out + j * n;
      const double* src = c->data;
      double s = 0.0;
      for (std::uint32_t r = 0; r < n; ++r) {
        const double v = src[rowIndex[r]];
        col[r] = v;
        s += v;
      }
      sums[j++] = s;
    }
    for (const Quali& q : qualis) {
      const auto levels = q.level.size();
      if (levels < 2) continue;
      for (std::uint32_t r = 0; r < n; ++r) {
        const int lev = q.level.at(q.info->values->data[rowIndex[r]]);
        for (std::size_t l = 1; l < levels; ++l)
          out[(j + l - 1) * n + r] = static_cast<int>(l) == lev ? 1.0 : 0.0;
      }
      for (std::size_t l = 1; l < levels; ++l, ++j) {
        const double* col = out + j * n;
        double sum = 0.0;
        for (std::uint32_t r = 0; r < n; ++r) sum += col[r];
        sums[j] = sum;
      }
    }
  }
  if (n > 0) {
    for (double& v : sums) v /= static_cast<double>(n);
    AssignValues(res.means, sums);
  }
  AssignValues(res.designNames, names.data(), up);
  AssignValues(res.designVariable, designVar.data(), up);
  AssignValues(res.variableCoefs, varCoefs);
  res.maxTimes = maxTimes;
  AssignValues(res.nTimes, nTimes.data, um);
  AssignValues(res.nCensored, nCens.data, um);
  const std::size_t cells = static_cast<std::size_t>(um) * static_cast<std::size_t>(maxTimes);
  AssignValues(res.blockStart, bStart.data, static_cast<std::uint32_t>(cells));
  AssignValues(res.blockSize, bSize.data, static_cast<std::uint32_t>(cells));
  AssignValues(res.blockEvents, bEvents.data, static_cast<std::uint32_t>(cells));
  factors.designNames = names;
  factors.designVariable = designVar;
  return 0;
}

int ComputeLogLikeDerivativesCox_ST(const VectD& beta, const std::vector<int>& columns,
                                    COX_Param& param, cCOX_Results& res, double& loglik,
                                    VectD& grad, VectD& hess) {
  if (res.n < 1 || res.design.count < static_cast<std::size_t>(res.n) * res.p) return -1;
  std::vector<int> cols = columns.empty() ? AllColumns(res.p) : columns;
  for (int c : cols)
    if (c < 0 || c >= res.p) return -1;
  const RiskLayout layout = ObjectLayout(res);
  const FilledLaterVector<double> x = CentredColumns(res, cols, true);
  const auto q = cols.size();
  std::vector<double> b(q, 0.0), g(q), h(q * q);
  for (std::size_t j = 0; j < q && j < beta.count; ++j) b[j] = beta.data[j];
  EvaluateRiskSets(layout, x.data(), static_cast<std::size_t>(res.n), static_cast<int>(q),
                   res.eventWeights.data, b.data(), ObjectTerms(param.ties), loglik, g.data(),
                   h.data());
  AssignValues(grad, g);
  AssignValues(hess, h);
  return 0;
}

int OptimizeCoxModel_ST(COX_Param& param, cCOX_Results& res, const std::vector<int>& columns) {
  if (res.n < 1) return -1;
  const std::vector<int> cols = columns.empty() ? AllColumns(res.p) : columns;
  const RiskLayout layout = ObjectLayout(res);
  const FitResult f = FitColumns(param, res, layout, cols);
  if (f.status < 0) return -1;
  StoreFit(param, res, f, cols);
  return 0;
}

int ComputeCritCox_ST(COX_Param& param, cCOX_Results& res) {
  const int p = res.p;
  const auto up = static_cast<std::size_t>(p);
  std::vector<int> cols;
  for (std::size_t j = 0; j < up; ++j)
    if (j < res.inModel.count && res.inModel.data[j] == 1) cols.push_back(static_cast<int>(j));
  const auto q = cols.size();
  if (res.beta.count != q || res.inverse.count != q * q) return -1;
  std::vector<double> stats(12), tests(9), coef(q * 9 + 1);
  const int censoredFirst = res.nCensored.count > 0 ? res.nCensored.data[0] : 0;
  Criteria(res.n, static_cast<int>(q), censoredFirst, res.logLik, res.logLik0,
           static_cast<int>(res.iterations), param.alpha, res.beta.data, res.hessian.data,
           res.inverse.data, res.z, stats.data(), res.initGradient.data, res.initInverse.data,
           coef.data(), q, tests.data());
  AssignValues(res.modelStats, stats);
  AssignValues(res.globalTests, tests);
  res.coefTable.resize(static_cast<std::uint32_t>(up * 9), 0.0);
  std::vector<std::vector<int>> varCols;
  std::vector<int> varOfCol(up, -1);
  if (VariableColumns(VariableCoefs(res), p, varCols))
    for (std::size_t v = 0; v < varCols.size(); ++v)
      for (int c : varCols[v]) varOfCol[static_cast<std::size_t>(c)] = static_cast<int>(v);
  for (std::size_t j = 0; j < up; ++j) {
    const auto pos = std::find(cols.begin(), cols.end(), static_cast<int>(j));
    double* cell = res.coefTable.data;
    if (pos != cols.end()) {
      const auto k = static_cast<std::size_t>(pos - cols.begin());
      for (std::size_t c = 0; c < 7; ++c) cell[c * up + j] = coef[c * q + k];
    } else {
      CriteriaDroppedRow(cell, up, j);
    }
    cell[7 * up + j] = pos != cols.end() ? 1.0 : 0.0;
    const int v = varOfCol[j];
    cell[8 * up + j] = (v >= 0 && static_cast<std::uint32_t>(v) < res.variableStep.count)
                           ? res.variableStep.data[v]
                           : 0.0;
  }
  return 0;
}

namespace {

int Select(COX_Param& param, cCOX_Results& res, bool forward) {
  if (res.n < 1) return -1;
  const RiskLayout layout = ObjectLayout(res);
  const double limit = param.maxIterations;
  const ColumnFit fit = [&](const std::vector<int>& cols) {
    param.maxIterations = limit;  // every candidate fit gets the caller's limit
    return FitColumns(param, res, layout, cols);
  };
  SelectionResult sel;
  if (forward) {
    const std::vector<int> all = AllColumns(res.p);
    const FilledLaterVector<double> x = CentredColumns(res, all);
    CoxProblem prob{&layout, res.eventWeights.data, ObjectTerms(param.ties)};
    sel = Forward(fit, VariableCoefs(res), res.p, param.entryThreshold,
                  NullLogLik(prob, x.data(), static_cast<std::size_t>(res.n), res.p));
  } else {
    sel = Backward(fit, VariableCoefs(res), res.p, param.removalThreshold, param.backwardStatistic);
  }
  param.maxIterations = limit;
  if (sel.status < 0) return -1;
  StoreFit(param, res, sel.fit, sel.columns);
  AssignValues(res.stepTable, sel.stepTable);
  for (std::uint32_t k = 0; k < res.stepTable.count; ++k)
    if (std::isnan(res.stepTable.data[k])) res.stepTable.data[k] = kMissing;
  AssignValues(res.variableStep, sel.variableStep);
  res.steps = sel.steps;
  return sel.status;
}

}  // namespace

int Cox_ForSelection_ST(COX_Param& param, cCOX_Results& res) {
  return Select(param, res, true);
}

int Cox_BackSelection_ST(COX_Param& param, cCOX_Results& res) {
  return Select(param, res, false);
}

int COX_RunCoxReg_ST(cST_DataSet& data, COX_Param& param, cCOX_Results& res,
                     cST_FactorsInfo& factors, VELKORInfo& info) {
  const int prep = cox::ReorganizeDataCox_ST(data, param, res, factors);
  if (prep != 0) return prep;
  int rc = 0;
  switch (param.selection) {
    case -1:
      rc = cox::OptimizeCoxModel_ST(param, res, {});
      break;
    case 1:
      rc = cox::Cox_BackSelection_ST(param, res);
      break;
    case 0:
      rc = cox::Cox_ForSelection_ST(param, res);
      break;
    default:
      return 0;  // no fit requested: the prepared data only
  }
  if (rc < 0) return -5;
  if (res.variableStep.count == 0) res.variableStep.resize(res.variableCoefs.count, 0);
  cox::ComputeCritCox_ST(param, res);
  // Quality indices of the fitted model; then, unless suppressed, the survival function, residuals
  // and the proportional-hazards test; then the validation the parameters ask for.
  cox::ComputeCVTable_ST(param, res);
  if (res.suppressSurvival != -1) {
    cox::SurvFoncCox_ST(param, res);
    cox::ResCox_ST(param, res);
    if (param.proportionalityTest == -1) cox::Cox_ProportionalityTest_ST(param, res);
  }
  if (param.cvFolds >= 2) cox::CoxCV_ST(param, res, info);
  if (param.bootstrapSamples >= 1) cox::ComputeBootOut_ST(param, res, info);
  return 0;
}

}  // namespace velkor::cox
