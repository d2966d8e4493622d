// Lung by sex from R's survival package (the fixture of the Linux tests), one record per group,
// and the comparisons shared by the flat and the object survival checks.
#pragma once

#include <cmath>

#include "windows/harness.h"

namespace win_survival {
#include "reference/survival/survival_fixtures.inc"

#define LEN(a) static_cast<int>(sizeof(a) / sizeof(a[0]))

struct Group {
  const double *t, *nrisk, *nevent, *surv, *greenwood, *cumhaz, *quartiles, *mean;
  int size;
};
#define GROUP(p)                                                                       \
  win_survival::Group {                                                                \
    win_survival::p##_t, win_survival::p##_nrisk, win_survival::p##_nevent,            \
        win_survival::p##_surv, win_survival::p##_greenwood, win_survival::p##_cumhaz, \
        win_survival::p##_quartiles, win_survival::p##_mean, LEN(win_survival::p##_t)  \
  }

// Product-limit table against survfit: cell(row, column), rows 1..size, columns 1..12.
template <class Cell>
void check_table(const Group& ref, Cell cell) {
  for (int j = 1; j <= ref.size; ++j) {
    WCHECK_EQ(cell(j, 1), ref.t[j - 1]);
    WCHECK_EQ(cell(j, 3), ref.nrisk[j - 1]);
    WCHECK_EQ(cell(j, 4), ref.nevent[j - 1]);
    WCHECK_NEAR(cell(j, 8), ref.surv[j - 1], 1e-13);
    if (std::isfinite(ref.greenwood[j - 1])) WCHECK_NEAR(cell(j, 11), ref.greenwood[j - 1], 1e-12);
  }
}

// Restricted mean (its time cap, value and standard error) and quartiles against survfit's print.
inline void check_mean_quartiles(const Group& ref, double cap, double mean, double se,
                                 const double* q) {
  WCHECK_EQ(cap, ref.mean[0]);
  WCHECK_NEAR(mean, ref.mean[2], 1e-12);
  WCHECK_NEAR(se, ref.mean[3], 1e-10);
  for (int r = 0; r < 3; ++r) WCHECK_EQ(q[r], ref.quartiles[r]);
}

}  // namespace win_survival
