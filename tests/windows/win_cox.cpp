// Cox regression through VELKORLI1M.dll against R's coxph (the fixture of the Linux tests): the
// flat RunCoxReg (Breslow ties, strata), and the front end's object entry Cpp_COX_Compute_ST fed
// with record arrays of real OLE Automation columns (Efron ties), a qualitative covariate passed
// as a record array of BSTR labels among them.
#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "velkor/VELKORLI1M.h"
#include "velkor/cox_objects.h"
#include "windows/harness.h"
#include "windows/ole.h"

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

std::vector<double> strata_sizes(const CoxFixture& f) {
  std::map<double, double> count;
  for (int i = 0; i < f.n; ++i) count[f.strata[i]] += 1.0;
  std::vector<double> sizes;
  for (const auto& [key, c] : count) sizes.push_back(c);
  return sizes;
}

std::u16string u16(const char* s) {
  return std::u16string(s, s + std::char_traits<char>::length(s));
}

}  // namespace

VELKOR_WIN_FAMILY(cox) {
  using namespace wintest::ole;
  auto run = VELKOR_PROC(lib, RunCoxReg);
  auto prepare = VELKOR_PROC(lib, Cpp_ReorganizeDataCox);
  auto compute = VELKOR_CPP_PROC(lib, Cpp_COX_Compute_ST);
  if (!run || !prepare || !compute) return;

  // Flat form, Breslow ties: coefficients, standard errors, likelihoods and global tests.
  for (const CoxFixture* f : {&lung_breslow, &veteran_breslow, &lung_strata_breslow}) {
    const std::vector<double> sizes = strata_sizes(*f);
    const int m = static_cast<int>(sizes.size()), p = f->p;
    int iterations = 100, nFinal = -1;
    double z = 0;
    std::vector<double> beta(p), stats(12), tests(9), coef(p * 9), steps(p * 4);
    std::vector<int> varStep(p);
    const int status =
        run(f->time, f->status, nullptr, f->x, m > 1 ? f->strata : nullptr,
            m > 1 ? sizes.data() : nullptr, f->n, p, m, 0, &iterations, 1e-12, -1, 0.1, 0, 0,
            nullptr, 0.05, 0, 0, beta.data(), stats.data(), tests.data(), coef.data(), &z,
            steps.data(), varStep.data(), &nFinal, nullptr, nullptr, nullptr, nullptr);
    if (!wintest::check(status == 0, std::string(f->name) + ": status " + std::to_string(status),
                        __FILE__, __LINE__))
      continue;
    WCHECK_ALL(beta.data(), f->coef, p, 1e-7);
    WCHECK_ALL(coef.data() + p, f->se, p, 1e-7);
    WCHECK_NEAR(stats[2], -2 * f->loglik0, 1e-10);
    WCHECK_NEAR(stats[8], -2 * f->loglik, 1e-10);
    WCHECK_NEAR(tests[3], f->lr, 1e-8);
    WCHECK_NEAR(tests[4], f->score, 1e-10);
    WCHECK_NEAR(tests[5], f->wald, 1e-7);
    WCHECK_EQ(nFinal, p);
  }

  // Flat preparation: data conditions come back as statuses, nothing sorted.
  {
    double t[] = {3, 1, 2}, s[] = {1, 2, 0}, x[] = {0.5, 0.1, 0.2};
    int nTimes = 0, nCens = 0, start[3], size[3], events[3], maxTimes = 0;
    WCHECK_EQ(prepare(t, 3, 1, s, nullptr, nullptr, x, nullptr, nullptr, 1, &nTimes, &nCens, start,
                      size, events, &maxTimes),
              VELKOR_E_STATUS_RANGE);
    WCHECK_EQ(t[0], 3.0);
    s[1] = 0;
    s[0] = 0;
    WCHECK_EQ(prepare(t, 3, 1, s, nullptr, nullptr, x, nullptr, nullptr, 1, &nTimes, &nCens, start,
                      size, events, &maxTimes),
              VELKOR_W_NO_EVENT);
  }

  // Object form, Efron ties, as the front end calls it: a record array of Double columns (time,
  // status, covariates) built with oleaut32; veteran's cell type as a record array of BSTR labels
  // beside it (treatment coding, first level the reference).
  struct ObjectCase {
    const CoxFixture* f;
    int numeric;
    const char* const* labels;
    std::vector<std::u16string> design;  // empty: the fixture's covariate names
  };
  const ObjectCase cases[] = {
      {&lung_efron, 5, nullptr, {}},
      {&veteran_efron, 5, nullptr, {}},
      {&veteran_celltype_efron,
       2,
       veteran_celltype_labels,
       {u"karno", u"age", u"celltype=large", u"celltype=smallcell", u"celltype=squamous"}}};
  for (const ObjectCase& c : cases) {
    const CoxFixture& f = *c.f;
    Columns columns =
        real_columns({{u"time", {f.time, f.time + f.n}}, {u"status", {f.status, f.status + f.n}}});
    cST_FactorsInfo factors;
    for (int j = 0; j < c.numeric; ++j) {
      columns.push_back(
          {u16(f.names[j]), {VT_R8, doubles(f.x + static_cast<std::size_t>(j) * f.n, f.n)}});
      factors.quantitative.push_back(2 + j);
    }
    std::vector<std::u16string> labels, design = c.design;
    for (int i = 0; c.labels && i < f.n; ++i) labels.push_back(u16(c.labels[i]));
    if (design.empty())
      for (int j = 0; j < f.p; ++j) design.push_back(u16(f.names[j]));
    if (c.labels) factors.qualitative = {0};
    RecordArray numeric(columns), text({{u"celltype", {VT_BSTR, strings(labels)}}});
    COX_Param param;
    param.ties = 1;
    param.tolerance = 1e-9;
    cCOX_Results res;
    VELKORInfo info;
    const int status =
        compute(numeric.psa, c.labels ? text.psa : nullptr, param, res, factors, info);
    if (!wintest::check(status == 0, std::string(f.name) + ": status " + std::to_string(status),
                        __FILE__, __LINE__) ||
        !WCHECK_EQ(res.beta.count, static_cast<std::uint32_t>(f.p)))
      continue;
    WCHECK_ALL(res.beta.data, f.coef, f.p, 1e-7);
    WCHECK_ALL(res.coefTable.data + f.p, f.se, f.p, 1e-7);
    WCHECK_NEAR(res.logLik0, f.loglik0, 1e-10);
    WCHECK_NEAR(res.logLik, f.loglik, 1e-10);
    WCHECK(factors.designNames == design);
  }

  // The error record of a failed object call: no event at all.
  {
    RecordArray numeric(
        real_columns({{u"time", {1, 2, 3}}, {u"status", {0, 0, 0}}, {u"x", {0.1, 0.4, 0.2}}}));
    COX_Param param;
    cCOX_Results res;
    cST_FactorsInfo factors;
    factors.quantitative = {2};
    VELKORInfo info;
    WCHECK_EQ(compute(numeric.psa, nullptr, param, res, factors, info), VELKOR_W_NO_EVENT);
    WCHECK(info.error.key == u"NoEvent");
    WCHECK_EQ(info.error.status, VELKOR_W_NO_EVENT);
  }
}
