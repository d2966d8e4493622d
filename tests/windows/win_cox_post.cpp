// Cox regression after the fit through VELKORLI1M.dll against R's survival package (lung, age +
// sex + ph.ecog, Breslow ties; tests/reference/cox/cox_post_fixtures.inc): the object form on
// oleaut32 record arrays with the Grambsch-Therneau test, Cox_ProportionalityTest_ST and
// ConcordIndex_ST on its results, cross-validation and bootstrap with a progress callback, the
// flat Cpp_ConcordIndex, Cpp_ComputeCVTable and Cpp_ComputeBootOut, and bad input.
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "velkor/VELKORLI1M.h"
#include "velkor/cox_objects.h"
#include "windows/harness.h"
#include "windows/ole.h"

namespace {
#include "reference/cox/cox_post_fixtures.inc"

constexpr int kP = 3;
constexpr double kMiss = VELKOR_MISSING;
using wintest::GuardedD;

// The concordance index by its definition, pair by pair: a direction (i, j) is comparable when
// time_j > time_i and row i is an event; concordant when eta_i > eta_j strictly.
struct Pairs {
  double concordant = 0, comparable = 0;
};
Pairs count_pairs(const double* beta) {
  const int n = kLungN;
  std::vector<double> eta(n, 0.0);
  for (int j = 0; j < kP; ++j)
    for (int i = 0; i < n; ++i) eta[i] += kLungX[j * n + i] * beta[j];
  Pairs c;
  for (int i = 0; i < n; ++i) {
    if (kLungStatus[i] != 1.0) continue;
    for (int j = 0; j < n; ++j) {
      if (!(kLungTime[j] > kLungTime[i])) continue;
      c.comparable += 1;
      if (eta[i] > eta[j]) c.concordant += 1;
    }
  }
  return c;
}

struct ObjectRun {
  COX_Param param;
  cCOX_Results res;
  cST_FactorsInfo factors;
  VELKORInfo info;
  int status = -99;
};

// Cpp_COX_Compute_ST on record arrays of the fixture's columns.
void run_object(decltype(&Cpp_COX_Compute_ST) compute, ObjectRun& r) {
  using namespace wintest::ole;
  const int n = kLungN;
  RecordArray numeric(real_columns({{u"time", {kLungTime, kLungTime + n}},
                                    {u"status", {kLungStatus, kLungStatus + n}},
                                    {u"age", {kLungX, kLungX + n}},
                                    {u"sex", {kLungX + n, kLungX + 2 * n}},
                                    {u"ph.ecog", {kLungX + 2 * n, kLungX + 3 * n}}}));
  r.factors.quantitative = {2, 3, 4};
  r.status = compute(numeric.psa, nullptr, r.param, r.res, r.factors, r.info);
}

void check_ph(const VectD& ph, const double* want, const char* transform) {
  if (!wintest::check(ph.count == 12u, std::string("PH test size, ") + transform, __FILE__,
                      __LINE__))
    return;
  for (int r = 0; r < 4; ++r) {
    WCHECK_NEAR(ph.data[r], want[r], 1e-6);
    WCHECK_EQ(ph.data[4 + r], want[4 + r]);
    WCHECK_NEAR(ph.data[8 + r], want[8 + r], 1e-6);
  }
}

}  // namespace

VELKOR_WIN_FAMILY(cox_post) {
  auto compute = VELKOR_CPP_PROC(lib, Cpp_COX_Compute_ST);
  auto ph_test = VELKOR_CPP_PROC(lib, Cox_ProportionalityTest_ST);
  auto concord_st = VELKOR_CPP_PROC(lib, ConcordIndex_ST);
  auto concord = VELKOR_PROC(lib, Cpp_ConcordIndex);
  auto cv_row = VELKOR_PROC(lib, Cpp_ComputeCVTable);
  auto boot = VELKOR_PROC(lib, Cpp_ComputeBootOut);
  auto run = VELKOR_PROC(lib, RunCoxReg);
  if (!compute || !ph_test || !concord_st || !concord || !cv_row || !boot || !run) return;
  const int n = kLungN;

  // Object form, Breslow ties: coefficients, martingale residuals and the PH test with the
  // Kaplan-Meier transform (R's cox.zph default) against R; then the identity, log and rank
  // transforms by Cox_ProportionalityTest_ST on the same results.
  ObjectRun fit;
  fit.param.ties = 0;
  fit.param.tolerance = 1e-12;
  fit.param.proportionalityTest = -1;
  fit.param.phTransform = 3;
  run_object(compute, fit);
  if (!WCHECK_EQ(fit.status, 0) || !WCHECK_EQ(fit.res.beta.count, 3u)) return;
  WCHECK_ALL(fit.res.beta.data, kLungBeta, kP, 1e-8);
  if (WCHECK_EQ(fit.res.residuals.count, static_cast<std::uint32_t>(n * (4 + 2 * kP))))
    WCHECK_ALL(fit.res.residuals.data + 2 * n, kLungMartingale, n, 1e-7);
  check_ph(fit.res.phTest, kLungZph_km, "km");
  const double* zph[] = {kLungZph_identity, kLungZph_log, kLungZph_rank};
  for (int tr = 0; tr < 3; ++tr) {
    fit.param.phTransform = tr;
    WCHECK_EQ(ph_test(fit.param, fit.res), 0);
    check_ph(fit.res.phTest, zph[tr], "identity / log / rank");
  }

  // Concordance of the fitted model: the object form, the flat form with its two counts, and the
  // pair-by-pair count agree exactly.
  const Pairs pairs = count_pairs(fit.res.beta.data);
  WCHECK_EQ(concord_st(fit.res), 0);
  WCHECK_EQ(fit.res.concordance, pairs.concordant / pairs.comparable);
  {
    GuardedD c(1), num(1), den(1);
    WCHECK_EQ(concord(kLungTime, kLungStatus, kLungX, fit.res.beta.data, n, kP, c.data(),
                      num.data(), den.data()),
              0);
    WCHECK_EQ(num[0], pairs.concordant);
    WCHECK_EQ(den[0], pairs.comparable);
    WCHECK_EQ(c[0], pairs.concordant / pairs.comparable);
    WCHECK(wintest::intact(c, num, den));
  }

  // One quality-index row through the flat entry equals row 1 of the object form's table (the
  // model on all rows, pair (D, D0)); the other rows of the caller's table are left alone.
  {
    const double D0 = fit.res.modelStats.data[2], D = fit.res.modelStats.data[8];
    GuardedD table(3 * 5, -4.0);
    WCHECK_EQ(cv_row(kLungTime, kLungStatus, kLungX, fit.res.beta.data, n, kP, D, D0,
                     fit.res.modelStats.data, 2, 3, table.data()),
              0);
    WCHECK(table.intact());
    if (WCHECK_EQ(fit.res.cvTable.count, 5u))
      for (int c = 0; c < 5; ++c) {
        WCHECK_NEAR(table[c * 3 + 1], fit.res.cvTable.data[c], 1e-14);
        WCHECK_EQ(table[c * 3], -4.0);
        WCHECK_EQ(table[c * 3 + 2], -4.0);
      }
    WCHECK_NEAR(table[2 * 3 + 1], (D0 - D) / D0, 1e-14);
    WCHECK_EQ(table[3 * 3 + 1], pairs.concordant / pairs.comparable);
  }

  // Bootstrap summary: mean, standard error (divisor m - 1) and R's type-7 quantiles at alpha / 2
  // and 1 - alpha / 2 over the usable replicates (a missing and a NaN replicate are skipped).
  //   column 1: 1 2 3 4 5  -> mean 3, SE sqrt(2.5), quantiles (25%, 75%) 2 and 4, m = 5
  //   column 2: 2 4 8      -> mean 14/3, SE sqrt(28/3), quantiles 3 and 6, m = 3
  {
    const double reps[] = {1, 2, 3, 4, 5, 2, kMiss, 4, 8, std::nan("")}, est[] = {3, 5};
    GuardedD out(2 * 6);
    WCHECK_EQ(boot(reps, 5, 2, est, 0.5, out.data()), 0);
    WCHECK(out.intact());
    const double want[12] = {3, 5, 3, 14.0 / 3, std::sqrt(2.5), std::sqrt(28.0 / 3), 2, 3,
                             4, 6, 5, 3};
    WCHECK_ALL(out.data(), want, 12, 1e-15);
  }

  // Cross-validation and bootstrap in the object form, with the caller's progress callback
  // (a std::function built by this program and called from inside the DLL): tables of the stated
  // shapes, every replicate fitted, the same seed gives the same tables.
  {
    std::vector<ObjectRun> runs(2);
    for (ObjectRun& r : runs) {
      r.param.ties = 0;
      r.param.tolerance = 1e-9;
      r.param.cvFolds = 4;
      r.param.bootstrapSamples = 20;
      r.param.seed = 20261122;
      r.info.progress = [calls = std::make_shared<int>(0)](std::int64_t done, std::int64_t total) {
        ++*calls;
        return done <= total;
      };
      run_object(compute, r);
      WCHECK_EQ(r.status, 0);
    }
    const cCOX_Results& a = runs[0].res;
    if (WCHECK_EQ(a.cvTable.count, 6u * 5u) && WCHECK_EQ(a.bootTable.count, 4u * 6u)) {
      for (int j = 0; j < kP; ++j) WCHECK_EQ(a.bootTable.data[j], a.beta.data[j]);
      for (int j = 0; j < 4; ++j) {
        WCHECK_EQ(a.bootTable.data[20 + j], 20.0);
        WCHECK(a.bootTable.data[12 + j] <= a.bootTable.data[16 + j]);
      }
      WCHECK_EQ(a.cvTable.data[3 * 6], a.concordance);
      for (const auto& [x, y] : {std::pair{&runs[1].res.bootTable, &a.bootTable},
                                 std::pair{&runs[1].res.cvTable, &a.cvTable}})
        if (WCHECK_EQ(x->count, y->count)) WCHECK_ALL(x->data, y->data, y->count, 0.0);
    }
    // A callback that asks to stop: the run still returns, the bootstrap uses fewer replicates.
    ObjectRun stop;
    stop.param = runs[0].param;
    stop.param.cvFolds = 0;
    stop.param.bootstrapSamples = 200;
    int calls = 0;
    stop.info.progress = [&calls](std::int64_t, std::int64_t) {
      ++calls;
      return false;
    };
    run_object(compute, stop);
    WCHECK_EQ(stop.status, 0);
    WCHECK(calls >= 1);
    if (WCHECK_EQ(stop.res.bootTable.count, 4u * 6u)) WCHECK(stop.res.bootTable.data[20] < 200.0);
  }

  // Bad input: a null array with a positive length gives status 3 and writes nothing; results
  // holding no prepared data give -1.
  {
    constexpr double kInit = 6.5;
    const double t[] = {1, 2, 3}, s[] = {1, 0, 1}, b[] = {0.5};
    GuardedD c(1, kInit), num(1, kInit), den(1, kInit), table(5, kInit), out(6, kInit);
    WCHECK_REFUSED(concord(t, s, nullptr, b, 3, 1, c.data(), num.data(), den.data()), c, num, den);
    WCHECK_REFUSED(cv_row(t, s, t, b, 3, 1, 1.0, 2.0, nullptr, 1, 1, table.data()), table);
    WCHECK_REFUSED(boot(nullptr, 3, 1, nullptr, 0.05, out.data()), out);
    GuardedD beta(1, kInit), ms(12, kInit), gt(9, kInit), ct(9, kInit), z(1, kInit), st(4, kInit);
    wintest::GuardedI vs(1, -7), nf(1, -7);
    int iterations = 20;
    WCHECK_REFUSED(
        run(t, s, nullptr, nullptr, nullptr, nullptr, 3, 1, 1, 0, &iterations, 1e-9, -1, 0.05, 0, 0,
            nullptr, 0.05, 0, 0, beta.data(), ms.data(), gt.data(), ct.data(), z.data(), st.data(),
            vs.data(), nf.data(), nullptr, nullptr, nullptr, nullptr),
        beta, ms, gt, ct, z, st, vs, nf);
    WCHECK_EQ(iterations, 20);
    COX_Param param;
    cCOX_Results empty;
    WCHECK_EQ(ph_test(param, empty), -1);
    WCHECK_EQ(concord_st(empty), -1);
  }
}
