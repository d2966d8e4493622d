/* Velkor status codes and the two special values of every output table.
 *
 * This header is plain C so that any caller (C, C++, a spreadsheet macro through its
 * declarations, Python ctypes) can use it.
 *
 * Every entry point returns a signed 32-bit status:
 *   0                      success;
 *   negative (-1,-2,-3,-5) a condition found in the data. Their meaning depends on the
 *                          analysis and is documented at each entry point; the survival
 *                          preparation gives the reference meanings below. -3 and -5 are
 *                          warnings: the outputs are complete.
 *   positive               an internal failure of the call itself, not of the data
 *                          (out of memory, a null caller array). Nothing is written to the
 *                          caller's arrays when a positive status is returned.
 */
#ifndef VELKOR_STATUS_H
#define VELKOR_STATUS_H

/* Data conditions (reference meanings of the survival data preparation). */
#define VELKOR_OK 0
#define VELKOR_E_STATUS_RANGE (-1) /* a censoring indicator outside [0, 1]            */
#define VELKOR_E_TOO_FEW (-2)      /* fewer than two observations                      */
#define VELKOR_W_NO_EVENT (-3)     /* no event at all; outputs computed                */
#define VELKOR_E_FIT_FAILED (-5)   /* regressions: the fit or the selection failed     */
#define VELKOR_W_ALL_EVENTS (-5)   /* survival: every observation is an event; outputs */

/* Internal failures of the call. */
#define VELKOR_E_OUT_OF_MEMORY 1 /* an allocation failed; nothing written back        */
#define VELKOR_E_INTERNAL 2      /* an unexpected internal error; nothing written back */
#define VELKOR_E_NULL_ARRAY                             \
  3 /* a null caller array was given a positive length; \
       nothing computed, nothing written                */

/* Missing-value marker: -1.79769313486231e+308, bits 0xFFEFFFFFFFFFFFE2. An input value is
 * missing when it is less than or equal to it; every output cell that holds no value is set
 * to it exactly. */
#define VELKOR_MISSING (-1.79769313486231e+308)
/* Unbounded upper limit: +1.79769313486231e+308, bits 0x7FEFFFFFFFFFFFE2. */
#define VELKOR_UNBOUNDED (1.79769313486231e+308)

#endif /* VELKOR_STATUS_H */
