/* Flat entry points of the parametric family (see VELKORLI1M.h for the shared conventions). */
#ifndef VELKOR_PARAMETRIC_H
#define VELKOR_PARAMETRIC_H

#include "velkor/export.h"
#include "velkor/status.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* VELKOR_PARAMETRIC_H */
