// Chart series of the product-limit curve (step points, linear Greenwood band, failure curve,
// cumulative hazard, log-log, censored markers), of the Nelson-Aalen curve and of the life table.
// Every series cell not given a value holds the missing-value marker.
#pragma once

#include "velkor/containers.h"

// KaplanChartSeries: `rows` product-limit rows of `table` (layout of survival/kaplan_meier.h).
//   main   (2 rows + 1) x 7: x, lower, upper, survival, failure 1 - S, censored marker on S,
//          censored marker on 1 - S. Points 1 and 2 (1-based) are the origin (x = 0) and
//          (x = startX), both at S = lower = upper = 1 and failure 0 (whatever the failure option);
//          row i gives point 2i + 1 at x = t_i and, when i < rows, point 2i + 2 at x = t_(i+1),
//          both at height S_i with the linear band S_i -+ z S_i sqrt(G_i) clipped to [0, 1], z =
//          Phi^-1(1 - alpha / 2);
//   hazard (2 rows - 1) x 3: x, -ln S, marker; point k goes with main point k + 2 (both step
//          points of a row), drawn when hazardOpt = -1 and S_i > 0;
//   logLog (2 rows - 1) x 3: ln x, ln(-ln S), marker; drawn when logLogOpt = -1, t_i > 0 and
//          0 < S_i < 1;
//   failure column filled when failureOpt = -1.
// Censored markers exist only when some row has c_i > 0. Row i with c_i > 0 copies main point
// 2i + 1 into the marker columns; the hazard and log-log markers (point 2i - 1) are set with
// markerMode 1 when c_i > 0, with any other mode when d_i > 0 and c_i > 0 (c_i not missing,
// 2i - 1 within the series). Series shorter than stated lose their tail into the spare element.
// Returns 0. Cost O(rows).
int KaplanChartSeries(int rows, short hazardOpt, short logLogOpt, short failureOpt, double startX,
                      matrix<double>* table, double alpha, matrix<double>* main,
                      matrix<double>* hazard, matrix<double>* logLog, int markerMode);

// NelsonAalenChartSeries: step series of a Nelson-Aalen table (T x 9, survival/kaplan_meier.h).
//   series 2T x 5: x, H, lower, upper, censored marker on H. Point 1 is the origin (0, 0);
//   row i gives points 2i (x = t_i) and 2i + 1 (x = t_(i+1), when i < T) at height H_i with its
//   log-transformed limits; rows before the first event have no points (marker); row i with
//   c_i > 0 and an estimate copies H_i into the marker column of point 2i. Returns 0. Cost O(T).
int NelsonAalenChartSeries(int T, matrix<double>* na, matrix<double>* series);

// LifeChartSeries: the life-table survival curve, joined linearly between interval ends.
//   series (rows + 1) x 6: x (0, then each interval end b_j), survival S(b_j), lower, upper
//   (linear band, clipped to [0, 1]), hazard of the interval ending at x, density of that
//   interval (first point: 1, 1, 1 and missing hazard and density). Returns 0. Cost O(rows).
int LifeChartSeries(int rows, matrix<double>* table, double alpha, matrix<double>* series);
