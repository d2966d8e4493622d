// Flat entry points of the Cox regression: thin frames over the workers of cox/.
#include <vector>

#include "core/frame.h"
#include "cox/post_fit.h"
#include "cox/run.h"
#include "velkor/cox.h"
#include "velkor/cox_objects.h"

namespace {

long long Len(const void* p, long long n) {
  return p == nullptr ? 0 : n;  // an optional array given as null: empty container
}

}  // namespace

VELKOR_EXTERN_C VELKOR_API int Cpp_ReorganizeDataCox(double* time, int n, int p, double* status,
                                                     double* col2, double* col3, double* x,
                                                     double* strataKey, const double* strataSizes,
                                                     int m, int* nTimes, int* nCensored,
                                                     int* blockStart, int* blockSize,
                                                     int* blockEvents, int* maxTimes) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    const long long rows = n < 0 ? 0 : n, cols = p < 0 ? 0 : p, strata = m < 0 ? 0 : m;
    auto& t = f.out(time, rows);
    auto& st = f.out(status, rows);
    auto& c2 = f.out(col2, Len(col2, rows));
    auto& c3 = f.out(col3, Len(col3, rows));
    auto& X = f.out(x, rows, cols);
    auto& key = f.out(strataKey, Len(strataKey, rows));
    auto& sizes = f.in(strataSizes, Len(strataSizes, strata));
    auto& nt = f.out(nTimes, strata);
    auto& nc = f.out(nCensored, strata);
    auto& bs = f.out(blockStart, strata, rows);
    auto& bz = f.out(blockSize, strata, rows);
    auto& be = f.out(blockEvents, strata, rows);
    int& mt = f.scalar(maxTimes);
    return velkor::cox::cReorganizeDataCox(&t, n, p, &st, &c2, &c3, &X, &key, &sizes, m, &nt, &nc,
                                           &bs, &bz, &be, &mt);
  });
}

VELKOR_EXTERN_C VELKOR_API int RunCoxReg(
    const double* time, const double* status, const double* weights, const double* x,
    const double* strata, const double* strataSizes, int n, int p, int m, int ties, int* maxIter,
    double tol, int selection, double threshold, int backStatistic, int nVars, const int* varCoefs,
    double alpha, short survRes, int survCols, double* beta, double* modelStats,
    double* globalTests, double* coefTable, double* z, double* stepTable, int* variableStep,
    int* nFinal, double* baseSurvival, double* rowSurvival, double* meanSurvival,
    double* residuals) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    const long long rows = n < 0 ? 0 : n, cols = p < 0 ? 0 : p, ns = m < 0 ? 0 : m;
    const long long vars = nVars > 0 ? nVars : cols;
    const long long sc = survRes == -1 ? (survCols < 0 ? 0 : survCols) : 0;
    auto& t = f.in(time, rows);
    auto& st = f.in(status, rows);
    auto& w = f.in(weights, Len(weights, rows));
    auto& X = f.in(x, rows, cols);
    auto& key = f.in(strata, Len(strata, rows));
    auto& sizes = f.in(strataSizes, Len(strataSizes, ns));
    auto& vc = f.in(varCoefs, nVars > 0 ? nVars : 0);
    int& iters = f.scalar(maxIter);
    auto& b = f.out(beta, cols);
    auto& ms = f.out(modelStats, 6, 2);
    auto& gt = f.out(globalTests, 3, 3);
    auto& ct = f.out(coefTable, cols, 9);
    double& zq = f.scalar(z);
    auto& steps = f.out(stepTable, vars, 4);
    auto& vs = f.out(variableStep, vars);
    int& nf = f.scalar(nFinal);
    // The four survival outputs are optional (null: not computed), as the header documents;
    // the n x survCols row table in particular may be too large to ask for.
    auto& bsv = f.out(baseSurvival, survRes == -1 ? Len(baseSurvival, ns) : 0, sc);
    auto& rsv = f.out(rowSurvival, survRes == -1 ? Len(rowSurvival, rows) : 0, sc);
    auto& msv = f.out(meanSurvival, survRes == -1 ? Len(meanSurvival, ns) : 0, sc);
    auto& res = f.out(residuals, survRes == -1 ? Len(residuals, rows) : 0, 4 + 2 * cols);
    return velkor::cox::cRunCoxReg(&t, &st, &w, &X, &key, &sizes, n, p, m, ties, &iters, tol,
                                   selection, threshold, backStatistic, nVars, &vc, alpha, survRes,
                                   survCols, &b, &ms, &gt, &ct, zq, &steps, &vs, &nf, &bsv, &rsv,
                                   &msv, &res);
  });
}

VELKOR_EXTERN_C VELKOR_API int Cpp_ConcordIndex(const double* time, const double* status,
                                                const double* x, const double* beta, int n, int p,
                                                double* c, double* nConcordant,
                                                double* nComparable) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    const long long rows = n < 0 ? 0 : n, cols = p < 0 ? 0 : p;
    auto& t = f.in(time, rows);
    auto& st = f.in(status, rows);
    auto& X = f.in(x, rows, cols);
    auto& b = f.in(beta, cols);
    double& cc = f.scalar(c);
    double numLocal = 0.0, denLocal = 0.0;  // the two counts are optional
    double& num = nConcordant ? f.scalar(nConcordant) : numLocal;
    double& den = nComparable ? f.scalar(nComparable) : denLocal;
    const auto un = static_cast<std::size_t>(rows);
    std::vector<double> eta(un, 0.0);
    for (std::size_t j = 0; j < static_cast<std::size_t>(cols); ++j)
      for (std::size_t i = 0; i < un; ++i) eta[i] += X.data[j * un + i] * b.data[j];
    cc = velkor::cox::ConcordanceFenwick(un, t.data, st.data, eta.data(), &num, &den);
    return 0;
  });
}

VELKOR_EXTERN_C VELKOR_API int Cpp_ComputeCVTable(const double* time, const double* status,
                                                  const double* x, const double* beta, int n, int p,
                                                  double a, double b, const double* modelStats,
                                                  int row, int tableRows, double* table) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    const long long rows = n < 0 ? 0 : n, cols = p < 0 ? 0 : p;
    auto& t = f.in(time, rows);
    auto& st = f.in(status, rows);
    auto& X = f.in(x, rows, cols);
    auto& bt = f.in(beta, cols);
    auto& ms = f.in(modelStats, 6, 2);
    auto& tb = f.out(table, tableRows < 0 ? 0 : tableRows, 5);
    return ComputeCVTable(n, p, &t, &st, &X, &bt, a, b, &ms, row, &tb);
  });
}

VELKOR_EXTERN_C VELKOR_API int Cpp_ComputeBootOut(const double* reps, int B, int cols,
                                                  const double* estimate, double alpha,
                                                  double* out) {
  return velkor::flat_call([&](velkor::FlatFrame& f) {
    const long long b = B < 0 ? 0 : B, c = cols < 0 ? 0 : cols;
    auto& r = f.in(reps, b, c);
    auto& e = f.in(estimate, Len(estimate, c));
    auto& o = f.out(out, c, 6);
    return ComputeBootOut(B, cols, &r, &e, alpha, &o);
  });
}
