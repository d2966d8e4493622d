// Cox regression through the exported symbols only: the flat run against R's
// coxph(ties = "breslow"), the object run against coxph(ties = "efron"), strata against
// strata(), qualitative coding against R's treatment contrasts, and bad input.
//
// Fixtures: tests/reference/cox/cox_fixtures.inc, made by make_cox_fixtures.R (R survival, see
// the script for where the library differs from R on purpose).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/ole_helpers.h"
#include "velkor/VELKORLI1M.h"
#include "velkor/cox_objects.h"

namespace {

struct CoxFixture {
  const char* name;
  int n, p, ties;
  const double *time, *status, *x, *strata, *coef, *se;
  const char* const* names;
  double loglik0, loglik, lr, lrp, score, scorep, wald, waldp;
  int iter;
};

#include "reference/cox/cox_fixtures.inc"

constexpr double kTolCoef = 1e-7;  // relative; both fits converge far below this
constexpr double kTolLik = 1e-10;  // relative, log-likelihoods and global statistics

void ExpectRel(double got, double want, double tol, const std::string& what) {
  EXPECT_NEAR(got, want, tol * std::max(1.0, std::fabs(want))) << what;
}

// Strata sizes in ascending key order.
std::vector<double> StrataSizes(const CoxFixture& f) {
  std::map<double, double> count;
  for (int i = 0; i < f.n; ++i) count[f.strata[i]] += 1.0;
  std::vector<double> sizes;
  for (const auto& [k, c] : count) sizes.push_back(c);
  return sizes;
}

struct FlatRun {
  int status = 0, iterations = 100, nFinal = -1;
  double z = 0;
  std::vector<double> beta, stats, tests, coef, steps;
  std::vector<int> varStep;
};

// RunCoxReg on a fixture, outputs pre-filled with -7; the stratum sizes are passed unless
// countSizes (then the run counts them from the keys).
FlatRun RunFlat(const CoxFixture& f, int ties, int selection = -1, double threshold = 0.1,
                int backStat = 0, bool countSizes = false) {
  FlatRun r;
  const std::vector<double> sizes = StrataSizes(f);
  const int m = static_cast<int>(sizes.size());
  const auto up = static_cast<std::size_t>(f.p);
  r.beta.assign(up, -7.0);
  r.stats.assign(12, -7.0);
  r.tests.assign(9, -7.0);
  r.coef.assign(up * 9, -7.0);
  r.steps.assign(up * 4, -7.0);
  r.varStep.assign(up, -7);
  r.status =
      RunCoxReg(f.time, f.status, nullptr, f.x, m > 1 ? f.strata : nullptr,
                m > 1 && !countSizes ? sizes.data() : nullptr, f.n, f.p, m, ties, &r.iterations,
                1e-12, selection, threshold, backStat, 0, nullptr, 0.05, 0, 0, r.beta.data(),
                r.stats.data(), r.tests.data(), r.coef.data(), &r.z, r.steps.data(),
                r.varStep.data(), &r.nFinal, nullptr, nullptr, nullptr, nullptr);
  return r;
}

TEST(CoxApiReference, FlatFormMatchesCoxphBreslow) {
  for (const CoxFixture* f : {&lung_breslow, &veteran_breslow, &veteran_celltype_breslow,
                              &pbc_breslow, &lung_strata_breslow, &colon_strata_breslow}) {
    SCOPED_TRACE(f->name);
    const FlatRun r = RunFlat(*f, 0);
    ASSERT_EQ(r.status, 0);
    const auto up = static_cast<std::size_t>(f->p);
    for (std::size_t j = 0; j < up; ++j) {
      ExpectRel(r.beta[j], f->coef[j], kTolCoef, std::string("beta ") + f->names[j]);
      EXPECT_EQ(r.coef[j], r.beta[j]);
      ExpectRel(r.coef[up + j], f->se[j], kTolCoef, std::string("se ") + f->names[j]);
      EXPECT_DOUBLE_EQ(r.coef[up * 4 + j], std::exp(r.beta[j]));
      EXPECT_EQ(r.coef[up * 7 + j], 1.0);  // in the model
      EXPECT_EQ(r.coef[up * 8 + j], 0.0);  // no selection step
    }
    ExpectRel(r.stats[2], -2 * f->loglik0, kTolLik, "-2 L0");
    ExpectRel(r.stats[8], -2 * f->loglik, kTolLik, "-2 L");
    ExpectRel(r.stats[9], 2.0 * f->p - 2 * f->loglik, kTolLik, "AIC");
    ExpectRel(r.tests[3], f->lr, 1e-8, "LR");
    ExpectRel(r.tests[4], f->score, kTolLik, "score");  // at beta = 0: no convergence error
    ExpectRel(r.tests[5], f->wald, 1e-7, "Wald");
    ExpectRel(r.tests[6], f->lrp, 1e-6, "LR p");
    ExpectRel(r.tests[7], f->scorep, 1e-8, "score p");
    ExpectRel(r.tests[8], f->waldp, 1e-6, "Wald p");
    EXPECT_EQ(r.tests[0], f->p);
    EXPECT_NEAR(r.z, 1.959963984540054, 1e-14);
    EXPECT_EQ(r.nFinal, f->p);
    EXPECT_GE(r.iterations, 2);
  }
  // Stratum sizes not given: counted from the keys.
  const FlatRun c = RunFlat(colon_strata_breslow, 0, -1, 0.1, 0, true);
  ASSERT_EQ(c.status, 0);
  for (int j = 0; j < colon_strata_breslow.p; ++j)
    ExpectRel(c.beta[static_cast<std::size_t>(j)], colon_strata_breslow.coef[j], kTolCoef, "beta");
}

TEST(CoxApiReference, FlatQuirksSchwarzSizeAndTruncatedEfronFraction) {
  // lung stratified by sex: the sample size of rows 1 and 5 is n minus the censored rows of the
  // first stratum (sex 1) only.
  const CoxFixture& f = lung_strata_breslow;
  int censoredFirst = 0;
  for (int i = 0; i < f.n; ++i) censoredFirst += (f.strata[i] == 1.0 && f.status[i] == 0.0);
  const FlatRun r = RunFlat(f, 0);
  const double used = f.n - censoredFirst;
  EXPECT_EQ(r.stats[0], used);
  EXPECT_EQ(r.stats[10], f.p * std::log(used) + r.stats[8]);
  // The flat Efron fraction truncates to 0: on veteran (heavy ties) code 1 is code 0 exactly.
  const FlatRun b = RunFlat(veteran_breslow, 0), e = RunFlat(veteran_breslow, 1);
  ASSERT_EQ(e.status, 0);
  EXPECT_EQ(b.coef, e.coef);
  EXPECT_EQ(b.stats, e.stats);
}

// ---- Object form -------------------------------------------------------------------------------

std::u16string U16(const char* s) {
  return std::u16string(s, s + std::strlen(s));
}

// A data set with time, status, stratum key and the fixture's design columns as covariates.
cST_DataSet DataSet(const CoxFixture& f, int quantitative, cST_FactorsInfo& factors) {
  cST_DataSet d;
  const auto n = static_cast<std::uint32_t>(f.n);
  d.add(u"time", f.time, n);
  d.add(u"status", f.status, n);
  d.add(u"stratum", f.strata, n);
  for (int j = 0; j < quantitative; ++j) {
    d.add(U16(f.names[j]), f.x + static_cast<std::size_t>(j) * n, n);
    factors.quantitative.push_back(3 + j);
  }
  return d;
}

void AddLabels(cST_DataSet& d, cST_FactorsInfo& factors, const char* name,
               const char* const* labels, int n) {
  cST_QualiInfo q;
  q.name = U16(name);
  q.values = std::make_shared<VectS>(static_cast<std::uint32_t>(n));
  for (int i = 0; i < n; ++i) q.values->data[i] = U16(labels[i]);
  factors.qualitative.push_back(static_cast<int>(d.qualitative.size()));
  d.qualitative.push_back(q);
}

void CompareObject(const CoxFixture& f, cST_DataSet& d, cST_FactorsInfo& factors, bool strata) {
  SCOPED_TRACE(f.name);
  COX_Param par;
  par.ties = f.ties;
  par.strataColumn = strata ? 2 : -1;
  par.tolerance = 1e-9;
  cCOX_Results res;
  VELKORInfo info;
  ASSERT_EQ(COX_Compute_ST(d, par, res, factors, info), 0);
  ASSERT_EQ(res.p, f.p);
  ASSERT_EQ(res.beta.count, static_cast<std::uint32_t>(f.p));
  for (int j = 0; j < f.p; ++j) {
    ExpectRel(res.beta.data[j], f.coef[j], kTolCoef, std::string("beta ") + f.names[j]);
    ExpectRel(res.coefTable.data[f.p + j], f.se[j], kTolCoef, std::string("se ") + f.names[j]);
  }
  ExpectRel(res.logLik0, f.loglik0, kTolLik, "L0");
  ExpectRel(res.logLik, f.loglik, kTolLik, "L");
  ExpectRel(res.globalTests.data[3], f.lr, 1e-8, "LR");
  ExpectRel(res.globalTests.data[4], f.score, kTolLik, "score");
  ExpectRel(res.globalTests.data[5], f.wald, 1e-7, "Wald");
  EXPECT_EQ(res.notConverged, 0.0);
  EXPECT_EQ(par.maxIterations, res.iterations);
}

TEST(CoxApiReference, ObjectFormMatchesCoxphEfronAndBreslow) {
  for (const CoxFixture* f :
       {&lung_efron, &veteran_efron, &pbc_efron, &lung_strata_efron, &veteran_breslow}) {
    cST_FactorsInfo factors;
    cST_DataSet d = DataSet(*f, f->p, factors);
    CompareObject(*f, d, factors, f == &lung_strata_efron);
  }
}

// Rows with a missing cell (time, stratum key, weight or covariate) are left out exactly: the run
// with such rows inserted (after some complete rows, adjacent, at the end) equals, bit for bit,
// the run on the complete rows alone, strata and case weights included; only the data-set row
// numbers of the sorted rows differ.
TEST(CoxApiReference, IncompleteRowsAreLeftOutBitForBit) {
  const CoxFixture& f = lung_strata_efron;
  const auto n = static_cast<std::size_t>(f.n), up = static_cast<std::size_t>(f.p);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  // Columns time, status, stratum, weight, covariates; source: fixture row of each row (-1 for
  // an inserted incomplete one).
  auto build = [&](bool holes, std::vector<std::vector<double>>& cols, std::vector<int>& source) {
    cols.assign(4 + up, {});
    auto push = [&](std::size_t k, int missingCell) {
      const double row[4] = {missingCell == 0 ? nan : f.time[k], f.status[k],
                             missingCell == 1 ? nan : f.strata[k],
                             missingCell == 2 ? VELKOR_MISSING : 0.5 + 0.25 * double(k % 4)};
      for (std::size_t c = 0; c < 4; ++c) cols[c].push_back(row[c]);
      for (std::size_t j = 0; j < up; ++j)
        cols[4 + j].push_back(missingCell == 3 && j == up - 1 ? nan : f.x[j * n + k]);
      source.push_back(missingCell < 0 ? static_cast<int>(k) : -1);
    };
    for (std::size_t i = 0; i < n; ++i) {
      if (holes && (i == 5 || i == 17 || i == 18 || i == 101)) push(i, static_cast<int>(i % 4));
      push(i, -1);
    }
    if (holes) push(0, 3);
  };
  auto run = [&](std::vector<std::vector<double>>& cols, cCOX_Results& res) {
    cST_DataSet d;
    cST_FactorsInfo factors;
    for (std::size_t c = 0; c < cols.size(); ++c) {
      d.add(c < 4 ? u"c" : U16(f.names[c - 4]), cols[c].data(),
            static_cast<std::uint32_t>(cols[c].size()));
      if (c >= 4) factors.quantitative.push_back(static_cast<int>(c));
    }
    COX_Param par;
    par.strataColumn = 2;
    par.weightColumn = 3;
    VELKORInfo info;
    return COX_Compute_ST(d, par, res, factors, info);
  };
  std::vector<std::vector<double>> clean, holes;
  std::vector<int> cleanSource, holesSource;
  build(false, clean, cleanSource);
  build(true, holes, holesSource);
  cCOX_Results a, b;
  ASSERT_EQ(run(clean, a), 0);
  ASSERT_EQ(run(holes, b), 0);
  ASSERT_EQ(a.n, f.n);
  ASSERT_EQ(b.n, f.n);
  auto same = [](const auto& x, const auto& y, const char* what) {
    ASSERT_EQ(x.count, y.count) << what;
    EXPECT_EQ(0, std::memcmp(x.data, y.data, x.count * sizeof(*x.data))) << what;
  };
  same(a.time, b.time, "time");
  same(a.strataKey, b.strataKey, "strata");
  same(a.eventWeights, b.eventWeights, "event weights");
  same(a.design, b.design, "design");
  same(a.beta, b.beta, "beta");
  same(a.modelStats, b.modelStats, "model statistics");
  same(a.coefTable, b.coefTable, "coefficient table");
  same(a.cvTable, b.cvTable, "quality row");
  same(a.residuals, b.residuals, "residuals");
  same(a.blockStart, b.blockStart, "block starts");
  same(a.blockSize, b.blockSize, "block sizes");
  same(a.blockEvents, b.blockEvents, "block events");
  // Block-table cells past a stratum's own number of distinct times hold 0.
  int pastEnd = 0;
  for (int s = 0; s < a.nStrata; ++s)
    for (int k = a.nTimes.data[s]; k < a.maxTimes; ++k, ++pastEnd)
      EXPECT_EQ(a.blockStart.data[static_cast<std::size_t>(k * a.nStrata + s)], 0);
  EXPECT_GT(pastEnd, 0);  // the strata have different numbers of distinct times
  for (int r = 0; r < f.n; ++r)
    EXPECT_EQ(cleanSource[static_cast<std::size_t>(a.rowIndex.data[r])],
              holesSource[static_cast<std::size_t>(b.rowIndex.data[r])]);
}

TEST(CoxApiReference, QualitativeVariablesUseTreatmentCodingLikeR) {
  {
    // veteran: karno, age, then celltype (levels adeno < large < smallcell < squamous; adeno is
    // the reference).
    cST_FactorsInfo factors;
    cST_DataSet d = DataSet(veteran_celltype_efron, 2, factors);
    AddLabels(d, factors, "celltype", veteran_celltype_labels, veteran_celltype_efron.n);
    CompareObject(veteran_celltype_efron, d, factors, false);
    ASSERT_EQ(factors.designNames.size(), 5u);
    EXPECT_EQ(factors.designNames[2], u"celltype=large");
    EXPECT_EQ(factors.designNames[4], u"celltype=squamous");
    EXPECT_EQ(factors.designVariable[4], 2);
  }
  {
    // colon deaths: age, nodes, obstruct, then rx (levels Lev < Lev+5FU < Obs in code-unit order,
    // as in the fixture's alphabetical R factor: Lev is the reference), stratified by sex.
    cST_FactorsInfo factors;
    cST_DataSet d = DataSet(colon_strata_efron, 3, factors);
    AddLabels(d, factors, "rx", colon_rx_labels, colon_strata_efron.n);
    CompareObject(colon_strata_efron, d, factors, true);
  }
}

TEST(CoxApiReference, SelectionsFollowTheLikelihoodRatioAndWaldRulesOfR) {
  // lung, Breslow; R emulation in make_cox_fixtures.R.
  const FlatRun fw = RunFlat(lung_breslow, 0, 0, 0.10);
  ASSERT_EQ(fw.status, 0);
  const int nf = static_cast<int>(std::size(lung_forward_order));
  EXPECT_EQ(fw.nFinal, nf);
  for (int s = 0; s < nf; ++s) {
    EXPECT_EQ(fw.steps[static_cast<std::size_t>(3 * 5 + s)], lung_forward_order[s]);  // variable
    EXPECT_EQ(fw.steps[static_cast<std::size_t>(s)], s + 1);  // variables in the model
    EXPECT_EQ(fw.varStep[static_cast<std::size_t>(lung_forward_order[s] - 1)], s + 1);
  }
  // Columns left out: beta 0, in-model flag 0, missing standard error.
  for (int j = 0; j < 5; ++j) {
    const bool in = std::find(std::begin(lung_forward_order), std::end(lung_forward_order),
                              j + 1) != std::end(lung_forward_order);
    EXPECT_EQ(fw.coef[static_cast<std::size_t>(35 + j)], in ? 1.0 : 0.0);
    if (!in) {
      EXPECT_EQ(fw.beta[static_cast<std::size_t>(j)], 0.0);
      EXPECT_EQ(fw.coef[static_cast<std::size_t>(5 + j)], VELKOR_MISSING);
    }
  }
  const FlatRun bw = RunFlat(lung_breslow, 0, 1, 0.10, 0);
  ASSERT_EQ(bw.status, 0);
  for (int s = 0; s < lung_backward_removed_count; ++s)
    EXPECT_EQ(bw.steps[static_cast<std::size_t>(15 + s)], lung_backward_removed[s]);
  EXPECT_EQ(bw.nFinal, 5 - lung_backward_removed_count);
  // The last row of the backward table holds the final number of variables only.
  EXPECT_EQ(bw.steps[static_cast<std::size_t>(lung_backward_removed_count)],
            5 - lung_backward_removed_count);
  EXPECT_EQ(bw.steps[static_cast<std::size_t>(5 + lung_backward_removed_count)], -7.0);
}

// ---- Bad input ---------------------------------------------------------------------------------

// RunCoxReg on small data with every output surrounded by guard cells, to catch writes outside
// the stated lengths.
struct SmallRun {
  static constexpr double kGuard = 12345.678;
  int status, iterations = 50, nFinal = -1;
  double z = 0;
  std::vector<std::vector<double>> out;  // beta, stats, tests, coef, steps: 2 guards each side
  std::vector<int> varStep;
  SmallRun(const std::vector<double>& t, const std::vector<double>& s, const std::vector<double>& x,
           int p, int ties = 0, int m = 1, const double* strata = nullptr,
           const double* sizes = nullptr)
      : varStep(static_cast<std::size_t>(p) + 1, 0) {
    const auto up = static_cast<std::size_t>(p);
    for (std::size_t len : {up, std::size_t{12}, std::size_t{9}, up * 9, up * 4})
      out.emplace_back(len + 4, kGuard);
    status = RunCoxReg(t.data(), s.data(), nullptr, x.data(), strata, sizes,
                       static_cast<int>(t.size()), p, m, ties, &iterations, 1e-9, -1, 0.05, 0, 0,
                       nullptr, 0.05, 0, 0, at(0), at(1), at(2), at(3), &z, at(4), varStep.data(),
                       &nFinal, nullptr, nullptr, nullptr, nullptr);
  }
  double* at(int k) { return out[static_cast<std::size_t>(k)].data() + 2; }
  double beta(int j) { return at(0)[j]; }
  double stats(int k) { return at(1)[k]; }
  double tests(int k) { return at(2)[k]; }
  double coef(int k) { return at(3)[k]; }
  bool intact() const {
    for (const auto& v : out)
      if (v[0] != kGuard || v[1] != kGuard || v[v.size() - 2] != kGuard || v.back() != kGuard)
        return false;
    return true;
  }
};

TEST(CoxApiBadInput, DataConditionsReturnTheirCodesAndWriteNothing) {
  const std::vector<double> x = {1, 2, 3, 4};
  struct Case {
    std::vector<double> t, s;
    int status;
  };
  for (const Case& c : {Case{{1, 2, 3, 4}, {1, 2, 0, 1}, -1},     // status 2
                        Case{{1, 2, 3, 4}, {1, NAN, 0, 1}, -1},   // NaN status is not in [0, 1]
                        Case{{1}, {1}, -2},                       // one row
                        Case{{}, {}, -2},                         // n = 0
                        Case{{1, 2, 3, 4}, {0, 0, 0, 0}, -3}}) {  // no event
    SmallRun r(c.t, c.s, x, 1);
    EXPECT_EQ(r.status, c.status);
    EXPECT_EQ(r.stats(0), SmallRun::kGuard);
    EXPECT_EQ(r.beta(0), SmallRun::kGuard);
    EXPECT_TRUE(r.intact());
  }
  // A null array given a positive length: internal failure code, nothing written.
  int it = 10, nf = 0;
  double b = -7, z = -7, ms[12], gt[9], ct[9], st[4];
  int vs[1];
  const double t[3] = {1, 2, 3}, s[3] = {1, 1, 0};
  EXPECT_EQ(RunCoxReg(t, s, nullptr, nullptr, nullptr, nullptr, 3, 1, 1, 0, &it, 1e-9, -1, 0.05, 0,
                      0, nullptr, 0.05, 0, 0, &b, ms, gt, ct, &z, st, vs, &nf, nullptr, nullptr,
                      nullptr, nullptr),
            VELKOR_E_NULL_ARRAY);
  EXPECT_EQ(b, -7);
  EXPECT_EQ(it, 10);
}

TEST(CoxApiBadInput, DegenerateDesignsCompleteWithMissingCells) {
  const std::vector<double> t = {1, 2, 3, 4, 5, 6, 7, 8}, s = {1, 1, 0, 1, 1, 0, 1, 1};
  const std::vector<double> ramp = {1, 2, 3, 4, 5, 6, 7, 8};
  // A constant covariate: singular matrix; the flat fit goes on, its standard error is missing.
  SmallRun constant(t, s, std::vector<double>(8, 3.0), 1);
  EXPECT_EQ(constant.beta(0), 0.0);
  for (int c = 1; c < 7; ++c) EXPECT_EQ(constant.coef(c), VELKOR_MISSING);
  // Perfect separation (monotone likelihood): early events have the larger covariate. The
  // coefficient grows without a clamp and the run ends within the iteration limit.
  SmallRun separated(t, s, {8, 7, 6, 5, 4, 3, 2, 1}, 1);
  EXPECT_GT(separated.beta(0), 3.0);
  EXPECT_LE(separated.iterations, 50);
  // NaN covariate: a completed run whose statistics are missing values.
  SmallRun withNaN(t, s, {1, 2, 3, NAN, 5, 6, 7, 8}, 1);
  EXPECT_EQ(withNaN.stats(8), VELKOR_MISSING);  // -2 log L
  EXPECT_EQ(withNaN.coef(1), VELKOR_MISSING);   // standard error
  EXPECT_LE(withNaN.iterations, 50);
  // p = 0: nothing is accumulated; the run completes with the null tables.
  SmallRun empty(t, s, {}, 0);
  EXPECT_EQ(empty.stats(0), 6.0);  // events used
  EXPECT_EQ(empty.tests(6), VELKOR_MISSING);
  // More strata than rows, with sizes that overrun n: clipped, no crash, no stray write.
  const double keys[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  const double sizes[12] = {1, 1, 1, 1, 1, 1, 1, 5, 5, 5, 5, 5};
  SmallRun strata(t, s, ramp, 1, 0, 12, keys, sizes);
  // An unknown ties code computes no likelihood; the run completes.
  SmallRun ties7(t, s, ramp, 1, 7);
  EXPECT_EQ(ties7.stats(2), 0.0);
  for (SmallRun* r : {&constant, &separated, &withNaN, &empty, &strata, &ties7}) {
    EXPECT_EQ(r->status, 0);
    EXPECT_TRUE(r->intact());
  }
}

TEST(CoxApiBadInput, SelectionWithInconsistentVariableCountsFails) {
  const double t[6] = {1, 2, 3, 4, 5, 6}, s[6] = {1, 0, 1, 1, 0, 1};
  const double x[12] = {1, 3, 2, 5, 4, 6, 0, 1, 0, 1, 1, 0};
  const int coefs[2] = {1, 2};  // three columns claimed, two present
  int it = 20, nf = -1, vs[2] = {-7, -7};
  double b[2], z, ms[12], gt[9], ct[18], st[8];
  EXPECT_EQ(
      RunCoxReg(t, s, nullptr, x, nullptr, nullptr, 6, 2, 1, 0, &it, 1e-9, 0, 0.5, 0, 2, coefs,
                0.05, 0, 0, b, ms, gt, ct, &z, st, vs, &nf, nullptr, nullptr, nullptr, nullptr),
      -5);
  EXPECT_EQ(vs[0], -7);
}

TEST(CoxApiPreparation, TablesOfTiedBlocksThroughTheFlatEntry) {
  // Stratum keys 2, 1: rows of key 1 come first. Stratum 1 (key 1): times 5, 5, 5 with statuses
  // 1, 0, 1 and time 7 censored; stratum 2: times 1 (event) and 1.0000000000000002 (censored).
  double time[6] = {1.0, 5, 5, 5, std::nextafter(1.0, 2.0), 7};
  double status[6] = {1, 1, 0, 1, 0, 0};
  double key[6] = {2, 1, 1, 1, 2, 1};
  double x[6] = {10, 11, 12, 13, 14, 15};
  const double sizes[2] = {4, 2};
  int nTimes[2], nCens[2], start[12] = {}, size[12] = {}, events[12] = {}, maxTimes = -1;
  ASSERT_EQ(Cpp_ReorganizeDataCox(time, 6, 1, status, nullptr, nullptr, x, key, sizes, 2, nTimes,
                                  nCens, start, size, events, &maxTimes),
            0);
  // Times one ulp apart are distinct; the tied middle row and the time-7 row are censored in
  // stratum 1; tables are 2 x 6, column-major ((s, k) at k * 2 + s); the censoring-only time 7
  // is a block with no event.
  EXPECT_EQ(maxTimes, 2);
  EXPECT_EQ(std::vector<int>(nTimes, nTimes + 2), std::vector<int>({2, 2}));
  EXPECT_EQ(std::vector<int>(nCens, nCens + 2), std::vector<int>({2, 1}));
  EXPECT_EQ(std::vector<int>(start, start + 4), std::vector<int>({1, 5, 4, 6}));
  EXPECT_EQ(std::vector<int>(size, size + 4), std::vector<int>({3, 1, 1, 1}));
  EXPECT_EQ(std::vector<int>(events, events + 4), std::vector<int>({2, 1, 0, 0}));
  EXPECT_EQ(std::vector<double>(x, x + 6), std::vector<double>({11, 12, 13, 15, 10, 14}));
  EXPECT_EQ(key[0], 1.0);

  // A tied row whose third-column value is 0 is not counted in its block.
  double t3[3] = {2, 2, 2}, s3[3] = {1, 1, 1}, c3[3] = {1, 0, 1}, x3[3] = {0, 0, 0};
  int nt3, nc3, bs3[3], bz3[3], be3[3], mt3;
  ASSERT_EQ(Cpp_ReorganizeDataCox(t3, 3, 1, s3, nullptr, c3, x3, nullptr, nullptr, 1, &nt3, &nc3,
                                  bs3, bz3, be3, &mt3),
            0);
  EXPECT_EQ(bz3[0], 2);
  EXPECT_EQ(be3[0], 2);

  double bad[3] = {1, 2, 3}, bst[3] = {1, 2, 1}, bx[3] = {0, 0, 0};
  int nt[1] = {-9}, nc[1], bs[3], bz[3], be[3], mt = -9;
  EXPECT_EQ(Cpp_ReorganizeDataCox(bad, 3, 1, bst, nullptr, nullptr, bx, nullptr, nullptr, 1, nt, nc,
                                  bs, bz, be, &mt),
            -1);
  EXPECT_EQ(nt[0], -9);  // nothing written
  EXPECT_EQ(bst[1], 2);  // nor reordered
}

// ---- Exported C++ workers, chained as the runs chain them --------------------------------------

TEST(CoxApiWorkers, FlatWorkersChainToTheRunResult) {
  // pbc, Breslow: Cpp_ReorganizeDataCox -> OptimizeCoxModel -> ComputeCritCox equals RunCoxReg.
  const CoxFixture& f = pbc_breslow;
  const int n = f.n, p = f.p;
  std::vector<double> t(f.time, f.time + n), s(f.status, f.status + n), x(f.x, f.x + n * p);
  std::vector<int> nt(1), nc(1), bs(static_cast<std::size_t>(n)), bz(bs.size()), be(bs.size());
  int mt = 0;
  ASSERT_EQ(
      Cpp_ReorganizeDataCox(t.data(), n, p, s.data(), nullptr, nullptr, x.data(), nullptr, nullptr,
                            1, nt.data(), nc.data(), bs.data(), bz.data(), be.data(), &mt),
      0);
  const auto un = static_cast<std::uint32_t>(n), up = static_cast<std::uint32_t>(p);
  matrix<double> W(un, 1, s.data(), 0), X(un, up, x.data(), 0), beta(up, 1), sizes(1, 1);
  sizes.data[0] = n;
  matrix<int> NT(1, 1, nt.data(), 0), BS(1, un, bs.data(), 0), BZ(1, un, bz.data(), 0),
      BE(1, un, be.data(), 0), NC(1, 1, nc.data(), 0);
  matrix<double> g(up, 1), h(up, up), inv(up, up), g0(up, 1), inv0(up, up);
  double ll = 0, ll0 = 0;
  int iters = 100;
  ASSERT_EQ(OptimizeCoxModel(p, &W, &X, 0, &beta, &NT, &BZ, &BS, 1, &sizes, &BE, &iters, 1e-12, ll,
                             ll0, &g, &h, &inv, &g0, &inv0),
            0);
  ExpectRel(ll, f.loglik, kTolLik, "L");
  double z = 0;
  matrix<double> ms(6, 2), gt(3, 3), ct(up, 9);
  ASSERT_EQ(ComputeCritCox(n, p, &NC, ll, ll0, iters, 0.05, &beta, &h, &inv, z, &ms, &g0, &inv0,
                           &ct, &gt),
            0);
  const FlatRun r = RunFlat(f, 0);
  EXPECT_EQ(std::vector<double>(ms.data, ms.data + 12), r.stats);
  EXPECT_EQ(std::vector<double>(gt.data, gt.data + 9), r.tests);
  EXPECT_EQ(std::vector<double>(ct.data, ct.data + p * 7),
            std::vector<double>(r.coef.begin(), r.coef.begin() + p * 7));
  // The likelihood worker at the fitted beta: zero gradient.
  double l2 = 0;
  matrix<double> g2(up, 1), h2(up, up);
  ComputeLogLikeDerivativesCox(p, &W, &X, 0, &beta, &NT, &BZ, &BS, 1, &sizes, &BE, l2, &g2, &h2);
  EXPECT_EQ(l2, ll);
  for (int j = 0; j < p; ++j) EXPECT_NEAR(g2.data[j], 0.0, 1e-6);
  // Forward selection worker: the variables of RunCoxReg's forward run, compact results.
  int pf = p, it2 = 100;
  matrix<int> vc(up, 1), inModel(up, 1), vstep(up, 1);
  for (int j = 0; j < p; ++j) vc.data[j] = 1;
  matrix<double> steps(up, 4), b2(up, 1);
  const int nsteps =
      Cox_ForSelection(p, &W, &X, 0, &NT, &BZ, &BS, 1, &sizes, &BE, &it2, 1e-12, 0.10, p, &vc, &pf,
                       &inModel, &vstep, &steps, &b2, ll, ll0, &g, &h, &inv, &g0, &inv0);
  const FlatRun fr = RunFlat(f, 0, 0, 0.10);
  EXPECT_EQ(nsteps, fr.nFinal);
  EXPECT_EQ(std::vector<int>(vstep.data, vstep.data + p), fr.varStep);
  const int bsteps =
      Cox_BackSelection(p, &W, &X, 0, &NT, &BZ, &BS, 1, &sizes, &BE, &it2, 1e-12, 0.10, 0, p, &vc,
                        &pf, &inModel, &vstep, &steps, &b2, ll, ll0, &g, &h, &inv, &g0, &inv0);
  EXPECT_GE(bsteps, 1);
}

TEST(CoxApiWorkers, ObjectWorkersChainToTheComputeResult) {
  const CoxFixture& f = lung_efron;
  cST_FactorsInfo factors;
  cST_DataSet d = DataSet(f, f.p, factors);
  COX_Param par;
  cCOX_Results whole, steps;
  VELKORInfo info;
  ASSERT_EQ(COX_RunCoxReg_ST(d, par, whole, factors, info), 0);
  COX_Param par2;
  ASSERT_EQ(ReorganizeDataCox_ST(d, par2, steps, factors), 0);
  ASSERT_EQ(OptimizeCoxModel_ST(par2, steps, {}), 0);
  ASSERT_EQ(ComputeCritCox_ST(par2, steps), 0);
  EXPECT_EQ(
      std::vector<double>(steps.coefTable.data, steps.coefTable.data + steps.coefTable.count),
      std::vector<double>(whole.coefTable.data, whole.coefTable.data + whole.coefTable.count));
  double ll = 0;
  VectD g, h;
  ASSERT_EQ(ComputeLogLikeDerivativesCox_ST(whole.beta, {}, nullptr, par, whole, ll, g, h), 0);
  EXPECT_NEAR(ll, whole.logLik, 1e-9);
  for (std::uint32_t j = 0; j < g.count; ++j) EXPECT_NEAR(g.data[j], 0.0, 1e-5);
  // Selections of the object form through their own symbols agree with the flat ones on lung
  // (Breslow; no ties among the choices); the run reports the final fit's iterations.
  cST_FactorsInfo lf;
  cST_DataSet ld = DataSet(lung_breslow, 5, lf);
  COX_Param sp;
  sp.ties = 0;
  sp.selection = 0;
  sp.entryThreshold = 0.10;
  cCOX_Results sel;
  ASSERT_EQ(COX_Compute_ST(ld, sp, sel, lf, info), 0);
  ASSERT_EQ(sel.steps, static_cast<int>(std::size(lung_forward_order)));
  for (int s = 0; s < sel.steps; ++s)
    EXPECT_EQ(sel.stepTable.data[3 * 5 + s], lung_forward_order[s]);
  EXPECT_EQ(sp.maxIterations, sel.iterations);  // the final fit's count, not a candidate's
  sp.maxIterations = 100;
  EXPECT_EQ(Cox_ForSelection_ST(sp, sel), sel.steps);
  sp.backwardStatistic = 1;  // likelihood-ratio statistic
  EXPECT_GE(Cox_BackSelection_ST(sp, sel), 1);
  EXPECT_EQ(sel.variableStep.count, 5u);
}

TEST(CoxApiWorkers, SpreadsheetEntryReadsOleRecordArrays) {
  // veteran with celltype: numeric columns and a text column as the front end passes them.
  const CoxFixture& f = veteran_celltype_efron;
  const auto col = [&](const double* v) {
    return std::make_pair(static_cast<VARTYPE>(VT_R8),
                          testing_ole::doubles(std::vector<double>(v, v + f.n)));
  };
  testing_ole::RecordArray numeric({{u"time", col(f.time)},
                                    {u"status", col(f.status)},
                                    {u"karno", col(f.x)},
                                    {u"age", col(f.x + f.n)}});
  std::vector<std::u16string> labels;
  for (int i = 0; i < f.n; ++i) labels.push_back(U16(veteran_celltype_labels[i]));
  testing_ole::RecordArray text(
      {{u"celltype", std::make_pair(static_cast<VARTYPE>(VT_BSTR), testing_ole::strings(labels))}});
  COX_Param par;
  cCOX_Results res;
  cST_FactorsInfo factors;
  factors.quantitative = {2, 3};
  factors.qualitative = {0};
  VELKORInfo info;
  ASSERT_EQ(Cpp_COX_Compute_ST(numeric.psa, text.psa, par, res, factors, info), 0);
  for (int j = 0; j < f.p; ++j) ExpectRel(res.beta.data[j], f.coef[j], kTolCoef, "beta");
  // No event at all: -3 with the error record filled.
  cST_FactorsInfo none;
  cST_DataSet empty;
  const double t[3] = {1, 2, 3}, z[3] = {0, 0, 0};
  empty.add(u"time", t, 3);
  empty.add(u"status", z, 3);
  cCOX_Results r2;
  VELKORInfo info2;
  EXPECT_EQ(COX_Compute_ST(empty, par, r2, none, info2), -3);
  EXPECT_EQ(info2.error.key, u"NoEvent");
  EXPECT_EQ(info2.error.status, -3);
  EXPECT_EQ(Cpp_COX_Compute_ST(nullptr, nullptr, par, r2, none, info2), -2);
}

}  // namespace
