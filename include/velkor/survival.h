/* Flat entry points of the survival family (see VELKORLI1M.h for the shared conventions). */
#ifndef VELKOR_SURVIVAL_H
#define VELKOR_SURVIVAL_H

#include "velkor/export.h"
#include "velkor/status.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* VELKOR_SURVIVAL_H */
