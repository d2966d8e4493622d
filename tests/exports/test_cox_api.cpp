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
  int status = 0, iterations = 0, nFinal = -1;
  double z = 0;
  std::vector<double> beta, stats, tests, coef, steps;
  std::vector<int> varStep;
};

FlatRun RunFlat(const CoxFixture& f, int ties, int selection = -1, double threshold = 0.1,
                int backStat = 0) {
  FlatRun r;
  const std::vector<double> sizes = StrataSizes(f);
  const int m = static_cast<int>(sizes.size());
  r.iterations = 100;
  r.beta.assign(static_cast<std::size_t>(f.p), -7.0);
  r.stats.assign(12, -7.0);
  r.tests.assign(9, -7.0);
  r.coef.assign(static_cast<std::size_t>(f.p) * 9, -7.0);
  r.steps.assign(static_cast<std::size_t>(f.p) * 4, -7.0);
  r.varStep.assign(static_cast<std::size_t>(f.p), -7);
  r.status = RunCoxReg(f.time, f.status, nullptr, f.x, m > 1 ? f.strata : nullptr,
                       m > 1 ? sizes.data() : nullptr, f.n, f.p, m, ties, &r.iterations, 1e-12,
                       selection, threshold, backStat, 0, nullptr, 0.05, 0, 0, r.beta.data(),
                       r.stats.data(), r.tests.data(), r.coef.data(), &r.z, r.steps.data(),
                       r.varStep.data(), &r.nFinal, nullptr, nullptr, nullptr, nullptr);
  return r;
}

void CompareFlat(const CoxFixture& f) {
  SCOPED_TRACE(f.name);
  const FlatRun r = RunFlat(f, 0);
  ASSERT_EQ(r.status, 0);
  for (int j = 0; j < f.p; ++j) {
    ExpectRel(r.beta[j], f.coef[j], kTolCoef, std::string("beta ") + f.names[j]);
    ExpectRel(r.coef[j], f.coef[j], kTolCoef, "table beta");
    ExpectRel(r.coef[static_cast<std::size_t>(f.p) + j], f.se[j], kTolCoef,
              std::string("se ") + f.names[j]);
    EXPECT_DOUBLE_EQ(r.coef[static_cast<std::size_t>(f.p) * 4 + j], std::exp(r.beta[j]));
    EXPECT_EQ(r.coef[static_cast<std::size_t>(f.p) * 7 + j], 1.0);  // in the model
    EXPECT_EQ(r.coef[static_cast<std::size_t>(f.p) * 8 + j], 0.0);  // no selection step
  }
  ExpectRel(r.stats[2], -2 * f.loglik0, kTolLik, "-2 L0");
  ExpectRel(r.stats[8], -2 * f.loglik, kTolLik, "-2 L");
  ExpectRel(r.stats[9], 2.0 * f.p - 2 * f.loglik, kTolLik, "AIC");
  ExpectRel(r.tests[3], f.lr, 1e-8, "LR");
  ExpectRel(r.tests[4], f.score, kTolLik, "score");  // at beta = 0: no convergence error
  ExpectRel(r.tests[5], f.wald, 1e-7, "Wald");
  ExpectRel(r.tests[6], f.lrp, 1e-6, "LR p");
  ExpectRel(r.tests[7], f.scorep, 1e-8, "score p");
  ExpectRel(r.tests[8], f.waldp, 1e-6, "Wald p");
  EXPECT_EQ(r.tests[0], f.p);
  EXPECT_NEAR(r.z, 1.959963984540054, 1e-14);
  EXPECT_EQ(r.nFinal, f.p);
  EXPECT_GE(r.iterations, 2);
}

TEST(CoxApiReference, FlatFormMatchesCoxphBreslow) {
  for (const CoxFixture* f : {&lung_breslow, &veteran_breslow, &veteran_celltype_breslow,
                              &pbc_breslow, &lung_strata_breslow, &colon_strata_breslow})
    CompareFlat(*f);
}

TEST(CoxApiReference, FlatFormCountsStratumSizesWhenNotGiven) {
  const CoxFixture& f = colon_strata_breslow;
  int iters = 100, nf = 0;
  double z = 0;
  std::vector<double> beta(static_cast<std::size_t>(f.p)), ms(12), gt(9), ct(beta.size() * 9),
      st(beta.size() * 4);
  std::vector<int> vs(beta.size());
  ASSERT_EQ(RunCoxReg(f.time, f.status, nullptr, f.x, f.strata, nullptr, f.n, f.p, 2, 0, &iters,
                      1e-12, -1, 0.05, 0, 0, nullptr, 0.05, 0, 0, beta.data(), ms.data(), gt.data(),
                      ct.data(), &z, st.data(), vs.data(), &nf, nullptr, nullptr, nullptr, nullptr),
            0);
  for (int j = 0; j < f.p; ++j)
    ExpectRel(beta[static_cast<std::size_t>(j)], f.coef[j], kTolCoef, "beta");
  ExpectRel(ms[8], -2 * f.loglik, kTolLik, "-2 L");
}

TEST(CoxApiReference, SchwarzCriterionUsesTheFirstStratumCensoredCountOnly) {
  // lung stratified by sex: the sample size of rows 1 and 5 is n minus the censored rows of the
  // first stratum (sex 1), not n minus all censored rows (which would be the events).
  const CoxFixture& f = lung_strata_breslow;
  int censoredFirst = 0;
  for (int i = 0; i < f.n; ++i) censoredFirst += (f.strata[i] == 1.0 && f.status[i] == 0.0);
  const FlatRun r = RunFlat(f, 0);
  const double used = f.n - censoredFirst;
  EXPECT_EQ(r.stats[0], used);
  EXPECT_EQ(r.stats[10], f.p * std::log(used) + r.stats[8]);
}

TEST(CoxApiReference, FlatEfronCodeGivesTheBreslowFit) {
  // The flat Efron fraction truncates to 0: on veteran (heavy ties) code 1 is code 0 exactly.
  const FlatRun b = RunFlat(veteran_breslow, 0), e = RunFlat(veteran_breslow, 1);
  ASSERT_EQ(b.status, 0);
  ASSERT_EQ(e.status, 0);
  for (std::size_t k = 0; k < b.coef.size(); ++k) EXPECT_EQ(b.coef[k], e.coef[k]);
  for (std::size_t k = 0; k < b.stats.size(); ++k) EXPECT_EQ(b.stats[k], e.stats[k]);
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

TEST(CoxApiReference, ObjectFormMatchesCoxphEfron) {
  for (const CoxFixture* f : {&lung_efron, &veteran_efron, &pbc_efron, &lung_strata_efron}) {
    cST_FactorsInfo factors;
    cST_DataSet d = DataSet(*f, f->p, factors);
    CompareObject(*f, d, factors, f == &lung_strata_efron);
  }
}

TEST(CoxApiReference, ObjectFormWithBreslowTiesMatchesCoxphBreslow) {
  cST_FactorsInfo factors;
  cST_DataSet d = DataSet(veteran_breslow, veteran_breslow.p, factors);
  CompareObject(veteran_breslow, d, factors, false);
}

// Rows with a missing cell (time, covariate, stratum key or weight) are left out exactly: the run
// on the data with such rows inserted (after some complete rows, adjacent, at the end) equals, bit
// for bit, the run on the complete rows alone, strata and case weights included; only the data-set
// row numbers of the sorted rows differ.
TEST(CoxApiReference, IncompleteRowsAreLeftOutBitForBit) {
  const CoxFixture& f = lung_strata_efron;
  const auto n = static_cast<std::size_t>(f.n);
  const auto up = static_cast<std::size_t>(f.p);
  struct Columns {
    std::vector<double> time, status, stratum, weight;
    std::vector<std::vector<double>> x;
    std::vector<int> source;  // fixture row of each row, -1 for an inserted incomplete row
  };
  auto build = [&](bool withIncomplete) {
    Columns c;
    c.x.resize(up);
    auto push = [&](int i, int missingCell) {
      const double nan = std::numeric_limits<double>::quiet_NaN();
      const auto k = static_cast<std::size_t>(i < 0 ? 0 : i);
      c.time.push_back(missingCell == 0 ? nan : f.time[k]);
      c.status.push_back(f.status[k]);
      c.stratum.push_back(missingCell == 1 ? nan : f.strata[k]);
      c.weight.push_back(missingCell == 2 ? VELKOR_MISSING
                                          : 0.5 + 0.25 * static_cast<double>(k % 4));
      for (std::size_t j = 0; j < up; ++j)
        c.x[j].push_back(missingCell == 3 && j == up - 1 ? nan : f.x[j * n + k]);
      c.source.push_back(i);
    };
    for (std::size_t i = 0; i < n; ++i) {
      if (withIncomplete && (i == 5 || i == 17 || i == 18 || i == 101))
        push(-1 - static_cast<int>(i % 4), static_cast<int>(i % 4));
      push(static_cast<int>(i), -1);
    }
    if (withIncomplete) push(-9, 3);
    return c;
  };
  auto run = [&](Columns& c, cCOX_Results& res) {
    cST_DataSet d;
    const auto rows = static_cast<std::uint32_t>(c.time.size());
    d.add(u"time", c.time.data(), rows);
    d.add(u"status", c.status.data(), rows);
    d.add(u"stratum", c.stratum.data(), rows);
    d.add(u"w", c.weight.data(), rows);
    cST_FactorsInfo factors;
    for (std::size_t j = 0; j < up; ++j) {
      d.add(U16(f.names[j]), c.x[j].data(), rows);
      factors.quantitative.push_back(4 + static_cast<int>(j));
    }
    COX_Param par;
    par.strataColumn = 2;
    par.weightColumn = 3;
    VELKORInfo info;
    return COX_Compute_ST(d, par, res, factors, info);
  };
  Columns clean = build(false), holes = build(true);
  cCOX_Results a, b;
  ASSERT_EQ(run(clean, a), 0);
  ASSERT_EQ(run(holes, b), 0);
  ASSERT_EQ(a.n, f.n);
  ASSERT_EQ(b.n, f.n);
  auto same = [](const VectD& x, const VectD& y, const char* what) {
    ASSERT_EQ(x.count, y.count) << what;
    EXPECT_EQ(0, std::memcmp(x.data, y.data, x.count * sizeof(double))) << what;
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
  // The block tables agree too, including the cells past a stratum's own number of distinct
  // times, which are reported as 0 (nothing of the memory's earlier contents).
  int pastEnd = 0;
  for (const auto* t : {&a.blockStart, &a.blockSize, &a.blockEvents}) {
    const VectI& other = t == &a.blockStart  ? b.blockStart
                         : t == &a.blockSize ? b.blockSize
                                             : b.blockEvents;
    ASSERT_EQ(t->count, other.count);
    EXPECT_EQ(0, std::memcmp(t->data, other.data, t->count * sizeof(int)));
    for (int s = 0; s < a.nStrata; ++s)
      for (int k = a.nTimes.data[s]; k < a.maxTimes; ++k, ++pastEnd)
        EXPECT_EQ(t->data[static_cast<std::size_t>(k) * static_cast<std::size_t>(a.nStrata) +
                          static_cast<std::size_t>(s)],
                  0);
  }
  EXPECT_GT(pastEnd, 0);  // the strata have different numbers of distinct times
  for (int r = 0; r < f.n; ++r)
    EXPECT_EQ(clean.source[static_cast<std::size_t>(a.rowIndex.data[r])],
              holes.source[static_cast<std::size_t>(b.rowIndex.data[r])]);
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

TEST(CoxApiReference, ObjectSelectionsAgreeWithTheFlatOnesOnUntiedChoices) {
  cST_FactorsInfo factors;
  cST_DataSet d = DataSet(lung_breslow, 5, factors);
  COX_Param par;
  par.ties = 0;
  par.selection = 0;
  par.entryThreshold = 0.10;
  cCOX_Results res;
  VELKORInfo info;
  ASSERT_EQ(COX_Compute_ST(d, par, res, factors, info), 0);
  ASSERT_EQ(res.steps, static_cast<int>(std::size(lung_forward_order)));
  for (int s = 0; s < res.steps; ++s)
    EXPECT_EQ(res.stepTable.data[3 * 5 + s], lung_forward_order[s]);
  EXPECT_EQ(par.maxIterations, res.iterations);  // the final fit's count, not a candidate's
}

// ---- Bad input ---------------------------------------------------------------------------------

// Outputs of RunCoxReg surrounded by guard cells, to catch writes outside the stated lengths.
struct Guarded {
  static constexpr double kGuard = 12345.678;
  std::vector<double> buf;
  std::size_t len;
  explicit Guarded(std::size_t n) : buf(n + 4, kGuard), len(n) {}
  double* data() { return buf.data() + 2; }
  bool intact() const {
    return buf[0] == kGuard && buf[1] == kGuard && buf[len + 2] == kGuard && buf[len + 3] == kGuard;
  }
};

struct SmallRun {
  int status, iterations = 50, nFinal = -1;
  double z = 0;
  Guarded beta, stats{12}, tests{9}, coef, steps;
  std::vector<int> varStep;
  SmallRun(const std::vector<double>& t, const std::vector<double>& s, const std::vector<double>& x,
           int p, int ties = 0, int m = 1, const double* strata = nullptr,
           const double* sizes = nullptr)
      : beta(static_cast<std::size_t>(p)),
        coef(static_cast<std::size_t>(p) * 9),
        steps(static_cast<std::size_t>(p) * 4),
        varStep(static_cast<std::size_t>(p) + 1, 0) {
    status =
        RunCoxReg(t.data(), s.data(), nullptr, x.data(), strata, sizes, static_cast<int>(t.size()),
                  p, m, ties, &iterations, 1e-9, -1, 0.05, 0, 0, nullptr, 0.05, 0, 0, beta.data(),
                  stats.data(), tests.data(), coef.data(), &z, steps.data(), varStep.data(),
                  &nFinal, nullptr, nullptr, nullptr, nullptr);
  }
  bool intact() const {
    return beta.intact() && stats.intact() && tests.intact() && coef.intact() && steps.intact();
  }
};

TEST(CoxApiBadInput, DataConditionsReturnTheirCodesAndWriteNothing) {
  const std::vector<double> x = {1, 2, 3, 4};
  {
    SmallRun r({1, 2, 3, 4}, {1, 2, 0, 1}, x, 1);  // status 2
    EXPECT_EQ(r.status, -1);
    EXPECT_EQ(r.stats.data()[0], Guarded::kGuard);
    EXPECT_TRUE(r.intact());
  }
  {
    SmallRun r({1, 2, 3, 4}, {1, NAN, 0, 1}, x, 1);  // NaN status is not in [0, 1]
    EXPECT_EQ(r.status, -1);
  }
  {
    SmallRun r({1}, {1}, {1}, 1);  // one row
    EXPECT_EQ(r.status, -2);
    EXPECT_EQ(r.beta.data()[0], Guarded::kGuard);
  }
  {
    SmallRun r({1, 2, 3, 4}, {0, 0, 0, 0}, x, 1);  // no event
    EXPECT_EQ(r.status, -3);
    EXPECT_TRUE(r.intact());
  }
  {
    SmallRun r({}, {}, {}, 1);  // n = 0
    EXPECT_EQ(r.status, -2);
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
  const std::vector<double> t = {1, 2, 3, 4, 5, 6, 7, 8};
  const std::vector<double> s = {1, 1, 0, 1, 1, 0, 1, 1};
  {
    // A constant covariate: singular matrix; the flat fit goes on, its standard error is missing.
    SmallRun r(t, s, std::vector<double>(8, 3.0), 1);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.beta.data()[0], 0.0);
    for (int c = 1; c < 7; ++c) EXPECT_EQ(r.coef.data()[c], VELKOR_MISSING);
    EXPECT_TRUE(r.intact());
  }
  {
    // Perfect separation (monotone likelihood): early events have the larger covariate. The
    // coefficient grows without a clamp and the run ends within the iteration limit.
    SmallRun r(t, s, {8, 7, 6, 5, 4, 3, 2, 1}, 1);
    EXPECT_EQ(r.status, 0);
    EXPECT_GT(r.beta.data()[0], 3.0);
    EXPECT_LE(r.iterations, 50);
    EXPECT_TRUE(r.intact());
  }
  {
    // NaN covariate: a completed run whose statistics are missing values.
    std::vector<double> x = {1, 2, 3, NAN, 5, 6, 7, 8};
    SmallRun r(t, s, x, 1);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.stats.data()[8], VELKOR_MISSING);  // -2 log L
    EXPECT_EQ(r.coef.data()[1], VELKOR_MISSING);   // standard error
    EXPECT_LE(r.iterations, 50);
    EXPECT_TRUE(r.intact());
  }
  {
    // p = 0: nothing is accumulated; the run completes with the null tables.
    SmallRun r(t, s, {}, 0);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.stats.data()[0], 6.0);  // events used
    EXPECT_EQ(r.tests.data()[6], VELKOR_MISSING);
    EXPECT_TRUE(r.intact());
  }
  {
    // More strata than rows, with sizes that overrun n: clipped, no crash, no stray write.
    const double keys[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    const double sizes[12] = {1, 1, 1, 1, 1, 1, 1, 5, 5, 5, 5, 5};
    SmallRun r(t, s, {1, 2, 3, 4, 5, 6, 7, 8}, 1, 0, 12, keys, sizes);
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(r.intact());
  }
  {
    // An unknown ties code computes no likelihood; the run completes.
    SmallRun r(t, s, {1, 2, 3, 4, 5, 6, 7, 8}, 1, 7);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.stats.data()[2], 0.0);
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
  EXPECT_EQ(maxTimes, 2);
  EXPECT_EQ(nTimes[0], 2);
  EXPECT_EQ(nTimes[1], 2);  // times one ulp apart are distinct
  EXPECT_EQ(nCens[0], 2);   // the tied middle row and the time-7 row
  EXPECT_EQ(nCens[1], 1);
  // Tables are 2 x 6, column-major: (s, k) at k * 2 + s.
  EXPECT_EQ(start[0], 1);
  EXPECT_EQ(size[0], 3);
  EXPECT_EQ(events[0], 2);
  EXPECT_EQ(start[2], 4);
  EXPECT_EQ(events[2], 0);  // a censoring-only time is a block with no event
  EXPECT_EQ(start[1], 5);
  EXPECT_EQ(start[3], 6);
  const double want_x[6] = {11, 12, 13, 15, 10, 14};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(x[i], want_x[i]);
  EXPECT_EQ(key[0], 1.0);

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
  for (int k = 0; k < 12; ++k) EXPECT_EQ(ms.data[k], r.stats[static_cast<std::size_t>(k)]);
  for (int k = 0; k < 9; ++k) EXPECT_EQ(gt.data[k], r.tests[static_cast<std::size_t>(k)]);
  for (int k = 0; k < p * 7; ++k) EXPECT_EQ(ct.data[k], r.coef[static_cast<std::size_t>(k)]);
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
  for (int j = 0; j < p; ++j) EXPECT_EQ(vstep.data[j], fr.varStep[static_cast<std::size_t>(j)]);
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
  ASSERT_EQ(steps.coefTable.count, whole.coefTable.count);
  for (std::uint32_t k = 0; k < whole.coefTable.count; ++k)
    EXPECT_EQ(steps.coefTable.data[k], whole.coefTable.data[k]);
  double ll = 0;
  VectD g, h;
  ASSERT_EQ(ComputeLogLikeDerivativesCox_ST(whole.beta, {}, nullptr, par, whole, ll, g, h), 0);
  EXPECT_NEAR(ll, whole.logLik, 1e-9);
  for (std::uint32_t j = 0; j < g.count; ++j) EXPECT_NEAR(g.data[j], 0.0, 1e-5);
  // Selections of the object form through their own symbols.
  COX_Param sp;
  sp.entryThreshold = 0.10;
  EXPECT_GE(Cox_ForSelection_ST(sp, steps), 1);
  sp.backwardStatistic = 1;  // likelihood-ratio statistic
  EXPECT_GE(Cox_BackSelection_ST(sp, steps), 1);
  EXPECT_EQ(steps.variableStep.count, 5u);
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
