/* VELKORLI1M: every flat entry point of the library.
 *
 * Conventions of every flat entry point:
 *   - arguments are caller arrays (double*, int*, short* where stated), their sizes and scalar
 *     options; every array's length is stated at its declaration; tables are column-major
 *     (element (i, j) of an r x c table at index (j-1)*r + (i-1));
 *   - each array is copied into a private container; outputs are copied back element by element
 *     after the computation; an array marked "in" is never written;
 *   - the return value is a status code (velkor/status.h): 0 success, negative a data condition
 *     documented at each function, positive an internal failure after which nothing was written;
 *   - flags are 16-bit integers: -1 true, 0 false;
 *   - alpha is the significance level (0.05 for 95 % limits);
 *   - output cells without a value hold VELKOR_MISSING exactly.
 * The families are declared in their own headers, included here.
 */
#ifndef VELKOR_VELKORLI1M_H
#define VELKOR_VELKORLI1M_H

#include "velkor/export.h"
#include "velkor/status.h"

#include "velkor/survival.h"
#include "velkor/cox.h"
#include "velkor/parametric.h"
#include "velkor/competing.h"
#include "velkor/roc.h"
#include "velkor/methodcomp.h"

#endif /* VELKOR_VELKORLI1M_H */
