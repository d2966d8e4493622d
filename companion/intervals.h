// Confidence-interval helpers: limits for a binomial proportion (Wald, Wilson score, exact
// Clopper-Pearson), log-scale limits for a ratio estimate, and the boundary of a bivariate normal
// confidence ellipse.
//
// Shared rules:
//  - No function throws; all are noexcept and free of undefined behaviour for any argument.
//  - When an argument is NaN or outside its stated domain, both limits (every point of the ellipse)
//    are NaN. The caller keeps its own missing-value rules; NaN is what these helpers report.
//  - z is the two-sided normal quantile z_{1-alpha/2}; its sign is ignored (|z| is used), so
//    lo <= hi always holds. An infinite z (alpha = 0) gives the whole range [0, 1] for the
//    proportion intervals.
//  - A "count" or "n" may be a weighted, non-integer total; n must be finite and > 0.
//  - Proportion limits are clipped to [0, 1].
// Every function is O(1) except GetInfSupClopper (two incomplete-beta inversions: microseconds for
// ordinary counts, up to ~0.3 s for totals near its 1e15 limit) and GetConfEllipse (O(nPoints)).

#pragma once

// Wald interval: p -/+ z sqrt(p (1 - p) / n), clipped to [0, 1].
// p outside [0, 1], n <= 0 or not finite, or a NaN argument gives NaN limits. At p = 0 or p = 1 the
// interval collapses to the point p (its known defect; callers wanting a usable interval there use
// the adjusted form Wald((n p + 2) / (n + 4), n + 4) or Wilson).
void GetInfSupWald(double z, double p, double n, double& lo, double& hi) noexcept;

// Wilson (1927) score interval with continuity correction cc, in the closed form of Newcombe (1998,
// Stat Med 17:857, methods 3 and 4) generalised from cc = 1/2 to any cc >= 0. The limits solve
//     |p - pi| - cc / n = z sqrt(pi (1 - pi) / n)
// for pi below and above p. With x = n p successes and the corrected counts xl = x - cc,
// xu = x + cc, Newcombe's limits are
//     lo = (2 xl + z^2 - z sqrt(z^2 + 4 xl (n - xl) / n)) / (2 (n + z^2))   (0 when xl <= 0)
//     hi = (2 xu + z^2 + z sqrt(z^2 + 4 xu (n - xu) / n)) / (2 (n + z^2))   (1 when xu >= n)
// (for cc = 1/2: 2 xl = 2np - 1 and 4 xl (n - xl) / n = 4p(n(1 - p) + 1) - 2 - 1/n, his method 4).
// The lower limit is computed in the equal, rationalised form
//     lo = 2 xl^2 / n / (2 xl + z^2 + z sqrt(z^2 + 4 xl (n - xl) / n)),
// which avoids the cancellation at small p, so both limits keep their relative accuracy.
// cc = 0 is the plain Wilson interval; cc = 0.5 the usual continuity correction. At p = 0 the lower
// limit is 0 and at p = 1 the upper limit is 1 (for any cc); for a weighted count with x <= cc the
// lower limit is 0 as well (the corrected score equation holds for every pi in [0, p]).
// p outside [0, 1], n <= 0 or not finite, cc < 0 or not finite, or a NaN gives NaN limits.
void GetInfSupWilson(double z, double p, double n, double cc, double& lo, double& hi) noexcept;

// Exact (Clopper and Pearson 1934, Biometrika 26:404) interval for x successes out of n, in the
// beta-quantile form that also serves weighted, non-integer counts:
//     lo = B^{-1}(alpha/2; x, n - x + 1)         (0 when x <= 0)
//     hi = B^{-1}(1 - alpha/2; x + 1, n - x)     (1 when x >= n)
// where B^{-1}(q; a, b) is the q-quantile of the Beta(a, b) distribution (the inverse regularised
// incomplete beta function; the upper limit is solved on the upper tail alpha/2 for accuracy).
// A finite x outside [0, n] is first clamped into it (so rounding excess such as x = n (1 + 1e-16)
// still gives hi = 1). alpha outside (0, 1), n <= 0, n > 1e15 (beyond which the incomplete-beta
// inversion is neither accurate nor bounded in time), or a NaN gives NaN limits.
void GetInfSupClopper(double x, double n, double alpha, double& lo, double& hi) noexcept;

// Log-scale interval for a positive ratio estimate (relative risk, odds ratio, likelihood ratio)
// with standard error se of log(value):  lo = exp(log(value) - z se), hi = exp(log(value) + z se).
// value <= 0, se < 0, or a NaN gives NaN limits; value = +inf gives +inf limits.
void GetInfSupLog(double z, double value, double se, double& lo, double& hi) noexcept;

// Boundary of the (1 - alpha) joint confidence ellipse of a bivariate normal estimate with centre
// (cx, cy) and covariance V = [[vxx, vxy], [vxy, vyy]]: the points p with
//     (p - c)' V^{-1} (p - c) = r^2,   r^2 = chi-square(2) upper alpha quantile = -2 ln(alpha).
// The ellipse is the image of the circle of radius r under the Cholesky factor L of V
// (V = L L', L = [[a, 0], [b, d]], a = sqrt(vxx), b = vxy / a, d = sqrt(vyy - vxy^2 / vxx)):
//     xs[k] = cx + r a cos(t_k),   ys[k] = cy + r (b cos(t_k) + d sin(t_k)),
//     t_k = 2 pi k / nPoints,   k = 0 .. nPoints - 1,
// so the points are equally spaced in the angle t of that parametrisation,
// run counter-clockwise, start (t = 0) at the point of largest x, and do not repeat the first point
// at the end (a caller drawing a closed curve appends it).
// nPoints <= 0, or a null xs or ys, writes nothing. A covariance that is not positive definite
// (vxx <= 0 or vxx vyy - vxy^2 <= 0), alpha outside (0, 1), or a NaN or infinite argument writes
// NaN into all nPoints entries of xs and ys.
void GetConfEllipse(double cx, double cy, double vxx, double vxy, double vyy, double alpha,
                    int nPoints, double* xs, double* ys) noexcept;
