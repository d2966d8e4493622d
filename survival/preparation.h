// Survival data preparation: status checks, grouping and time ordering (cReorganizeData), and the
// recoding of a multi-cause status column (CheckStatusFormat).
//
// Layout produced by cReorganizeData and relied on by every survival estimator, the comparison
// tests, the regressions and the competing-risks preparation: contiguous group blocks in
// ascending order of their labels, each block ascending in time, a block being addressed by its
// 0-based offset (sum of the sizes of the blocks before it) and its size.
#pragma once

#include <cstdint>

#include "velkor/containers.h"
#include "velkor/survival_objects.h"

// cReorganizeResult (velkor/survival_objects.h): its first field receives the largest time.

// cReorganizeData: checks the status column, sorts the rows into group blocks and each block by
// time.
//   times    n x 1, in/out: reordered;
//   n        number of observations (clipped to the rows of times for the ordering);
//   status   n x 1, in/out: censoring indicator 1 event / 0 censored, or (grouped = -1) the number
//            of events of the row; reordered with the times;
//   weights  n x 1, in/out: case weights, or (grouped = -1) the number censored; reordered;
//   groups   n x 1, in/out: group label of each row; reordered into ascending label blocks;
//   groupSizes 1 x nGroups (row 1, column g: size of block g); sizes are read as whole numbers,
//            a size that is not finite or is negative counts as 0, blocks are clipped to row n;
//   nGroups  number of groups; <= 0 skips all ordering (only the checks and the maximum);
//   grouped  -1: status and weights hold counts, the status range check is skipped;
//   result   receives the largest time.
// Checks, in this order (statuses of the library's status header):
//   -1 a status value below 0 or above 1 (unless grouped = -1), nothing reordered; a status equal
//      to the missing-value marker is below 0 and gives -1; a NaN status passes the range test;
//   -2 n < 2, nothing reordered;
//   -3 no event (the status column sums to 0): warning, ordering done;
//   -5 every observation an event (status constant at 1): warning, ordering done;
//    0 otherwise.
// Sorting is stable (radix sort of the keys): rows with equal labels, and equal times within a
// block, keep their input order; NaN times go to the end of their block. Cost O(n).
VELKOR_API int cReorganizeData(matrix<double>* times, int& n, matrix<double>* status,
                               matrix<double>* weights, matrix<double>* groups,
                               matrix<double>* groupSizes, int nGroups, short grouped,
                               cReorganizeResult& result);

// CheckStatusFormat: recodes a status column carrying several event types.
//   status  n x 1 in; codes n x 1 out (distinct event codes in order of first appearance, 1-based
//   positions 1 .. nCodes); nCodes out; censorCode: the value marking a censored row;
//   recoded n x 1 out: 0 censored, m = position of the row's code among `codes`.
// The first row is not revisited: when it equals the censoring code it keeps the code itself
// (deliberate, so that outputs agree for censoring codes other than 0).
// Returns -1 when every one of the n values equals the censoring code (or n < 1), else 0.
// Cost O(n x number of distinct codes).
VELKOR_API int CheckStatusFormat(const matrix<double>* status, int n, matrix<double>* codes,
                                 std::uint32_t& nCodes, int censorCode, matrix<double>* recoded);
