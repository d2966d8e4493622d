// Lung by sex from R's survival package (the fixture of the Linux tests), one record per group,
// shared by the flat and the object survival checks of the Windows test program.
#pragma once

#include <cmath>

namespace win_survival {
#include "reference/survival/survival_fixtures.inc"

#define LEN(a) static_cast<int>(sizeof(a) / sizeof(a[0]))

struct Group {
  const double *t, *nrisk, *nevent, *surv, *greenwood, *cumhaz, *quartiles, *mean;
  int size;
};
#define GROUP(p)                                                                                \
  win_survival::Group {                                                                         \
    win_survival::p##_t, win_survival::p##_nrisk, win_survival::p##_nevent,                     \
        win_survival::p##_surv, win_survival::p##_greenwood, win_survival::p##_cumhaz,          \
        win_survival::p##_quartiles, win_survival::p##_mean, LEN(win_survival::p##_t)           \
  }

}  // namespace win_survival
