// Parametric survival regression through VELKORLI1M.dll: every survreg case of the Linux fixture
// (tests/reference/parametric/expected.csv) fitted by Cpp_RunParamReg, the likelihood entry and
// the optimiser at the estimate, and bad input.
#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "velkor/VELKORLI1M.h"
#include "windows/harness.h"

namespace {

// One data set of the fixture: log times, codes, log upper bounds, weights, design (n x p).
struct DataSet {
  std::vector<double> y, code, bounds, w, x;
  int n = 0, p = 0;
};

DataSet read_data(const std::string& name) {
  const wintest::Csv csv = wintest::read_csv("parametric/data_" + name + ".csv");
  DataSet d;
  d.y = csv["y"];
  d.code = csv["code"];
  d.w = csv["w"];
  d.n = static_cast<int>(d.y.size());
  d.bounds = d.y;
  d.bounds.insert(d.bounds.end(), csv["upper"].begin(), csv["upper"].end());
  for (std::size_t j = 4; j < csv.names.size(); ++j, ++d.p)
    d.x.insert(d.x.end(), csv.columns[j].begin(), csv.columns[j].end());
  return d;
}

}  // namespace

VELKOR_WIN_FAMILY(parametric) {
  auto run = VELKOR_PROC(lib, Cpp_RunParamReg);
  auto loglike = VELKOR_PROC(lib, Cpp_ComputeLogLikeDerivativesParam);
  auto optimize = VELKOR_PROC(lib, Cpp_OptimizeParamModel);
  if (!run || !loglike || !optimize) return;

  // Expected values by case: data set, law, weighting and the coef / se /
  // loglik vectors.
  const wintest::Csv expected = wintest::read_csv("parametric/expected.csv");
  struct Case {
    std::string data;
    int dist = 0;
    bool weighted = false;
    std::map<std::string, std::vector<double>> values;
  };
  std::map<std::string, Case> cases;
  for (std::size_t r = 0; r < expected.rows(); ++r) {
    Case& c = cases[expected.text("case")[r]];
    c.data = expected.text("data")[r];
    c.dist = static_cast<int>(expected["dist"][r]);
    c.weighted = expected["weighted"][r] == 1.0;
    c.values[expected.text("kind")[r]].push_back(expected["value"][r]);
  }

  int fitted = 0;
  for (const auto& [name, c] : cases) {
    if (!c.values.count("coef")) continue;
    const DataSet d = read_data(c.data);
    const int k = c.dist == 1 ? 1 : 2, np = d.p + k;
    std::vector<double> params(np), cov(np * np), crit(14), ptable(np * 6), tests(9),
        history(d.p * 4), resid(d.n * 4), kept(d.p);
    int iterations = 100, nKept = -1;
    const int status =
        run(d.y.data(), d.n, d.p, d.code.data(), d.bounds.data(), d.x.data(),
            c.weighted ? d.w.data() : nullptr, c.dist, -1, 0.05, 0.1, &iterations, 1e-12, 0, 0.0, 0,
            0.05, params.data(), cov.data(), crit.data(), ptable.data(), tests.data(),
            history.data(), resid.data(), kept.data(), &nKept);
    if (!wintest::check(status == 0, name + ": status " + std::to_string(status), __FILE__,
                        __LINE__))
      continue;
    const auto& coef = c.values.at("coef");
    const auto& se = c.values.at("se");
    for (int j = 0; j < np; ++j) {
      WCHECK_NEAR(params[j], coef[j], 1e-6);
      WCHECK_NEAR(std::sqrt(-cov[j * np + j]), se[j], 1e-6);
    }
    // survreg's log-likelihood carries the -log t Jacobian of events for every
    // law; the library's only for the Weibull law.
    double jacobian = 0;
    if (c.dist != 2)
      for (int i = 0; i < d.n; ++i)
        if (d.code[i] == 1) jacobian += (c.weighted ? d.w[i] : 1.0) * d.y[i];
    WCHECK_NEAR(-0.5 * crit[9] - jacobian, c.values.at("loglik")[0], 1e-10);
    // The likelihood entry at the estimate: the same -2 log L, a zero gradient.
    double ll = 0;
    std::vector<double> grad(np), hess(np * np);
    WCHECK_EQ(
        loglike(d.y.data(), d.n, d.p, k, d.code.data(), d.bounds.data(), d.x.data(), params.data(),
                c.weighted ? d.w.data() : nullptr, c.dist, &ll, grad.data(), hess.data()),
        0);
    WCHECK_NEAR(-2 * ll, crit[9], 1e-9);
    for (int j = 0; j < np; ++j) WCHECK(std::fabs(grad[j]) < 1e-4);
    // The optimiser alone reaches the same estimate.
    std::vector<double> theta(np), g2(np), h2(np * np);
    int it = 100;
    double ll2 = 0;
    WCHECK_EQ(optimize(d.y.data(), d.n, d.p, k, d.code.data(), d.bounds.data(), d.x.data(),
                       c.weighted ? d.w.data() : nullptr, &it, 1e-12, c.dist, 0, 0.0, &ll2,
                       g2.data(), h2.data(), theta.data()),
              0);
    for (int j = 0; j < np; ++j) WCHECK_NEAR(theta[j], params[j], 1e-6);
    ++fitted;
  }
  WCHECK(fitted >= 3);

  // A null array given a positive length: the call fails, nothing is written.
  std::vector<double> params(3, -7.0), cov(9), crit(14), ptable(18), tests(9), resid(8), none;
  int iterations = 10, nKept = -1;
  double code[] = {1, 1}, y[] = {1, 2};
  WCHECK_EQ(run(y, 2, 0, code, nullptr, nullptr, nullptr, 2, -1, 0.05, 0.1, &iterations, 1e-9, 0,
                0.0, 0, 0.05, params.data(), cov.data(), crit.data(), ptable.data(), tests.data(),
                nullptr, resid.data(), nullptr, &nKept),
            VELKOR_E_NULL_ARRAY);
  WCHECK_EQ(params[0], -7.0);
}
