/* Flat entry points of the cox family (see VELKORLI1M.h for the shared conventions). */
#ifndef VELKOR_COX_H
#define VELKOR_COX_H

#include "velkor/export.h"
#include "velkor/status.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* VELKOR_COX_H */
