// Object (_ST) entry points of the descriptive survival family: conversions between data-set
// columns (cST_MVect) and the workers' matrix<double> containers. No statistics here.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <vector>

#include "core/frame.h"
#include "companion/distributions.h"
#include "core/numeric.h"
#include "survival/charts.h"
#include "survival/kaplan_meier.h"
#include "survival/life_tests.h"
#include "survival/mean_median.h"
#include "survival/preparation.h"
#include "velkor/survival_objects.h"

namespace {

using velkor::kMissing;

// A column set of `cols` vectors of `len` values each, set to `init`.
std::vector<VectDPtr> column_set(std::uint32_t cols, std::uint32_t len, double init) {
  std::vector<VectDPtr> out;
  out.reserve(cols);
  for (std::uint32_t c = 0; c < cols; ++c)
    out.push_back(std::shared_ptr<VectD>(new VectD(len, init)));
  return out;
}

// Column set -> rows x cols matrix (short columns read their spare element).
matrix<double> to_matrix(std::vector<VectDPtr>& set, std::uint32_t rows) {
  const auto cols = static_cast<std::uint32_t>(set.size());
  matrix<double> m(rows, cols);
  for (std::uint32_t c = 0; c < cols; ++c) {
    if (!set[c]) continue;
    for (std::uint32_t r = 0; r < rows; ++r) m.at0(r, c) = (*set[c])[r];
  }
  return m;
}

// matrix -> column set of its rows x cols.
std::vector<VectDPtr> from_matrix(matrix<double>& m) {
  std::vector<VectDPtr> out;
  for (std::uint32_t c = 0; c < m.cols; ++c)
    out.push_back(
        std::shared_ptr<VectD>(new VectD(m.data + static_cast<std::uint64_t>(c) * m.rows, m.rows)));
  return out;
}

void report(VELKORInfo& info, int status, const char16_t* key, const char16_t* text) {
  if (status >= 0 && status != -3 && status != -5) return;
  LoadErrorInfo_ST(key, text, u"Kaplan-Meier", status, -1, -1, 0, u"", 0, 0,
                   static_cast<std::int16_t>(status == -3 || status == -5 ? -1 : 0), u"",
                   info.error);
}

void report_status(VELKORInfo& info, int status) {
  switch (status) {
    case -1:
      report(info, status, u"StatusRange", u"A status value is below 0 or above 1.");
      break;
    case -2:
      report(info, status, u"TooFewObs", u"Fewer than two observations.");
      break;
    case -3:
      report(info, status, u"NoEvent", u"No event in the data.");
      break;
    case -5:
      report(info, status, u"AllEvents", u"Every observation is an event.");
      break;
    default:
      break;
  }
}

int prepare(cST_DataSet& data, SURV_Param& param, cSURV_Data& out) {
  const auto column = [&](int idx) -> VectD* {
    return idx >= 0 && static_cast<std::size_t>(idx) < data.columns.size()
               ? data.columns[static_cast<std::size_t>(idx)].get()
               : nullptr;
  };
  VectD* time = column(param.timeColumn);
  VectD* status = column(param.statusColumn);
  if (!time || !status || status->size() < time->size()) return VELKOR_E_NULL_ARRAY;
  const std::uint32_t n = time->size();
  VectD* weight = column(param.weightColumn);
  VectD* group = column(param.groupColumn);
  if ((param.weightColumn >= 0 && (!weight || weight->size() < n)) ||
      (param.groupColumn >= 0 && (!group || group->size() < n)))
    return VELKOR_E_NULL_ARRAY;

  matrix<double> t(n, 1, time->data, 0), s(n, 1, status->data, 0), w(n, 1), g(n, 1);
  const double event = static_cast<double>(param.eventCode);
  for (std::uint32_t i = 0; i < n; ++i) {
    double& v = s.data[i];
    if (param.grouped != -1 && param.eventCode != 1 && !velkor::IsMissing(v) && !std::isnan(v))
      v = v == event ? 1.0 : 0.0;
    w.data[i] = weight ? weight->data[i] : 1.0;
    g.data[i] = group ? group->data[i] : 0.0;
  }
  // Group labels (ascending, NaN last as the sort places them) and block sizes.
  std::map<double, std::uint32_t> counts;
  std::uint32_t nanCount = 0;
  for (std::uint32_t i = 0; i < n; ++i) {
    if (std::isnan(g.data[i]))
      ++nanCount;
    else
      ++counts[g.data[i]];
  }
  out = cSURV_Data{};
  for (const auto& [label, count] : counts) {
    out.labels.push_back(label);
    out.sizes.push_back(count);
  }
  if (nanCount > 0) {
    out.labels.push_back(std::nan(""));
    out.sizes.push_back(nanCount);
  }
  const auto G = static_cast<std::uint32_t>(out.sizes.size());
  matrix<double> sizes(1, G);
  std::uint32_t offset = 0;
  for (std::uint32_t k = 0; k < G; ++k) {
    sizes.data[k] = out.sizes[k];
    out.offsets.push_back(offset);
    offset += out.sizes[k];
  }
  int count = static_cast<int>(n);
  cReorganizeResult result;
  out.statusCode =
      cReorganizeData(&t, count, &s, &w, &g, &sizes, static_cast<int>(G), param.grouped, result);
  out.maxTime = result.maxTime;
  out.times = std::shared_ptr<VectD>(new VectD(t.data, n));
  out.status = std::shared_ptr<VectD>(new VectD(s.data, n));
  out.weights = std::shared_ptr<VectD>(new VectD(w.data, n));
  out.groups = std::shared_ptr<VectD>(new VectD(g.data, n));
  return out.statusCode;
}

}  // namespace

int Cpp_ReorganizeData_ST(cST_DataSet& data, SURV_Param& param, cSURV_Data& out,
                          cST_FactorsInfo& factors, VELKORInfo& info) {
  (void)factors;
  return velkor::guarded_call([&] {
    const int status = prepare(data, param, out);
    report_status(info, status);
    return status;
  });
}

int cRunLife_ST(cSURV_Data& data, SURV_Param& param, cSURV_Results& res) {
  return velkor::guarded_call([&] {
    const std::uint32_t n = data.times ? data.times->size() : 0;
    if (!data.status || !data.weights || data.status->size() < n || data.weights->size() < n)
      return VELKOR_E_NULL_ARRAY;
    matrix<double> t(n, 1, data.times->data, 1), s(n, 1, data.status->data, 1),
        w(n, 1, data.weights->data, 1);
    res.groups.clear();
    for (std::size_t k = 0; k < data.sizes.size(); ++k) {
      cSURV_Group grp;
      grp.label = k < data.labels.size() ? data.labels[k] : 0.0;
      grp.offset = k < data.offsets.size() ? data.offsets[k] : 0;
      grp.size = data.sizes[k];
      if (static_cast<std::uint64_t>(grp.offset) + grp.size > n) grp.size = 0;
      std::uint32_t capacity = grp.size + 1;
      if (param.lifeTable == -1) {
        double tMax = 0.0;
        for (std::uint32_t i = 0; i < grp.size; ++i) {
          const double v = t.data[grp.offset + i];
          if (std::isfinite(v) && v > tMax) tMax = v;
        }
        double width = param.intervalWidth;
        if (!(width > 0.0) || !std::isfinite(width)) width = tMax > 0.0 ? tMax / 10.0 : 1.0;
        capacity = static_cast<std::uint32_t>(std::min(std::floor(tMax / width) + 2.0, 100001.0));
      }
      matrix<double> table(capacity, km_col::kCount);
      for (std::uint64_t c = 0; c < table.count; ++c) table.data[c] = kMissing;
      std::uint32_t rows = 0;
      if (param.lifeTable == -1) {
        ComputeLife(grp.offset, static_cast<int>(grp.size), param.grouped, 1, &t, &s, &w, grp.total,
                    &table, rows, param.intervalWidth);
      } else {
        ComputeKaplanMeier(grp.offset, static_cast<int>(grp.size), param.grouped, 1, &t, &s, &w,
                           grp.total, &table, rows, nullptr);
      }
      grp.rows = rows;
      grp.table = column_set(km_col::kCount, rows + 1, kMissing);
      for (std::uint32_t c = 0; c < km_col::kCount; ++c)
        for (std::uint32_t r = 0; r <= rows; ++r) (*grp.table[c])[r] = table.at0(r, c);
      res.groups.push_back(std::move(grp));
    }
    return 0;
  });
}

int TransNelsonAalen_ST(cSURV_Group& group, double alpha, int method) {
  return velkor::guarded_call([&] {
    matrix<double> km = to_matrix(group.table, group.rows + 1);
    matrix<double> na(group.rows, 9);
    const int status = TransNelsonAalen(&km, static_cast<int>(group.rows), alpha, method, &na);
    group.nelsonAalen = from_matrix(na);
    return status;
  });
}

int PrepareKaplanCharts_ST(int rows, int count, std::int16_t hazardOption,
                           std::int16_t logLogOption, std::int16_t failureOption,
                           cST_MVect<double>& start, std::vector<VectDPtr>& table, double alpha,
                           std::vector<VectDPtr>& mainSeries, std::vector<VectDPtr>& hazardSeries,
                           std::vector<VectDPtr>& logLogSeries, int markerMode) {
  return velkor::guarded_call([&] {
    const std::uint32_t r = rows > 0 ? static_cast<std::uint32_t>(rows) : 0;
    const std::uint32_t points = count > 0 ? static_cast<std::uint32_t>(count) : 0;
    const std::uint32_t curve = points > 2 ? points - 2 : 0;
    matrix<double> km = to_matrix(table, r + 1);
    matrix<double> main(points, 7), haz(curve, 3), ll(curve, 3);
    const int status = KaplanChartSeries(rows, hazardOption, logLogOption, failureOption, start[0],
                                         &km, alpha, &main, &haz, &ll, markerMode);
    mainSeries = from_matrix(main);
    hazardSeries = from_matrix(haz);
    logLogSeries = from_matrix(ll);
    return status;
  });
}

int PrepareNelsonACharts_ST(cSURV_Group& group, std::vector<VectDPtr>& series) {
  return velkor::guarded_call([&] {
    matrix<double> na = to_matrix(group.nelsonAalen, group.rows);
    matrix<double> out(2 * group.rows > 0 ? 2 * group.rows : 1, 5);
    const int status = NelsonAalenChartSeries(static_cast<int>(group.rows), &na, &out);
    series = from_matrix(out);
    return status;
  });
}

int PrepareLifeChart_ST(cSURV_Group& group, double alpha, std::vector<VectDPtr>& series) {
  return velkor::guarded_call([&] {
    matrix<double> tab = to_matrix(group.table, group.rows + 1);
    matrix<double> out(group.rows + 1, 6);
    const int status = LifeChartSeries(static_cast<int>(group.rows), &tab, alpha, &out);
    series = from_matrix(out);
    return status;
  });
}

int ComputeKaplanMeanMedian_ST(std::vector<VectDPtr>& table, int nRows, double alpha, int k,
                               double& cap, std::vector<VectDPtr>& mean,
                               std::vector<VectDPtr>& quartiles) {
  return velkor::guarded_call([&] {
    const std::uint32_t rows = nRows > 0 ? static_cast<std::uint32_t>(nRows) : 0;
    matrix<double> tab = to_matrix(table, rows);
    matrix<double> m(1, 4), q(3, 4);
    // The worker writes the mean record as 4 x 1; lay it out as 4 columns of one value.
    matrix<double> mcol(4, 1);
    const int status = ComputeKaplanMeanMedian(&tab, alpha, k, nRows, cap, &mcol, &q);
    for (int c = 0; c < 4; ++c)
      m.at0(0, static_cast<std::uint64_t>(c)) = mcol.at0(static_cast<std::uint64_t>(c));
    mean = from_matrix(m);
    quartiles = from_matrix(q);
    return status;
  });
}

int LoadKaplanTest_ST(cSURV_Results& res) {
  return velkor::guarded_call([&] {
    const auto G = static_cast<std::uint32_t>(res.groups.size());
    std::uint32_t R = 1;
    std::uint64_t capacity = 0;
    for (const auto& g : res.groups) {
      R = std::max(R, g.rows + 1);
      capacity += g.rows;
    }
    matrix<double> source(G * R * km_col::kCount, 1), last(G, 1);
    for (std::uint32_t k = 0; k < G; ++k) {
      auto& g = res.groups[k];
      last.data[k] = g.rows;
      for (std::uint32_t c = 0; c < km_col::kCount && c < g.table.size(); ++c)
        for (std::uint32_t r = 0; r <= g.rows; ++r)
          source.data[(static_cast<std::uint64_t>(k) * km_col::kCount + c) * R + r] =
              (*g.table[c])[r];
    }
    int count = static_cast<int>(std::min<std::uint64_t>(capacity, 0x7fffffff));
    matrix<double> combined(3 * G + 1, static_cast<std::uint32_t>(count));
    const int status =
        cLoadKaplanTest(count, &source, static_cast<int>(G), static_cast<int>(R), &last, &combined);
    res.combined = column_set(3 * G + 1, static_cast<std::uint32_t>(count), kMissing);
    for (std::uint32_t row = 0; row < 3 * G + 1; ++row)
      for (std::uint32_t t = 0; t < static_cast<std::uint32_t>(count); ++t)
        (*res.combined[row])[t] = combined.at0(row, t);
    return status;
  });
}

int Cpp_ComputeLifeTest_ST(cSURV_Results& res, double alpha) {
  return velkor::guarded_call([&] {
    if (res.combined.empty()) {
      const int status = LoadKaplanTest_ST(res);
      if (status != 0) return status;
    }
    const auto rows = static_cast<std::uint32_t>(res.combined.size());
    const int G = static_cast<int>((rows - 1) / 3);
    const std::uint32_t T = rows > 0 && res.combined[0] ? res.combined[0]->size() : 0;
    matrix<double> combined(rows, T);
    for (std::uint32_t r = 0; r < rows; ++r)
      for (std::uint32_t t = 0; t < T; ++t) combined.at0(r, t) = (*res.combined[r])[t];
    matrix<double> tests(3, 4);
    int status = cComputeLifeTests(&combined, static_cast<int>(T), G, alpha, &tests);
    res.tests = from_matrix(tests);
    const int P = G >= 2 && G <= 20000 ? G * (G - 1) / 2 : 0;
    matrix<double> pairs(static_cast<std::uint32_t>(3 * P), 7);
    if (status == 0) status = cComputeMultComp(&combined, static_cast<int>(T), G, alpha, &pairs);
    res.pairwise = from_matrix(pairs);
    return status;
  });
}

int Cpp_Build_LifeTable_ST(cSURV_Group& group, std::int16_t lifeTable, double alpha,
                           std::vector<VectDPtr>& report) {
  return velkor::guarded_call([&] {
    const double z = InvCDFNormalStd(1.0 - alpha * 0.5);
    const std::uint32_t T = group.rows;
    matrix<double> tab = to_matrix(group.table, T + 1);
    auto at = [&](std::uint32_t j, int c) { return tab.at0(j, static_cast<std::uint64_t>(c - 1)); };
    using namespace km_col;
    if (lifeTable != -1) {
      matrix<double> out(T, 8);
      for (std::uint32_t j = 1; j <= T; ++j) {
        const double S = at(j, kSurv), se = S * std::sqrt(at(j, kGreenwood));
        const double vals[8] = {at(j, kTime),
                                at(j, kAtRisk),
                                at(j, kEvents),
                                at(j, kCensored),
                                S,
                                se,
                                std::max(0.0, S - z * se),
                                std::min(1.0, S + z * se)};
        for (int c = 0; c < 8; ++c) out.at0(j - 1, static_cast<std::uint64_t>(c)) = vals[c];
      }
      report = from_matrix(out);
      return 0;
    }
    matrix<double> out(T, 14);
    for (std::uint32_t j = 1; j <= T; ++j) {
      const double S = at(j, kSurv), p = at(j, kCondSurv), q = 1.0 - p, f = at(j, kDensity);
      const double eff = at(j, kRiskUsed);
      const double gPrev = j > 1 ? at(j - 1, kGreenwood) : 0.0;
      const double seF = q > 0.0 && eff > 0.0 ? f * std::sqrt(gPrev + p / (eff * q)) : 0.0;
      const double vals[14] = {at(j, kTime),
                               at(j, kEnd),
                               at(j, kAtRisk),
                               at(j, kEvents),
                               at(j, kCensored),
                               eff,
                               q,
                               at(j - 1, kSurv),
                               S,
                               S * std::sqrt(at(j, kGreenwood)),
                               f,
                               seF,
                               at(j, kHazard),
                               at(j, kHazardSE)};
      for (int c = 0; c < 14; ++c) out.at0(j - 1, static_cast<std::uint64_t>(c)) = vals[c];
    }
    report = from_matrix(out);
    return 0;
  });
}

int Cpp_RunLife_ST(cST_DataSet& data, SURV_Param& param, cSURV_Results& res,
                   cST_FactorsInfo& factors, VELKORInfo& info) {
  return velkor::guarded_call([&] {
    res = cSURV_Results{};
    const int prep = Cpp_ReorganizeData_ST(data, param, res.data, factors, info);
    if (prep != 0 && prep != -3 && prep != -5) return prep;
    int status = cRunLife_ST(res.data, param, res);
    for (auto& g : res.groups) {
      if (status != 0) break;
      status = TransNelsonAalen_ST(g, param.alpha, param.nelsonAalenMethod);
      cST_MVect<double> start(1, g.rows >= 1 ? (*g.table[0])[1] : 0.0);
      if (status == 0)
        status = PrepareKaplanCharts_ST(static_cast<int>(g.rows), static_cast<int>(2 * g.rows + 1),
                                        param.hazardChart, param.logLogChart, param.failureChart,
                                        start, g.table, param.alpha, g.mainSeries, g.hazardSeries,
                                        g.logLogSeries, param.markerMode);
      if (status == 0)
        status =
            ComputeKaplanMeanMedian_ST(g.table, static_cast<int>(g.rows + 1), param.alpha,
                                       static_cast<int>(g.size), g.timeCap, g.mean, g.quartiles);
    }
    if (status == 0 && res.groups.size() >= 2) status = Cpp_ComputeLifeTest_ST(res, param.alpha);
    return status != 0 ? status : prep;
  });
}
