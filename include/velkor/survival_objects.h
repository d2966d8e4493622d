// Object (_ST) interface of the descriptive survival family, and its C++ workers exported under
// their own names (matrix<double> arguments; layouts as in velkor/survival.h).
//
// Column sets are std::vector<VectDPtr>: one cST_MVect<double> per column, all of one length.
#pragma once

#include <cstdint>
#include <vector>

#include "velkor/containers.h"
#include "velkor/export.h"
#include "velkor/objects.h"

// ---------------------------------------------------------------------------------------------
// Parameters and results
// ---------------------------------------------------------------------------------------------

// Options of a descriptive survival analysis. Column indices are 0-based into
// cST_DataSet::columns; -1 means "absent".
struct SURV_Param {
  int timeColumn = 0;
  int statusColumn = 1;
  int weightColumn = -1;       // -1: unit weights (grouped = -1: required, the censored counts)
  int groupColumn = -1;        // numeric labels; -1: one group
  int eventCode = 1;           // status value of an event. 1: the status column is taken as it is
                               // (0/1, range-checked); another code: recoded, eventCode -> 1,
                               // any other non-missing value -> 0 (censored)
  std::int16_t grouped = 0;    // -1: status = number of events, weights = number censored
  std::int16_t lifeTable = 0;  // -1: actuarial life table instead of Kaplan-Meier
  double intervalWidth = 0.0;  // life table: interval width (<= 0: largest time / 10)
  double alpha = 0.05;         // significance level of every interval and test
  int nelsonAalenMethod = 1;   // 1 Aalen, 2 (n-d)d/n^3, 3 (n-d)d/(n^2(n-1))
  std::int16_t hazardChart = -1;  // chart options, -1 on
  std::int16_t logLogChart = -1;
  std::int16_t failureChart = 0;
  int markerMode = 1;
};

// Result of Cpp_ReorganizeData_ST: the ordered columns and the group blocks.
struct cSURV_Data {
  VectDPtr times, status, weights, groups;  // n values each, ordered
  std::vector<double> labels;               // group labels, ascending
  std::vector<std::uint32_t> offsets;       // 0-based first row of each block
  std::vector<std::uint32_t> sizes;         // rows of each block
  double maxTime = 0.0;
  int statusCode = 0;  // status code of the preparation
};

// Everything computed for one group.
struct cSURV_Group {
  double label = 0.0;
  std::uint32_t offset = 0, size = 0;
  double total = 0.0;                 // initial number at risk
  std::uint32_t rows = 0;             // last PL row T
  std::vector<VectDPtr> table;        // 12 columns of T + 1 rows (origin first)
  std::vector<VectDPtr> nelsonAalen;  // 9 columns of T rows (Cpp_TransNelsonAalen layout)
  std::vector<VectDPtr> mainSeries, hazardSeries, logLogSeries;  // chart series (7, 3, 3 cols)
  double timeCap = 0.0;
  std::vector<VectDPtr> mean;       // 4 columns of 1 value: mean, SE, lower, upper
  std::vector<VectDPtr> quartiles;  // 4 columns of 3 values: label, time, lower, upper
};

// Result of a full analysis.
struct cSURV_Results {
  cSURV_Data data;
  std::vector<cSURV_Group> groups;
  std::vector<VectDPtr> combined;  // 3G + 1 columns of T values: the transposed combined table
  std::vector<VectDPtr> tests;     // 4 columns of 3 rows (ComputeLifeTests layout)
  std::vector<VectDPtr> pairwise;  // 7 columns of 3P rows (Cpp_ComputeMultComp layout)
};

// Record filled by cReorganizeData: its first field is the largest time.
struct cReorganizeResult {
  double maxTime = 0.0;
};

// ---------------------------------------------------------------------------------------------
// Object entry points. Each returns a status code and never throws; on a negative status the
// ErrorInfo of `info` is filled.
// ---------------------------------------------------------------------------------------------

// Checks and orders the data set's time/status/weight/group columns (cReorganizeData). The
// status column is recoded to 1 (== eventCode) / 0 first, unless grouped = -1. Returns the codes
// of ReorganizeData; 3 (null array) when a named column is missing or shorter than the time
// column.
VELKOR_API int Cpp_ReorganizeData_ST(cST_DataSet& data, SURV_Param& param, cSURV_Data& out,
                                     cST_FactorsInfo& factors, VELKORInfo& info);

// Product-limit (or life) tables of every group of prepared data into `res.groups`.
VELKOR_API int cRunLife_ST(cSURV_Data& data, SURV_Param& param, cSURV_Results& res);

// The full analysis: preparation, tables, Nelson-Aalen, charts, mean and quartiles of every
// group, and with two groups or more the three tests and the pairwise comparisons. Returns the
// preparation's status (-1, -2 stop; -3, -5 warnings with complete results).
VELKOR_API int Cpp_RunLife_ST(cST_DataSet& data, SURV_Param& param, cSURV_Results& res,
                              cST_FactorsInfo& factors, VELKORInfo& info);

// Nelson-Aalen table of a group whose PL table is built.
VELKOR_API int TransNelsonAalen_ST(cSURV_Group& group, double alpha, int method);

// Chart series of one PL table (column set of 12 columns, rows 0..rows). `count` is the number of
// main-series points (2 rows + 1; smaller values truncate). start: its first element is the x of
// the second origin point. The three series are resized to 7, 3 and 3 columns.
VELKOR_API int PrepareKaplanCharts_ST(int rows, int count, std::int16_t hazardOption,
                                      std::int16_t logLogOption, std::int16_t failureOption,
                                      cST_MVect<double>& start, std::vector<VectDPtr>& table,
                                      double alpha, std::vector<VectDPtr>& mainSeries,
                                      std::vector<VectDPtr>& hazardSeries,
                                      std::vector<VectDPtr>& logLogSeries, int markerMode);

// Nelson-Aalen chart (2T points x 5: x, H, lower, upper, censored marker) of a group.
VELKOR_API int PrepareNelsonACharts_ST(cSURV_Group& group, std::vector<VectDPtr>& series);

// Life-table chart (rows + 1 points x 6: x, S, lower, upper, hazard, density) of a group whose
// table is a life table.
VELKOR_API int PrepareLifeChart_ST(cSURV_Group& group, double alpha, std::vector<VectDPtr>& series);

// Mean and quartiles of one PL table (ComputeKaplanMeanMedian layout): mean 4 columns of 1,
// quartiles 4 columns of 3 (resized here).
VELKOR_API int ComputeKaplanMeanMedian_ST(std::vector<VectDPtr>& table, int nRows, double alpha,
                                          int k, double& cap, std::vector<VectDPtr>& mean,
                                          std::vector<VectDPtr>& quartiles);

// Combined table of the groups of `res` into res.combined.
VELKOR_API int LoadKaplanTest_ST(cSURV_Results& res);

// Three tests (res.tests) and pairwise comparisons (res.pairwise) of the groups of `res`.
VELKOR_API int Cpp_ComputeLifeTest_ST(cSURV_Results& res, double alpha);

// Report table of a group, resized here. lifeTable = 0 (Kaplan-Meier), 8 columns of T rows:
// time, at risk, events, censored, S, SE(S) = S sqrt(G), lower and upper limits of the linear
// band S -+ z SE clipped to [0, 1]. lifeTable = -1, 14 columns of one row per interval: start,
// end, entering, events, censored, effective number at risk n', conditional probability of
// death q = 1 - p, survival at the start, survival at the end S, SE(S) = S sqrt(G), density f,
// SE(f) = f sqrt(G_(j-1) + p / (n' q)) (0 when q = 0), hazard, SE(hazard).
VELKOR_API int Cpp_Build_LifeTable_ST(cSURV_Group& group, std::int16_t lifeTable, double alpha,
                                      std::vector<VectDPtr>& report);

// ---------------------------------------------------------------------------------------------
// C++ workers exported under their own names (documented in full in survival/*.h of the source
// tree; summarised here). matrix<double> arguments are n x 1 vectors or tables as stated.
// ---------------------------------------------------------------------------------------------
VELKOR_API int cReorganizeData(matrix<double>* times, int& n, matrix<double>* status,
                               matrix<double>* weights, matrix<double>* groups,
                               matrix<double>* groupSizes, int nGroups, short grouped,
                               cReorganizeResult& result);
VELKOR_API int CheckStatusFormat(const matrix<double>* status, int n, matrix<double>* codes,
                                 std::uint32_t& nCodes, int censorCode, matrix<double>* recoded);
VELKOR_API int ComputeKaplanMeier(std::uint32_t offset, int n, short grouped, int eventCode,
                                  matrix<double>* times, matrix<double>* status,
                                  matrix<double>* weights, double& total, matrix<double>* table,
                                  std::uint32_t& rows, matrix<double>* workspace);
VELKOR_API int ComputeLife(std::uint32_t offset, int n, short grouped, int eventCode,
                           matrix<double>* times, matrix<double>* status, matrix<double>* weights,
                           double& total, matrix<double>* table, std::uint32_t& rows, double width);
VELKOR_API int cRunLife(matrix<double>* times, matrix<double>* status, matrix<double>* weights,
                        int n, matrix<double>* groupSizes, int nGroups, short grouped,
                        int eventCode, short lifeTable, double width, int blockRows,
                        matrix<double>* tables, matrix<double>* lastRows, matrix<double>* totals);
VELKOR_API int TransNelsonAalen(matrix<double>* km, int T, double alpha, int method,
                                matrix<double>* na);
VELKOR_API int cLoadKaplanTest(int& count, matrix<double>* source, int G, int R,
                               matrix<double>* lastRows, matrix<double>* table);
VELKOR_API int cComputeLifeTests(matrix<double>* table, int T, int G, double alpha,
                                 matrix<double>* results);
VELKOR_API int ComputeKaplanMeanMedian(matrix<double>* table, double alpha, int k, int nRows,
                                       double& cap, matrix<double>* mean,
                                       matrix<double>* quartiles);
