// C++ workers of the competing-risks family exported under their own names. They take the
// library's matrix<double> containers (n x 1 columns, tables column-major) and follow exactly the
// flat entry points of velkor/competing.h, which document every argument; none of them throws.
#pragma once

#include "velkor/containers.h"
#include "velkor/export.h"

// Orders the rows into ascending group-label blocks, each ascending in time, and fills allCause
// (0 censored, 1 any cause); maxTime receives the largest time. Returns -2, -3, -5 or 0 as
// Cpp_ReorganizeDataCum, or a positive code on internal failure.
// groupSizes is a 1 x nGroups row, read as groupSizes(1, g) for g = 1 .. nGroups, as the flat entry
// builds it; a column (nGroups x 1) would be read past its first cell through the spare element,
// giving size 0 to every later group.
VELKOR_API int ReorganizeDataCum(matrix<double>* times, int n, matrix<double>* status,
                                 matrix<double>* allCause, matrix<double>* groups,
                                 matrix<double>* groupSizes, int nGroups, double& maxTime);

// Incidence (T x 10, column 3 added to) and complement (T x 10) tables of `cause` in the group
// block offset .. offset + n - 1; productLimit is the group's all-cause product-limit table
// (table row j in matrix row j + 1). No return value; an internal failure leaves the tables as
// far as they were written.
VELKOR_API void CumIncCalc(int T, matrix<double>* times, matrix<double>* status, int cause,
                           double alpha, int n, int offset, matrix<double>* productLimit,
                           matrix<double>* incidence, matrix<double>* complement);

// Gray's test (Cpp_GrayTest); strata, scores and variance may be null.
VELKOR_API int GrayTest(matrix<double>* times, matrix<double>* status, matrix<double>* groups,
                        matrix<double>* strata, int n, int cause, double rho, int nCauses,
                        int nGroups, matrix<double>* tests, matrix<double>* scores,
                        matrix<double>* variance);
