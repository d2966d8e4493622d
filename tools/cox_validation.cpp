// Cox model validation through the object interface, for the tool and the Python package.
#include "cox_validation.h"

#include <algorithm>
#include <cstddef>
#include <string>

#include "velkor/cox_objects.h"
#include "velkor/status.h"

namespace {

void CopyOut(const VectD& from, double* to, std::size_t cells) {
  if (!to) return;
  std::fill(to, to + cells, VELKOR_MISSING);
  std::copy_n(from.data, std::min<std::size_t>(cells, from.count), to);
}

}  // namespace

extern "C" int velkor_cox_validation(const double* time, const double* status,
                                     const double* weights, const double* x, const double* strata,
                                     int n, int q, int ties, int maxIter, double tol, double alpha,
                                     int phTransform, int cvFolds, int bootstrap, unsigned seed,
                                     velkor_progress_fn progress, void* context, double* phTest,
                                     double* cvTable, double* bootTable, int* completed) {
  if (completed) *completed = 1;
  if (n < 1 || q < 1 || !time || !status || !x) return VELKOR_E_NULL_ARRAY;
  try {
    const auto un = static_cast<std::uint32_t>(n);
    const auto uq = static_cast<std::size_t>(q);
    cST_DataSet data;
    data.add(u"time", time, un);
    data.add(u"status", status, un);
    COX_Param param;
    param.timeColumn = 0;
    param.statusColumn = 1;
    if (weights) {
      param.weightColumn = static_cast<int>(data.columns.size());
      data.add(u"weight", weights, un);
    }
    if (strata) {
      param.strataColumn = static_cast<int>(data.columns.size());
      data.add(u"stratum", strata, un);
    }
    cST_FactorsInfo factors;
    for (std::size_t j = 0; j < uq; ++j) {
      factors.quantitative.push_back(static_cast<int>(data.columns.size()));
      std::u16string name(u"x");
      for (const char c : std::to_string(j + 1)) name.push_back(static_cast<char16_t>(c));
      data.add(name, x + j * un, un);
    }
    param.ties = ties;
    param.maxIterations = maxIter;
    param.validationIterations = maxIter;
    param.tolerance = tol;
    param.alpha = alpha;
    param.seed = seed;
    param.proportionalityTest = phTransform >= 0 ? -1 : 0;
    param.phTransform = phTransform;
    cCOX_Results res;
    // The survival function and residuals are only needed by the proportional-hazards test.
    res.suppressSurvival = phTransform >= 0 ? 0 : -1;
    VELKORInfo info;
    const int st = COX_Compute_ST(data, param, res, factors, info);
    if (st != 0) return st;
    CopyOut(res.phTest, phTest, (uq + 1) * 3);
    // Each long phase separately, so that the progress callback knows which one is running.
    // This is what COX_RunCoxReg_ST does after the fit: validation reads param and the fitted res.
    auto phase = [&](int which) {
      info.progress = [=](std::int64_t done, std::int64_t total) {
        const bool go = !progress || progress(which, done, total, context) != 0;
        if (!go && completed) *completed = 0;
        return go;
      };
    };
    if (cvFolds >= 2) {
      param.cvFolds = cvFolds;
      phase(VELKOR_PHASE_CROSS_VALIDATION);
      const int rc = CoxCV_ST(param, res, info);
      if (rc > 0) return rc;
      CopyOut(res.cvTable, cvTable, static_cast<std::size_t>(std::min(cvFolds, n) + 2) * 5);
    }
    if (bootstrap >= 1) {
      param.bootstrapSamples = bootstrap;
      phase(VELKOR_PHASE_BOOTSTRAP);
      const int rc = ComputeBootOut_ST(param, res, info);
      if (rc > 0) return rc;
      CopyOut(res.bootTable, bootTable, (uq + 1) * 6);
    }
    return 0;
  } catch (const std::bad_alloc&) {
    return VELKOR_E_OUT_OF_MEMORY;
  } catch (...) {
    return VELKOR_E_INTERNAL;
  }
}
