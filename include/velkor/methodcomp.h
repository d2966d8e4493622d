/* Flat entry points of the methodcomp family (see VELKORLI1M.h for the shared conventions). */
#ifndef VELKOR_METHODCOMP_H
#define VELKOR_METHODCOMP_H

#include "velkor/export.h"
#include "velkor/status.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* VELKOR_METHODCOMP_H */
