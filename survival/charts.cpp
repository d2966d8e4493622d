#include "survival/charts.h"

#include <algorithm>
#include <cmath>

#include "companion/distributions.h"
#include "core/numeric.h"
#include "survival/kaplan_meier.h"

using velkor::kMissing;

namespace {

void fill_missing(matrix<double>* m) {
  for (std::uint64_t k = 0; k < m->count; ++k) m->data[k] = kMissing;
}

double tab(matrix<double>* t, int row, int col) {
  return t->at0(static_cast<std::uint64_t>(row), static_cast<std::uint64_t>(col - 1));
}

}  // namespace

int KaplanChartSeries(int rows, short hazardOpt, short logLogOpt, short failureOpt, double startX,
                      matrix<double>* table, double alpha, matrix<double>* main,
                      matrix<double>* hazard, matrix<double>* logLog, int markerMode) {
  using namespace km_col;
  // 1.
  const double z = InvCDFNormalStd(1.0 - alpha * 0.5);
  // 2. Everything missing, then the two origin points.
  fill_missing(main);
  fill_missing(hazard);
  fill_missing(logLog);
  const bool fail = failureOpt == -1, haz = hazardOpt == -1, ll = logLogOpt == -1;
  const double origins[2] = {0.0, startX};
  for (int k = 1; k <= 2; ++k) {
    main->set(k, 1, origins[k - 1]);
    main->set(k, 2, 1.0);
    main->set(k, 3, 1.0);
    main->set(k, 4, 1.0);
    main->set(k, 5, 0.0);  // the origin points carry failure 0 whatever the option
  }
  bool anyCensored = false;
  for (int i = 1; i <= rows; ++i) anyCensored = anyCensored || tab(table, i, kCensored) > 0.0;
  // 3-6. Two step points per row.
  for (int i = 1; i <= rows; ++i) {
    const double S = tab(table, i, kSurv);
    const double half = z * S * std::sqrt(tab(table, i, kGreenwood));
    const double lower = std::max(0.0, S - half), upper = std::min(1.0, S + half);
    const int points = i < rows ? 2 : 1;
    for (int s = 0; s < points; ++s) {
      const double x = tab(table, i + s, kTime);
      const int m = 2 * i + 1 + s, h = 2 * i - 1 + s;
      main->set(m, 1, x);
      main->set(m, 2, lower);
      main->set(m, 3, upper);
      main->set(m, 4, S);
      if (fail) main->set(m, 5, 1.0 - S);
      if (haz && S > 0.0) {
        hazard->set(h, 1, x);
        hazard->set(h, 2, -std::log(S));
      }
      if (ll && tab(table, i, kTime) > 0.0 && S > 0.0 && S < 1.0) {
        logLog->set(h, 1, std::log(x));
        logLog->set(h, 2, std::log(-std::log(S)));
      }
    }
  }
  // 7. Censored markers.
  if (!anyCensored) return 0;
  const long long hazardLength = hazard->rows;
  for (int i = 1; i <= rows; ++i) {
    const double c = tab(table, i, kCensored), d = tab(table, i, kEvents);
    if (c > 0.0) {
      main->set(2 * i + 1, 6, (*main)(2 * i + 1, 4));
      if (fail) main->set(2 * i + 1, 7, (*main)(2 * i + 1, 5));
    }
    const bool mark = markerMode == 1 ? c > 0.0
                                      : d > 0.0 && c > 0.0 && !velkor::IsMissing(c) &&
                                            2LL * i - 1 <= hazardLength;
    if (!mark) continue;
    const double S = tab(table, i, kSurv), t = tab(table, i, kTime);
    if (haz && S > 0.0) hazard->set(2 * i - 1, 3, (*hazard)(2 * i - 1, 2));
    if (ll && t > 0.0 && S > 0.0 && S < 1.0) logLog->set(2 * i - 1, 3, (*logLog)(2 * i - 1, 2));
  }
  return 0;
}

int NelsonAalenChartSeries(int T, matrix<double>* na, matrix<double>* series) {
  fill_missing(series);
  series->set(1, 1, 0.0);
  series->set(1, 2, 0.0);
  series->set(1, 3, 0.0);
  series->set(1, 4, 0.0);
  for (int i = 1; i <= T; ++i) {
    const double H = (*na)(i, 5);
    if (velkor::IsMissing(H)) continue;
    const int points = i < T ? 2 : 1;
    for (int s = 0; s < points; ++s) {
      const int m = 2 * i + s;
      series->set(m, 1, (*na)(i + s, 1));
      series->set(m, 2, H);
      series->set(m, 3, (*na)(i, 8));
      series->set(m, 4, (*na)(i, 9));
    }
    if ((*na)(i, 4) > 0.0) series->set(2 * i, 5, H);
  }
  return 0;
}

int LifeChartSeries(int rows, matrix<double>* table, double alpha, matrix<double>* series) {
  using namespace km_col;
  const double z = InvCDFNormalStd(1.0 - alpha * 0.5);
  fill_missing(series);
  series->set(1, 1, 0.0);
  series->set(1, 2, 1.0);
  series->set(1, 3, 1.0);
  series->set(1, 4, 1.0);
  for (int j = 1; j <= rows; ++j) {
    const double S = tab(table, j, kSurv);
    const double half = z * S * std::sqrt(tab(table, j, kGreenwood));
    series->set(j + 1, 1, tab(table, j, kEnd));
    series->set(j + 1, 2, S);
    series->set(j + 1, 3, std::max(0.0, S - half));
    series->set(j + 1, 4, std::min(1.0, S + half));
    series->set(j + 1, 5, tab(table, j, kHazard));
    series->set(j + 1, 6, tab(table, j, kDensity));
  }
  return 0;
}
