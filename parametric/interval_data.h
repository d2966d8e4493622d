// Judge-by-storage-time tables turned into censored survival records for the parametric
// regression (codes 0 right-, 2 left-, 3 interval-censored; see likelihood.h).
#pragma once

#include "velkor/containers.h"

// Records from a judgement table.
//   judge   n x m (in): 1 positive, 0 negative judgement of subject i at storage time c; other
//           values (the missing-value marker) are neither;
//   stimes  m (in): storage times t_1 < .. < t_m;
//   data    n x d (in/out): per-subject columns, reordered and filtered with the records (on
//           return its first kept x d elements, column-major, hold the kept rows);
//   nRemoved (out); flags (n, out): the first nRemoved entries hold the 1-based input row
//           numbers of the first nRemoved subjects of the time order, which are the removed ones
//           (time 0 sorts first), the next entries the sorted removal flags (0);
//   nKept (out) = n - nRemoved;
//   bounds  n x 2 (out), codes (n, out), times (n, out): the records of the kept subjects in
//           increasing time order, compacted like `data` (bounds: first kept x 2 elements);
//   summary m x 2 (out): per storage time, the sum of the judgements of rows 1..nKept of the
//           judgement table (missing cells skipped; the missing-value marker when all are
//           missing) and that sum x 100 / n, n counting the removed subjects too (deliberate).
// Per subject: first judgement 0 -> removed (code -1). Otherwise the scan from column 2 stops at
// the first 0: none -> right-censored at t_m; at column c -> interval (t_(c-1), t_c] with time
// t_(c-1), moved one column right when t_(c-1) = 0 (t_(m+1) is then the storage-time container's
// spare element, -1 as built). Reversal rule (deliberate): from column c on, a 1 sets code 2 with
// time t_c, and while the code is 2 a later 0 at a time other than the lower bound makes it an
// interval again up to that time. With m = 1 a subject kept has the all-zero default record.
// Status: -2 when no subject is kept; -1 when a code read for i = 1..n is outside 0..3 (rows
// beyond nKept read the codes container's spare element, which holds the last code stored, that
// of subject n in input order); else 0. Cost O(n m + n log n).
int PrepareIntervalData(matrix<double>* judge, int n, int m, matrix<double>* stimes,
                        matrix<double>* data, int d, int& nRemoved, matrix<int>* flags, int& nKept,
                        matrix<double>* bounds, matrix<double>* codes, matrix<double>* times,
                        matrix<double>* summary);

// Judgement table from a long list of (time, response) pairs.
//   stime    n (in): the storage time of each pair;
//   orderKey n (in): a per-pair value whose ascending sort restores the input order (1..n);
//   nCode    number of rows of `judge` to fill (the first nCode pairs in input order);
//   response n (in): 1.0 or 2.0, carried through both sorts with the pairs;
//   judge    nCode x m (in/out): row i is set from pair i, with k the rank of its time among
//            the distinct times: response 1 sets columns 1..k and column m (deliberate, even when
//            k < m), response 2 columns 1..k-1; any other response, and every cell no rule
//            sets, keeps the value the caller put there (pass zeros for "negative");
//   distinct m (out): the distinct times in increasing order (further ones are not stored).
// Returns 0. Cost O(n log n + nCode m).
int TransformJudgeToInt(matrix<double>* stime, int n, int m, matrix<double>* orderKey, int nCode,
                        matrix<double>* response, matrix<double>* judge, matrix<double>* distinct);
