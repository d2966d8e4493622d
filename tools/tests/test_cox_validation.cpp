// The validation helper of the front doors gives exactly what one call of the exported object
// entry point gives (the phases run one by one only so that progress can name them), reports the
// phases to the C callback and stops when asked.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "cox_validation.h"
#include "velkor/cox_objects.h"
#include "velkor/status.h"

namespace {

// A stratified data set with two covariates, heavy enough ties to exercise both tie rules.
struct Data {
  int n = 150, q = 2;
  std::vector<double> time, status, weight, x, strata;
  Data() {
    std::uint64_t s = 88172645463325252ULL;
    auto u = [&] {
      s ^= s << 13;
      s ^= s >> 7;
      s ^= s << 17;
      return static_cast<double>(s >> 11) * 0x1p-53;
    };
    x.resize(static_cast<std::size_t>(n * q));
    for (int i = 0; i < n; ++i) {
      const double a = u() * 2 - 1, b = u() < 0.4 ? 1.0 : 0.0;
      x[static_cast<std::size_t>(i)] = a;
      x[static_cast<std::size_t>(n + i)] = b;
      time.push_back(std::ceil(-std::log(u()) * 20 / std::exp(0.7 * a - 0.5 * b)));
      status.push_back(u() < 0.75 ? 1.0 : 0.0);
      weight.push_back(0.5 + u());
      strata.push_back(i % 3 == 0 ? 2.0 : 1.0);
    }
  }
};

struct HelperRun {
  int status = 0, completed = -1;
  std::vector<double> ph, cv, boot;
  std::vector<std::pair<int, long long>> calls;
};

int Record(int phase, long long done, long long /*total*/, void* self) {
  static_cast<HelperRun*>(self)->calls.emplace_back(phase, done);
  return 1;
}

HelperRun Helper(const Data& d, int ties, int folds, int B, velkor_progress_fn progress = Record) {
  HelperRun r;
  r.ph.assign(static_cast<std::size_t>(d.q + 1) * 3, 0);
  r.cv.assign(static_cast<std::size_t>(folds + 2) * 5, 0);
  r.boot.assign(static_cast<std::size_t>(d.q + 1) * 6, 0);
  r.status =
      velkor_cox_validation(d.time.data(), d.status.data(), d.weight.data(), d.x.data(),
                            d.strata.data(), d.n, d.q, ties, 50, 1e-7, 0.1, 3, folds, B, 5,
                            progress, &r, r.ph.data(), r.cv.data(), r.boot.data(), &r.completed);
  return r;
}

std::vector<double> Vec(const VectD& v) {
  return std::vector<double>(v.data, v.data + v.count);
}

}  // namespace

TEST(CoxValidationHelper, EqualsOneCallOfTheObjectEntryPoint) {
  const Data d;
  for (int ties : {0, 1}) {
    const HelperRun r = Helper(d, ties, 4, 37);
    ASSERT_EQ(r.status, 0);
    EXPECT_EQ(r.completed, 1);
    cST_DataSet data;
    data.add(u"time", d.time.data(), static_cast<std::uint32_t>(d.n));
    data.add(u"status", d.status.data(), static_cast<std::uint32_t>(d.n));
    data.add(u"weight", d.weight.data(), static_cast<std::uint32_t>(d.n));
    data.add(u"stratum", d.strata.data(), static_cast<std::uint32_t>(d.n));
    data.add(u"a", d.x.data(), static_cast<std::uint32_t>(d.n));
    data.add(u"b", d.x.data() + d.n, static_cast<std::uint32_t>(d.n));
    COX_Param param;
    param.weightColumn = 2;
    param.strataColumn = 3;
    param.ties = ties;
    param.maxIterations = param.validationIterations = 50;
    param.tolerance = 1e-7;
    param.alpha = 0.1;
    param.proportionalityTest = -1;
    param.phTransform = 3;
    param.cvFolds = 4;
    param.bootstrapSamples = 37;
    param.seed = 5;
    cST_FactorsInfo factors;
    factors.quantitative = {4, 5};
    cCOX_Results res;
    VELKORInfo info;
    ASSERT_EQ(COX_Compute_ST(data, param, res, factors, info), 0);
    EXPECT_EQ(r.ph, Vec(res.phTest));
    EXPECT_EQ(r.cv, Vec(res.cvTable));
    EXPECT_EQ(r.boot, Vec(res.bootTable));
    EXPECT_GT(r.ph[static_cast<std::size_t>(d.q)], 0.0);  // global chi-square computed
    EXPECT_NE(r.cv[1], VELKOR_MISSING);                   // fold 1 evaluated
    EXPECT_EQ(r.boot[5 * 3], 37.0);  // (q + 1) x 6: replicates used of the first coefficient
  }
}

TEST(CoxValidationHelper, ProgressNamesThePhasesAndCanStop) {
  const Data d;
  const HelperRun r = Helper(d, 0, 5, 40);
  const std::vector<std::pair<int, long long>> want = {{VELKOR_PHASE_CROSS_VALIDATION, 5},
                                                       {VELKOR_PHASE_BOOTSTRAP, 16},
                                                       {VELKOR_PHASE_BOOTSTRAP, 32},
                                                       {VELKOR_PHASE_BOOTSTRAP, 40}};
  EXPECT_EQ(r.calls, want);
  const HelperRun stopped =
      Helper(d, 0, 0, 40, [](int, long long, long long, void*) -> int { return 0; });
  ASSERT_EQ(stopped.status, 0);
  EXPECT_EQ(stopped.completed, 0);
  EXPECT_LT(stopped.boot[5 * 3], 40.0);  // fewer replicates than asked
}

TEST(CoxValidationHelper, BadInput) {
  const Data d;
  double out[64];
  auto call = [&](const double* t, const double* s, const double* x, int n, int q) {
    return velkor_cox_validation(t, s, nullptr, x, nullptr, n, q, 0, 50, 1e-7, 0.05, 0, 3, 5, 1,
                                 nullptr, nullptr, out, out, out, nullptr);
  };
  EXPECT_EQ(call(d.time.data(), d.status.data(), d.x.data(), 0, 1), VELKOR_E_NULL_ARRAY);
  EXPECT_EQ(call(d.time.data(), d.status.data(), d.x.data(), d.n, 0), VELKOR_E_NULL_ARRAY);
  EXPECT_EQ(call(nullptr, d.status.data(), d.x.data(), d.n, 1), VELKOR_E_NULL_ARRAY);
  const double t[] = {1, 2, 3}, bad[] = {1, 2, 0}, none[] = {0, 0, 0}, x[] = {1, 0, 1};
  EXPECT_EQ(call(t, bad, x, 3, 1), VELKOR_E_STATUS_RANGE);
  EXPECT_EQ(call(t, none, x, 3, 1), VELKOR_W_NO_EVENT);
  EXPECT_EQ(call(t, none, x, 1, 1), VELKOR_E_TOO_FEW);
}
