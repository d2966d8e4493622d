// Object (_ST) entry points of the Cox regression and the C++ workers exported under their own
// names. Each is a guarded call: no exception crosses the library boundary.
#include <algorithm>
#include <vector>

#include "core/frame.h"
#include "core/numeric.h"
#include "cox/post_fit.h"
#include "cox/run.h"
#include "velkor/cox_objects.h"

namespace {

using velkor::cox::CoxProblem;
using velkor::cox::FitResult;
using velkor::cox::RiskLayout;

// Copies of the first `count` entries of a container (missing entries read as 0), so that the
// workers below never read outside what the caller built.
std::vector<double> Values(const matrix<double>* m, std::size_t count) {
  std::vector<double> v(count, 0.0);
  if (m && m->data)
    for (std::size_t k = 0; k < count && k < m->count; ++k) v[k] = m->data[k];
  return v;
}

void Put(matrix<double>* m, const std::vector<double>& v) {
  if (!m) return;
  for (std::size_t k = 0; k < v.size(); ++k) m->set(static_cast<int>(k) + 1, v[k]);
}

// p x p block of a container addressed as (i, j), copied column-major.
std::vector<double> Square(matrix<double>* m, int p) {
  const auto up = static_cast<std::size_t>(p < 0 ? 0 : p);
  std::vector<double> v(up * up, 0.0);
  if (!m) return v;
  for (std::size_t j = 0; j < up; ++j)
    for (std::size_t i = 0; i < up; ++i) v[j * up + i] = m->at0(i, j);
  return v;
}

void PutSquare(matrix<double>* m, const std::vector<double>& v, int p) {
  if (!m) return;
  for (int j = 0; j < p; ++j)
    for (int i = 0; i < p; ++i)
      m->set(i + 1, j + 1, v[static_cast<std::size_t>(j) * static_cast<std::size_t>(p) + i]);
}

// The flat problem shared by the exported workers: validated layout and event weights.
struct FlatProblem {
  std::size_t n = 0;
  int p = 0;
  RiskLayout layout;
  std::vector<double> w, x;
  CoxProblem prob;

  FlatProblem(int np, matrix<double>* weights, matrix<double>* X, int ties, matrix<int>* nTimes,
              matrix<int>* blockSize, matrix<int>* blockStart, int nStrata,
              matrix<double>* strataSizes, matrix<int>* blockEvents) {
    n = X ? X->rows : 0;
    p = std::max(0, std::min<int>(np, X ? static_cast<int>(X->cols) : 0));
    w = Values(weights, n);
    x = Values(X, n * static_cast<std::size_t>(p));
    layout = velkor::cox::LayoutFromTables(n, nStrata, strataSizes, nTimes, blockStart, blockSize,
                                           blockEvents);
    prob = CoxProblem{&layout, w.data(), velkor::cox::FlatTerms(ties)};
  }
};

void PutFit(const FitResult& f, int q, matrix<double>* beta, double& loglik, double& loglik0,
            matrix<double>* grad, matrix<double>* hess, matrix<double>* inv, matrix<double>* grad0,
            matrix<double>* inv0) {
  Put(beta, f.beta);
  Put(grad, f.grad);
  Put(grad0, f.grad0);
  PutSquare(hess, f.hess, q);
  PutSquare(inv, f.inv, q);
  PutSquare(inv0, f.inv0, q);
  loglik = f.loglik;
  loglik0 = f.loglik0;
}

}  // namespace

VELKOR_API void ComputeLogLikeDerivativesCox(int p, matrix<double>* w, matrix<double>* X, int ties,
                                             matrix<double>* beta, matrix<int>* nTimes,
                                             matrix<int>* blockSize, matrix<int>* blockStart,
                                             int nStrata, matrix<double>* strataSizes,
                                             matrix<int>* blockEvents, double& loglik,
                                             matrix<double>* grad, matrix<double>* hess) {
  velkor::guarded_call([&] {
    FlatProblem fp(p, w, X, ties, nTimes, blockSize, blockStart, nStrata, strataSizes, blockEvents);
    const auto up = static_cast<std::size_t>(fp.p);
    const std::vector<double> b = Values(beta, up);
    std::vector<double> g(up), h(up * up);
    loglik = 0.0;
    velkor::cox::EvaluateRiskSets(fp.layout, fp.x.data(), fp.n, fp.p, fp.w.data(), b.data(),
                                  fp.prob.terms, loglik, g.data(), h.data());
    Put(grad, g);
    PutSquare(hess, h, fp.p);
    return 0;
  });
}

VELKOR_API int OptimizeCoxModel(int p, matrix<double>* w, matrix<double>* X, int ties,
                                matrix<double>* beta, matrix<int>* nTimes, matrix<int>* blockSize,
                                matrix<int>* blockStart, int nStrata, matrix<double>* strataSizes,
                                matrix<int>* blockEvents, int* maxIter, double tol, double& loglik,
                                double& loglik0, matrix<double>* grad, matrix<double>* hess,
                                matrix<double>* inv, matrix<double>* grad0, matrix<double>* inv0) {
  return velkor::guarded_call([&] {
    FlatProblem fp(p, w, X, ties, nTimes, blockSize, blockStart, nStrata, strataSizes, blockEvents);
    const FitResult f =
        velkor::cox::FitFlat(fp.prob, velkor::cox::RowMajorCopy(fp.x.data(), fp.n, fp.n, fp.p),
                             fp.p, maxIter ? *maxIter : 1, tol);
    PutFit(f, fp.p, beta, loglik, loglik0, grad, hess, inv, grad0, inv0);
    if (maxIter) *maxIter = f.iterations;
    return 0;
  });
}

VELKOR_API int ComputeCritCox(int n, int p, matrix<int>* nCensored, double loglik, double loglik0,
                              int iterations, double alpha, matrix<double>* beta,
                              matrix<double>* hess, matrix<double>* inv, double& z,
                              matrix<double>* modelStats, matrix<double>* grad0,
                              matrix<double>* inv0, matrix<double>* coefTable,
                              matrix<double>* globalTests) {
  return velkor::guarded_call([&] {
    const int q = p < 0 ? 0 : p;
    const auto uq = static_cast<std::size_t>(q);
    const std::vector<double> b = Values(beta, uq), g0 = Values(grad0, uq);
    const std::vector<double> h = Square(hess, q), hi = Square(inv, q), hi0 = Square(inv0, q);
    std::vector<double> stats(12), tests(9), coef(uq * 7 + 1);
    const int c0 = (nCensored && nCensored->count > 0) ? nCensored->data[0] : 0;
    velkor::cox::Criteria(n, q, c0, loglik, loglik0, iterations, alpha, b.data(), h.data(),
                          hi.data(), z, stats.data(), g0.data(), hi0.data(), coef.data(), uq,
                          tests.data());
    Put(modelStats, stats);
    Put(globalTests, tests);
    for (int j = 0; j < q && coefTable; ++j)
      for (int c = 0; c < 7; ++c)
        coefTable->set(j + 1, c + 1,
                       coef[static_cast<std::size_t>(c) * uq + static_cast<std::size_t>(j)]);
    return 0;
  });
}

namespace {

int RunSelection(bool forward, int p, matrix<double>* w, matrix<double>* X, int ties,
                 matrix<int>* nTimes, matrix<int>* blockSize, matrix<int>* blockStart, int nStrata,
                 matrix<double>* strataSizes, matrix<int>* blockEvents, int* maxIter, double tol,
                 double threshold, int statistic, int nVars, matrix<int>* varCoefs, int* pFinal,
                 matrix<int>* inModel, matrix<int>* variableStep, matrix<double>* stepTable,
                 matrix<double>* beta, double& loglik, double& loglik0, matrix<double>* grad,
                 matrix<double>* hess, matrix<double>* inv, matrix<double>* grad0,
                 matrix<double>* inv0) {
  FlatProblem fp(p, w, X, ties, nTimes, blockSize, blockStart, nStrata, strataSizes, blockEvents);
  std::vector<int> coefs;
  for (int v = 0; v < nVars; ++v)
    coefs.push_back(varCoefs && static_cast<std::uint32_t>(v) < varCoefs->count ? varCoefs->data[v]
                                                                                : 0);
  const std::vector<double> rows = velkor::cox::RowMajorCopy(fp.x.data(), fp.n, fp.n, fp.p);
  const velkor::cox::ColumnFit fit =
      velkor::cox::FlatColumnFit(fp.prob, rows.data(), fp.n, fp.p, maxIter ? *maxIter : 1, tol);
  const velkor::cox::SelectionResult sel =
      forward ? velkor::cox::Forward(fit, coefs, fp.p, threshold,
                                     velkor::cox::NullLogLik(fp.prob, rows.data(), fp.n, fp.p))
              : velkor::cox::Backward(fit, coefs, fp.p, threshold, statistic);
  if (sel.status < 0) return -1;
  const int q = static_cast<int>(sel.columns.size());
  PutFit(sel.fit, q, beta, loglik, loglik0, grad, hess, inv, grad0, inv0);
  if (pFinal) *pFinal = q;
  if (maxIter) *maxIter = sel.fit.iterations;
  for (int j = 0; j < fp.p && inModel; ++j)
    inModel->set(j + 1,
                 std::find(sel.columns.begin(), sel.columns.end(), j) != sel.columns.end() ? 1 : 0);
  for (std::size_t v = 0; v < sel.variableStep.size() && variableStep; ++v)
    variableStep->set(static_cast<int>(v) + 1, sel.variableStep[v]);
  const std::size_t nv = coefs.size();
  for (std::size_t r = 0; r < nv && stepTable; ++r)
    for (std::size_t c = 0; c < 4; ++c)
      if (r < static_cast<std::size_t>(sel.steps))
        stepTable->set(static_cast<int>(r) + 1, static_cast<int>(c) + 1, sel.stepTable[c * nv + r]);
  return sel.status;
}

}  // namespace

VELKOR_API int Cox_ForSelection(int p, matrix<double>* w, matrix<double>* X, int ties,
                                matrix<int>* nTimes, matrix<int>* blockSize,
                                matrix<int>* blockStart, int nStrata, matrix<double>* strataSizes,
                                matrix<int>* blockEvents, int* maxIter, double tol,
                                double threshold, int nVars, matrix<int>* varCoefs, int* pFinal,
                                matrix<int>* inModel, matrix<int>* variableStep,
                                matrix<double>* stepTable, matrix<double>* beta, double& loglik,
                                double& loglik0, matrix<double>* grad, matrix<double>* hess,
                                matrix<double>* inv, matrix<double>* grad0, matrix<double>* inv0) {
  return velkor::guarded_call([&] {
    return RunSelection(true, p, w, X, ties, nTimes, blockSize, blockStart, nStrata, strataSizes,
                        blockEvents, maxIter, tol, threshold, 0, nVars, varCoefs, pFinal, inModel,
                        variableStep, stepTable, beta, loglik, loglik0, grad, hess, inv, grad0,
                        inv0);
  });
}

VELKOR_API int Cox_BackSelection(int p, matrix<double>* w, matrix<double>* X, int ties,
                                 matrix<int>* nTimes, matrix<int>* blockSize,
                                 matrix<int>* blockStart, int nStrata, matrix<double>* strataSizes,
                                 matrix<int>* blockEvents, int* maxIter, double tol,
                                 double threshold, int statistic, int nVars, matrix<int>* varCoefs,
                                 int* pFinal, matrix<int>* inModel, matrix<int>* variableStep,
                                 matrix<double>* stepTable, matrix<double>* beta, double& loglik,
                                 double& loglik0, matrix<double>* grad, matrix<double>* hess,
                                 matrix<double>* inv, matrix<double>* grad0, matrix<double>* inv0) {
  return velkor::guarded_call([&] {
    return RunSelection(false, p, w, X, ties, nTimes, blockSize, blockStart, nStrata, strataSizes,
                        blockEvents, maxIter, tol, threshold, statistic, nVars, varCoefs, pFinal,
                        inModel, variableStep, stepTable, beta, loglik, loglik0, grad, hess, inv,
                        grad0, inv0);
  });
}

// ---- Object form -------------------------------------------------------------------------------

VELKOR_API int ReorganizeDataCox_ST(cST_DataSet& data, COX_Param& param, cCOX_Results& res,
                                    cST_FactorsInfo& factors) {
  return velkor::guarded_call(
      [&] { return velkor::cox::ReorganizeDataCox_ST(data, param, res, factors); });
}

VELKOR_API int ComputeLogLikeDerivativesCox_ST(const VectD& beta, const std::vector<int>& columns,
                                               const cST_QualiInfo* /*quali*/, COX_Param& param,
                                               cCOX_Results& res, double& loglik, VectD& grad,
                                               VectD& hess) {
  return velkor::guarded_call([&] {
    return velkor::cox::ComputeLogLikeDerivativesCox_ST(beta, columns, param, res, loglik, grad,
                                                        hess);
  });
}

VELKOR_API int OptimizeCoxModel_ST(COX_Param& param, cCOX_Results& res,
                                   const std::vector<int>& columns) {
  return velkor::guarded_call(
      [&] { return velkor::cox::OptimizeCoxModel_ST(param, res, columns); });
}

VELKOR_API int ComputeCritCox_ST(COX_Param& param, cCOX_Results& res) {
  return velkor::guarded_call([&] { return velkor::cox::ComputeCritCox_ST(param, res); });
}

VELKOR_API int Cox_ForSelection_ST(COX_Param& param, cCOX_Results& res) {
  return velkor::guarded_call([&] { return velkor::cox::Cox_ForSelection_ST(param, res); });
}

VELKOR_API int Cox_BackSelection_ST(COX_Param& param, cCOX_Results& res) {
  return velkor::guarded_call([&] { return velkor::cox::Cox_BackSelection_ST(param, res); });
}

VELKOR_API int COX_RunCoxReg_ST(cST_DataSet& data, COX_Param& param, cCOX_Results& res,
                                cST_FactorsInfo& factors, VELKORInfo& info) {
  return velkor::guarded_call(
      [&] { return velkor::cox::COX_RunCoxReg_ST(data, param, res, factors, info); });
}

VELKOR_API int COX_Compute_ST(cST_DataSet& data, COX_Param& param, cCOX_Results& res,
                              cST_FactorsInfo& factors, VELKORInfo& info) {
  const int rc = velkor::guarded_call(
      [&] { return velkor::cox::COX_RunCoxReg_ST(data, param, res, factors, info); });
  if (rc == 0) return rc;
  struct Message {
    const char16_t* key;
    const char16_t* text;
  };
  const Message msg = rc == -1   ? Message{u"StatusRange", u"A status value is outside [0, 1]"}
                      : rc == -2 ? Message{u"TooFewRows", u"Fewer than two complete rows"}
                      : rc == -3 ? Message{u"NoEvent", u"No event in the data"}
                      : rc == -5 ? Message{u"FitFailed", u"The Cox model could not be fitted"}
                                 : Message{u"Internal", u"Internal failure"};
  LoadErrorInfo_ST(msg.key, msg.text, u"Cox regression", rc, -1, -1, 0, u"", 0, 0, 0, u"",
                   info.error);
  return rc;
}

VELKOR_API int Cpp_COX_Compute_ST(SAFEARRAY* numeric, SAFEARRAY* text, COX_Param& param,
                                  cCOX_Results& res, cST_FactorsInfo& factors, VELKORInfo& info) {
  const int rc = velkor::guarded_call([&] {
    cST_DataSet data;
    if (numeric) {
      matrix3D<cST_MVect<double>> cols(numeric, 0);
      for (int k = 1; k <= cols.nSlices; ++k) {
        auto& c = cols(k);
        if (c.entries.empty() || !c.entries[0]) continue;
        data.add(c.name, c.entries[0]->data, c.entries[0]->count);
      }
    }
    if (text) {
      matrix3D<cST_MVect<std::u16string>> cols(text, 0);
      for (int k = 1; k <= cols.nSlices; ++k) {
        auto& c = cols(k);
        if (c.entries.empty() || !c.entries[0]) continue;
        cST_QualiInfo q;
        q.name = c.name;
        q.values = std::shared_ptr<VectS>(new VectS(*c.entries[0]));
        data.qualitative.push_back(std::move(q));
      }
    }
    return COX_Compute_ST(data, param, res, factors, info);
  });
  return rc;
}

// ---- After the fit ------------------------------------------------------------------------------

namespace {

std::vector<double> RowMajorOf(matrix<double>* X, std::size_t n, int p) {
  const std::vector<double> cm = Values(X, n * static_cast<std::size_t>(p < 0 ? 0 : p));
  return velkor::cox::RowMajorCopy(cm.data(), n, n, p);
}

std::size_t Rows(int n, const matrix<double>* m) {
  const std::size_t want = n > 0 ? static_cast<std::size_t>(n) : 0;
  return m ? std::min<std::size_t>(want, m->count) : 0;
}

}  // namespace

VELKOR_API int SurvFoncCox(int n, int p, matrix<int>* nTimes, matrix<int>* blockStart,
                           matrix<int>* blockSize, matrix<int>* blockEvents, matrix<double>* X,
                           matrix<double>* beta, int nStrata, matrix<double>* strataSizes,
                           matrix<double>* baseSurv, matrix<double>* rowSurv,
                           matrix<double>* meanSurv) {
  return velkor::guarded_call([&] {
    FlatProblem fp(p, nullptr, X, 0, nTimes, blockSize, blockStart, nStrata, strataSizes,
                   blockEvents);
    (void)n;  // the rows are those of X, as the block tables address them
    const std::vector<double> x = RowMajorOf(X, fp.n, fp.p), b = Values(beta, fp.p);
    std::vector<double> xMean(static_cast<std::size_t>(fp.p), 0.0);
    for (std::size_t i = 0; i < fp.n; ++i)
      for (std::size_t j = 0; j < xMean.size(); ++j) xMean[j] += x[i * xMean.size() + j];
    for (double& v : xMean) v /= fp.n > 0 ? static_cast<double>(fp.n) : 1.0;
    const int cols = baseSurv ? static_cast<int>(baseSurv->cols) : 0;
    velkor::cox::PostFitOutputs(fp.layout, x.data(), fp.p, b.data(), xMean.data(), nullptr, nullptr,
                                cols, baseSurv, rowSurv, meanSurv, nullptr);
    return 0;
  });
}

VELKOR_API int ResCox(matrix<double>* time, int n, int p, matrix<double>* status, matrix<double>* X,
                      matrix<double>* beta, matrix<int>* nTimes, matrix<int>* blockStart,
                      matrix<int>* blockSize, matrix<int>* blockEvents, int nStrata,
                      matrix<double>* strataSizes, matrix<double>* cumHaz,
                      matrix<double>* residuals) {
  return velkor::guarded_call([&] {
    FlatProblem fp(p, nullptr, X, 0, nTimes, blockSize, blockStart, nStrata, strataSizes,
                   blockEvents);
    (void)n;  // the rows are those of X, as the block tables address them
    const std::vector<double> x = RowMajorOf(X, fp.n, fp.p), b = Values(beta, fp.p);
    const std::vector<double> t = Values(time, fp.n), s = Values(status, fp.n);
    const velkor::cox::BreslowBaseline bl =
        velkor::cox::ComputeBreslowBaseline(fp.layout, x.data(), fp.p, b.data());
    // The caller's cumulative hazard H0(s, k), k the position of the row's time in its stratum.
    std::vector<double> hz(fp.n, 0.0);
    const bool given = cumHaz && cumHaz->count > 0;
    for (std::size_t si = 0; given && si < fp.layout.strata.size(); ++si) {
      const velkor::cox::StratumRange& st = fp.layout.strata[si];
      for (std::size_t r = st.first; r < st.first + st.rows && r < fp.n; ++r) {
        const std::uint32_t blk = bl.blockOf[r];
        if (blk == velkor::cox::BreslowBaseline::kNoBlock) continue;
        hz[r] = cumHaz->at0(si, blk - st.blockBegin);
      }
    }
    const auto up = static_cast<std::size_t>(fp.p);
    std::vector<double> table(fp.n * (4 + 2 * up));
    velkor::cox::FillResiduals(fp.layout, bl, t.data(), s.data(), x.data(), fp.p,
                               given ? hz.data() : nullptr, table.data(), fp.n);
    if (residuals)
      for (std::size_t c = 0; c < 4 + 2 * up; ++c)
        for (std::size_t r = 0; r < fp.n; ++r) residuals->at0(r, c) = table[c * fp.n + r];
    return 0;
  });
}

VELKOR_API double ConcordIndex(int n, int p, matrix<double>* time, matrix<double>* status,
                               matrix<double>* X, matrix<double>* beta) {
  try {
    const std::size_t rows = std::min(Rows(n, time), Rows(n, status));
    const int q =
        std::max(0, std::min<int>(p, X && X->rows >= rows ? static_cast<int>(X->cols) : 0));
    const std::vector<double> x = RowMajorOf(X, X ? X->rows : 0, q), b = Values(beta, q);
    const auto uq = static_cast<std::size_t>(q);
    std::vector<double> eta(rows, 0.0);
    for (std::size_t i = 0; i < rows; ++i)
      for (std::size_t j = 0; j < uq; ++j) eta[i] += x[i * uq + j] * b[j];
    return velkor::cox::ConcordanceFenwick(rows, time->data, status->data, eta.data());
  } catch (...) {
    return velkor::kMissing;
  }
}

VELKOR_API int ComputeCVTable(int n, int p, matrix<double>* time, matrix<double>* status,
                              matrix<double>* X, matrix<double>* beta, double a, double b,
                              matrix<double>* modelStats, int row, matrix<double>* table) {
  return velkor::guarded_call([&] {
    const std::vector<double> ms = Values(modelStats, 12);
    double out[5];
    velkor::cox::QualityRow(ms[2], ms[8], n, p, a, b, ConcordIndex(n, p, time, status, X, beta),
                            out);
    for (int c = 0; c < 5 && table; ++c) table->set(row, c + 1, out[c]);
    return 0;
  });
}

VELKOR_API int ComputeBootOut(int B, int cols, matrix<double>* reps, matrix<double>* estimate,
                              double alpha, matrix<double>* out) {
  return velkor::guarded_call([&] {
    const int b = std::max(0, B), c = std::max(0, cols);
    const std::vector<double> r = Values(reps, static_cast<std::size_t>(b) * c);
    std::vector<double> e = Values(estimate, static_cast<std::size_t>(c));
    if (!estimate || estimate->count == 0) e.assign(e.size(), velkor::kMissing);
    std::vector<double> o(static_cast<std::size_t>(c) * 6);
    velkor::cox::BootSummary(b, c, r.data(), e.data(), alpha, o.data());
    Put(out, o);
    return 0;
  });
}

VELKOR_API int SurvFoncCox_ST(COX_Param& param, cCOX_Results& res) {
  return velkor::guarded_call([&] { return velkor::cox::SurvFoncCox_ST(param, res); });
}
VELKOR_API int ResCox_ST(COX_Param& param, cCOX_Results& res) {
  return velkor::guarded_call([&] { return velkor::cox::ResCox_ST(param, res); });
}
VELKOR_API int ConcordIndex_ST(cCOX_Results& res) {
  return velkor::guarded_call([&] { return velkor::cox::ConcordIndex_ST(res); });
}
VELKOR_API int ComputeCVTable_ST(COX_Param& param, cCOX_Results& res) {
  return velkor::guarded_call([&] { return velkor::cox::ComputeCVTable_ST(param, res); });
}
VELKOR_API int Cox_ProportionalityTest_ST(COX_Param& param, cCOX_Results& res) {
  return velkor::guarded_call([&] { return velkor::cox::Cox_ProportionalityTest_ST(param, res); });
}
VELKOR_API int CoxCV_ST(COX_Param& param, cCOX_Results& res, VELKORInfo& info) {
  return velkor::guarded_call([&] { return velkor::cox::CoxCV_ST(param, res, info); });
}
VELKOR_API int ComputeBootOut_ST(COX_Param& param, cCOX_Results& res, VELKORInfo& info) {
  return velkor::guarded_call([&] { return velkor::cox::ComputeBootOut_ST(param, res, info); });
}
