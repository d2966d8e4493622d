/* Validation of a Cox model for the front doors (the velkor tool and the Python package):
 * proportional-hazards test, k-fold cross-validation and bootstrap, computed by the library's
 * object interface (COX_Compute_ST, CoxCV_ST, ComputeBootOut_ST) and handed back as plain arrays,
 * with a C progress callback in place of VELKORInfo's std::function. The tool links this code;
 * the Python package loads it as libvelkor_frontdoor.so (velkor_frontdoor.dll), next to the
 * library, because ctypes cannot build the object interface's C++ types.
 *
 * The model is the final model of the flat run: its q design columns (factor indicators
 * included) enter as numeric covariates, without selection. The object form centres the
 * covariates, stops on a relative log-likelihood change and, for ties = 1, applies the true Efron
 * correction (the flat RunCoxReg computes Breslow for both codes); with Breslow ties both forms
 * fit the same model.
 */
#ifndef VELKOR_TOOLS_COX_VALIDATION_H
#define VELKOR_TOOLS_COX_VALIDATION_H

#if defined(_WIN32)
#define VELKOR_FRONTDOOR_API __declspec(dllexport)
#else
#define VELKOR_FRONTDOOR_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Progress of the long phases: phase 1 cross-validation (folds), 2 bootstrap (replicates);
 * done of total finished. Called between chunks of replicates from the calling thread. Return 0
 * to stop: the rows not computed stay missing and *completed is set to 0. */
typedef int (*velkor_progress_fn)(int phase, long long done, long long total, void* context);

/* Phases of the progress callback. */
#define VELKOR_PHASE_CROSS_VALIDATION 1
#define VELKOR_PHASE_BOOTSTRAP 2

/*   time, status  in, n: times, status 1 event / 0 censored
 *   weights       in, n, or null: case weights of the event terms
 *   x             in, n x q, column-major: the design columns of the model
 *   strata        in, n, or null: numeric stratum keys (strata in ascending key order)
 *   n, q          rows and columns
 *   ties          0 Breslow, 1 Efron
 *   maxIter, tol  iteration limit and relative convergence tolerance of every fit
 *   alpha         level of the bootstrap percentile limits
 *   phTransform   -1 no proportional-hazards test; else the time transform g(t): 0 identity,
 *                 1 log, 2 rank, 3 1 - Kaplan-Meier (R's cox.zph "km")
 *   cvFolds       k-fold cross-validation when >= 2 (k = min(cvFolds, n))
 *   bootstrap     number of bootstrap replicates (none when < 1)
 *   seed          seed of the fold permutation and of the resamples
 *   progress      callback or null; context is passed back to it
 *   phTest        out, (q + 1) x 3, or null: rows q covariates then global; columns chi-square,
 *                 df, p-value
 *   cvTable       out, (min(cvFolds, n) + 2) x 5, or null: quality indices (R-square, rescaled
 *                 R-square, relative -2 log L reduction, concordance, Somers' D) of the model on
 *                 all rows, of each fold, and their mean
 *   bootTable     out, (q + 1) x 6, or null: rows q coefficients then the concordance index;
 *                 columns estimate, bootstrap mean, standard error, lower and upper percentile
 *                 limits, replicates used
 *   completed     out, or null: 1, or 0 when the callback stopped a phase
 * Outputs are column-major; cells without a value hold VELKOR_MISSING. Returns the status of
 * COX_Compute_ST (0, -1, -2, -3, -5 or a positive internal failure), or 3 when q < 1, n < 1 or a
 * required array is null. */
VELKOR_FRONTDOOR_API int velkor_cox_validation(
    const double* time, const double* status, const double* weights, const double* x,
    const double* strata, int n, int q, int ties, int maxIter, double tol, double alpha,
    int phTransform, int cvFolds, int bootstrap, unsigned seed, velkor_progress_fn progress,
    void* context, double* phTest, double* cvTable, double* bootTable, int* completed);

#ifdef __cplusplus
}
#endif

#endif /* VELKOR_TOOLS_COX_VALIDATION_H */
