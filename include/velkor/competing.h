/* Flat entry points of the competing family (see VELKORLI1M.h for the shared conventions). */
#ifndef VELKOR_COMPETING_H
#define VELKOR_COMPETING_H

#include "velkor/export.h"
#include "velkor/status.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* VELKOR_COMPETING_H */
