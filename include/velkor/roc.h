/* Flat entry points of the roc family (see VELKORLI1M.h for the shared conventions). */
#ifndef VELKOR_ROC_H
#define VELKOR_ROC_H

#include "velkor/export.h"
#include "velkor/status.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifdef __cplusplus
}
#endif

#endif /* VELKOR_ROC_H */
