#!/usr/bin/python3
"""Reference values for companion/distributions.* and companion/intervals.*.

Writes tests/reference/companion/distributions.inc (C++ array initialisers included by
tests/companion/test_distributions.cpp and tests/companion/test_intervals.cpp).

Run from the repository root with Debian's Python and its packages:

    /usr/bin/python3 tests/reference/companion/make_distributions.py

Needs mpmath (python3-mpmath) and scipy (python3-scipy). If mpmath is not
installed for that interpreter, point VELKOR_MPMATH_DIR at a directory that
contains the pure-Python mpmath package. Not run by CI: the output is committed.

How the references are made
  * Distribution values are evaluated with mpmath at 50 significant digits and
    rounded once to the nearest double. Every value is recomputed at 70 digits
    and the two must agree to 1e-35 relative, so mpmath's own precision loss
    (large degrees of freedom, far tails) cannot leak into the fixture.
  * Quantiles are solved in mpmath by safeguarded Newton iterations on the log of
    the relevant tail probability (bisection when a step leaves the bracket), and
    accepted only if the tail probability at the root matches the level to 1e-35
    relative at 70 digits.
  * The Kolmogorov distribution is evaluated by both the alternating series and
    the Jacobi theta series at 400 digits; they must agree to 1e-45 relative.
  * Independent double-precision cross-checks: scipy.special (ndtr, stdtr,
    chdtrc, kolmogorov) must agree with every reference to 1e-9 relative where
    scipy's result is a normal double; this guards against a wrong formula on the
    mpmath side, not against scipy's last digits.
  * Wilson score limits use the closed formulas of Newcombe (1998), methods 3 and
    4, generalised to a continuity correction cc (the limits solve
    |p - pi| - cc/n = z sqrt(pi (1 - pi) / n)), evaluated in mpmath; integer
    counts with cc = 0 and cc = 0.5 must agree with scipy.stats.binomtest
    (...).proportion_ci('wilson' / 'wilsoncc') to 1e-12.
  * Clopper-Pearson limits are scipy.stats.beta.ppf(alpha/2, x, n - x + 1) and
    beta.isf(alpha/2, x + 1, n - x) (= beta.ppf(1 - alpha/2, ...) without rounding
    1 - alpha/2), polished by Newton steps on the mpmath regularised incomplete beta
    function (scipy's value must agree to 1e-9).

Deliberate conventions of the library reproduced here
  * Wilson with continuity correction: the lower limit is 0 when p - cc/n <= 0
    and the upper limit is 1 when p + cc/n >= 1 (the corrected score equation has
    its root at the boundary there; Newcombe states it for p = 0 and p = 1, which
    scipy follows for integer counts; for weighted, non-integer counts the same
    rule extends it continuously).
  * Clopper-Pearson accepts a non-integer (weighted) count x through the beta
    quantile form.
"""

import datetime
import os
import platform
import sys

try:
    import mpmath
except ImportError:  # pragma: no cover - depends on the machine
    extra = os.environ.get("VELKOR_MPMATH_DIR")
    if not extra:
        sys.exit("mpmath is required: install python3-mpmath or set VELKOR_MPMATH_DIR")
    sys.path.append(extra)
    import mpmath

import numpy as np
import scipy
import scipy.special as sc
import scipy.stats as st

from mpmath import mp, mpf

WORK_DPS = 50
CHECK_DPS = 70
DBL_MIN = 2.2250738585072014e-308

OUT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "distributions.inc")


# ---------------------------------------------------------------------------------------------
# Precision helpers
# ---------------------------------------------------------------------------------------------


def at_dps(dps, fn, *args):
    with mp.workdps(dps):
        return fn(*[mpf(a) if isinstance(a, float) else a for a in args])


def checked(fn, *args):
    """fn(*args) at WORK_DPS, verified against CHECK_DPS."""
    v = at_dps(WORK_DPS, fn, *args)
    w = at_dps(CHECK_DPS, fn, *args)
    with mp.workdps(CHECK_DPS):
        if w != 0 and abs((v - w) / w) > mpf("1e-35"):
            raise RuntimeError(f"precision check failed for {fn.__name__}{args}: {v} vs {w}")
    return v


def to_double(v):
    d = float(v)
    if d != 0.0 and abs(d) < DBL_MIN:
        raise RuntimeError(f"reference value {v} is subnormal")
    return d


def rel(a, b):
    return abs(a - b) / abs(b) if b != 0 else abs(a - b)


def cross_check(name, ours, theirs, tol=1e-9):
    if theirs is None or not np.isfinite(theirs) or abs(theirs) < DBL_MIN:
        return
    if (abs(ours - theirs) > tol) if ours == 0 else (rel(theirs, ours) > tol):
        raise RuntimeError(f"{name}: mpmath {ours!r} vs scipy {theirs!r}")


def solve_increasing(g, dg, lo, hi, tol=mpf("1e-44")):
    """Root of an increasing function g on [lo, hi] (g(lo) < 0 < g(hi)), Newton with bisection."""
    glo, ghi = g(lo), g(hi)
    if not (glo < 0 < ghi):
        raise RuntimeError(f"root not bracketed: g({lo})={glo}, g({hi})={ghi}")
    u = (lo + hi) / 2
    for _ in range(2000):
        gu = g(u)
        if gu == 0:
            return u
        if gu < 0:
            lo = u
        else:
            hi = u
        d = dg(u)
        step_ok = False
        if d > 0:
            nu = u - gu / d
            if lo < nu < hi:
                step_ok = True
        if not step_ok:
            nu = (lo + hi) / 2
        if abs(nu - u) <= tol * max(1, abs(u)):
            return nu
        u = nu
    raise RuntimeError("no convergence")


# ---------------------------------------------------------------------------------------------
# Distributions in mpmath
# ---------------------------------------------------------------------------------------------


def norm_cdf(x):
    return mpmath.ncdf(x)


def norm_pdf(x):
    return mpmath.npdf(x)


def norm_quantile(p):
    """x with Phi(x) = p, for a double p in (0, 1)."""
    p = mpf(p)
    if p == mpf(1) / 2:
        return mpf(0)
    sign, q = (1, p) if p < 0.5 else (-1, 1 - p)  # solve the lower tail Phi(x) = q, x < 0
    lq = mpmath.log(q)
    g = lambda x: mpmath.log(mpmath.ncdf(x)) - lq
    dg = lambda x: mpmath.npdf(x) / mpmath.ncdf(x)
    x = solve_increasing(g, dg, mpf(-45), mpf(0))
    return sign * x


def t_lower_neg(t, df):
    """P(T <= t) for t <= 0: I_{df/(df+t^2)}(df/2, 1/2) / 2."""
    return mpmath.betainc(df / 2, mpf(1) / 2, 0, df / (df + t * t), regularized=True) / 2


def t_cdf(t, df):
    if t == 0:
        return mpf(1) / 2
    if t < 0:
        return t_lower_neg(t, df)
    return 1 - t_lower_neg(-t, df)


def t_logpdf(t, df):
    return (mpmath.loggamma((df + 1) / 2) - mpmath.loggamma(df / 2) - mpmath.log(df * mpmath.pi) / 2
            - (df + 1) / 2 * mpmath.log1p(t * t / df))


def t_quantile(p, df):
    p, df = mpf(p), mpf(df)
    if p == mpf(1) / 2:
        return mpf(0)
    sign, q = (1, p) if p < 0.5 else (-1, 1 - p)
    lq = mpmath.log(q)
    # t = -exp(u); log F(-exp(u)) decreases in u, so solve its negative.
    g = lambda u: lq - mpmath.log(t_lower_neg(-mpmath.exp(u), df))
    dg = lambda u: mpmath.exp(u + t_logpdf(-mpmath.exp(u), df)) / t_lower_neg(-mpmath.exp(u), df)
    u = solve_increasing(g, dg, mpf(-80), mpf(700))
    return -sign * mpmath.exp(u)


def chi_upper(x, df):
    return mpmath.gammainc(df / 2, x / 2, mpmath.inf, regularized=True)


def chi_lower(x, df):
    return mpmath.gammainc(df / 2, 0, x / 2, regularized=True)


def chi_logpdf(x, df):
    k = df / 2
    return (k - 1) * mpmath.log(x) - x / 2 - k * mpmath.log(2) - mpmath.loggamma(k)


def chi_quantile_lower(p, df):
    """x with P(X <= x) = p."""
    p, df = mpf(p), mpf(df)
    if p > 0.5:
        return chi_quantile_upper(1 - p, df)
    lp = mpmath.log(p)
    g = lambda u: mpmath.log(chi_lower(mpmath.exp(u), df)) - lp
    dg = lambda u: mpmath.exp(u + chi_logpdf(mpmath.exp(u), df)) / chi_lower(mpmath.exp(u), df)
    return mpmath.exp(solve_increasing(g, dg, mpf(-3000), mpf(12)))


def chi_quantile_upper(q, df):
    """x with P(X >= x) = q."""
    q, df = mpf(q), mpf(df)
    if q > 0.5:
        return chi_quantile_lower(1 - q, df)
    lq = mpmath.log(q)
    g = lambda u: lq - mpmath.log(chi_upper(mpmath.exp(u), df))
    dg = lambda u: mpmath.exp(u + chi_logpdf(mpmath.exp(u), df)) / chi_upper(mpmath.exp(u), df)
    return mpmath.exp(solve_increasing(g, dg, mpf(-3000), mpf(12)))


def kolmogorov_alternating(x):
    """(K(x), 1 - K(x)) from 1 - 2 sum (-1)^(k-1) exp(-2 k^2 x^2)."""
    s, k = mpf(0), 1
    while True:
        term = mpmath.exp(-2 * k * k * x * x)
        s += term if k % 2 else -term
        if term < mpf(10) ** (-(mp.dps + 20)) * abs(s):
            break
        k += 1
    return 1 - 2 * s, 2 * s


def kolmogorov_theta(x):
    s, k = mpf(0), 1
    while True:
        term = mpmath.exp(-(2 * k - 1) ** 2 * mpmath.pi ** 2 / (8 * x * x))
        s += term
        if term < mpf(10) ** (-(mp.dps + 20)) * s:
            break
        k += 1
    return mpmath.sqrt(2 * mpmath.pi) / x * s


def kolmogorov(x):
    """(K(x), 1 - K(x)), both forms at 400 digits, cross-checked."""
    with mp.workdps(400):
        x = mpf(x)
        k_alt, u_alt = kolmogorov_alternating(x)
        k_theta = kolmogorov_theta(x)
        if abs(k_alt - k_theta) > mpf("1e-45") * k_theta:
            raise RuntimeError(f"Kolmogorov forms disagree at {x}")
        return k_theta, u_alt


# ---------------------------------------------------------------------------------------------
# Grids
# ---------------------------------------------------------------------------------------------

ONE_MINUS = [1 - 1e-5, 1 - 1e-10, 1 - 1e-14, 0.9999999999999999]  # last one is 1 - 2^-53
TINY = [1e-300, 1e-200, 1e-100, 1e-50, 1e-20, 1e-10]
LEVELS = TINY + [1e-5, 0.001, 0.025, 0.05, 0.1, 0.3, 0.5, 0.7, 0.9, 0.95, 0.975, 0.999] + ONE_MINUS

NORMAL_X = [-37.5, -37.0, -36.25, -35.0, -30.0, -26.543, -20.0, -15.0, -12.3456789, -10.0, -8.0,
            -6.0, -5.0, -4.0, -3.0, -2.5, -1.959963984540054, -1.5, -1.0, -0.5, -0.1, -1e-5,
            -1e-200, 0.0, 1e-5, 0.3, 1.0, 1.959963984540054, 2.0, 3.0, 5.0, 8.0, 9.0]
NORMAL_P = [DBL_MIN, 1e-300, 1e-250, 1e-200, 1e-150, 1e-100, 1e-50, 1e-30, 1e-20, 1e-15, 1e-10,
            1e-7, 1e-5, 1e-4, 0.001, 0.01, 0.025, 0.05, 0.1, 0.2, 0.3, 0.4, 0.45, 0.49, 0.4999,
            0.5, 0.5001, 0.51, 0.6, 0.75, 0.9, 0.95, 0.975, 0.99, 0.999, 1 - 1e-5, 1 - 1e-8,
            1 - 1e-10, 1 - 1e-12, 1 - 1e-14, 1 - 1e-15, 0.9999999999999999]
STUDENT_DF = [1.0, 1.5, 2.0, 2.5, 3.0, 4.0, 5.0, 7.25, 10.0, 15.5, 30.0, 100.0, 333.3, 1000.0,
              10000.0]
CHI_DF = [1.0, 1.5, 2.0, 3.0, 4.5, 5.0, 10.0, 17.3, 50.0, 100.0, 500.5, 1000.0, 5000.0, 10000.0]
KOLMOGOROV_X = [0.05, 0.06, 0.0731, 0.08, 0.1, 0.15, 0.2, 0.25, 0.3, 0.4, 0.4427, 0.5, 0.6, 0.7,
                0.8, 0.8275, 0.9, 0.95, 0.99, 0.999999, 1.0, 1.000001, 1.01, 1.1, 1.2,
                1.22384787020909, 1.3, 1.35809863932252, 1.4, 1.5, 1.62762361151895, 1.75, 2.0,
                2.5, 3.0, 3.5, 4.0, 4.5, 5.0, 5.5, 6.0]


def build():
    tables = {}

    # Normal --------------------------------------------------------------------------------
    rows = []
    for x in NORMAL_X:
        v = to_double(checked(norm_cdf, x))
        cross_check(f"ndtr({x})", v, float(sc.ndtr(x)))
        rows.append((x, v))
    tables["kRefCDFNormalStd"] = ("CDFNormalStd: {x, P(Z <= x)}", rows)

    rows = []
    for x in [-37.5, -30.0, -20.0, -8.5, -3.0, -1.0, -1e-8, 0.0, 0.5, 1.959963984540054, 2.0,
              6.0, 12.75, 25.0, 37.0, 37.5]:
        v = to_double(checked(norm_pdf, x))
        cross_check(f"npdf({x})", v, float(st.norm.pdf(x)), 1e-6)
        rows.append((x, v))
    tables["kRefPDFNormalStd"] = ("PDFNormalStd: {x, phi(x)}", rows)

    rows = []
    for p in NORMAL_P:
        x = at_dps(WORK_DPS, norm_quantile, p)
        with mp.workdps(CHECK_DPS):
            resid = mpmath.ncdf(x) if p < 0.5 else 1 - mpmath.ncdf(x)
            lev = mpf(p) if p < 0.5 else 1 - mpf(p)
            if x != 0 and abs(resid / lev - 1) > mpf("1e-35"):
                raise RuntimeError(f"normal quantile residual at {p}")
        v = float(x)
        cross_check(f"ndtri({p})", v, float(sc.ndtri(p)))
        rows.append((p, v))
    tables["kRefInvCDFNormalStd"] = ("InvCDFNormalStd: {p, x with P(Z <= x) = p}", rows)

    # Student -------------------------------------------------------------------------------
    cdf_rows, q_rows = [], []
    for df in STUDENT_DF:
        for p in LEVELS:
            t = at_dps(WORK_DPS, t_quantile, p, df)
            if p != 0.5:
                with mp.workdps(CHECK_DPS):
                    lev = mpf(p) if p < 0.5 else 1 - mpf(p)
                    tail = t_lower_neg(-abs(t), mpf(df))
                    if abs(tail / lev - 1) > mpf("1e-35"):
                        raise RuntimeError(f"Student quantile residual at {p}, {df}")
            tq = float(t)
            # scipy's stdtrit loses accuracy in the far tails (and saturates at -1e100), so the
            # quantile is checked through scipy's forward function on the smaller tail.
            if tq != 0.0:
                cross_check(f"stdtr({df},{tq}) vs {p}", p if p < 0.5 else 1 - p,
                            float(sc.stdtr(df, -abs(tq))), 1e-7)
            q_rows.append((p, df, tq))
            if tq != 0.0:
                v = to_double(checked(t_cdf, tq, mpf(df)))
                cross_check(f"stdtr({df},{tq})", v, float(sc.stdtr(df, tq)))
                cdf_rows.append((tq, df, v))
        for t in [-1.0, 0.0, 2.5]:
            cdf_rows.append((t, df, to_double(checked(t_cdf, mpf(t), mpf(df)))))
    tables["kRefCDFStudent"] = ("CDFStudent: {t, df, P(T <= t)}", cdf_rows)
    tables["kRefInvCDFStudent"] = ("InvCDFStudent: {p, df, t with P(T <= t) = p}", q_rows)

    # Chi-square ------------------------------------------------------------------------------
    upper_rows, lower_rows, qlow_rows, qup_rows = [], [], [], []
    for df in CHI_DF:
        xs = []
        for q in LEVELS:
            # Points spread over the upper tail (p-values) and the lower tail.
            for x in (chi_quantile_upper, chi_quantile_lower):
                xv = float(at_dps(WORK_DPS, x, q, df))
                if xv >= 1e-300:
                    xs.append(xv)
        for xv in sorted(set(xs)):
            up = checked(chi_upper, mpf(xv), mpf(df))
            lo = checked(chi_lower, mpf(xv), mpf(df))
            if float(up) >= DBL_MIN:
                upper_rows.append((xv, df, to_double(up)))
                cross_check(f"chdtrc({df},{xv})", float(up), float(sc.chdtrc(df, xv)))
            if float(lo) >= DBL_MIN:
                lower_rows.append((xv, df, to_double(lo)))
                cross_check(f"chdtr({df},{xv})", float(lo), float(sc.chdtr(df, xv)))
        for p in LEVELS:
            xl = at_dps(WORK_DPS, chi_quantile_lower, p, df)
            xu = at_dps(WORK_DPS, chi_quantile_upper, p, df)
            with mp.workdps(CHECK_DPS):
                # Each root is checked on its smaller tail.
                small = mpf(p) if p <= 0.5 else 1 - mpf(p)
                checks = ((xl, chi_lower if p <= 0.5 else chi_upper),
                          (xu, chi_upper if p <= 0.5 else chi_lower))
                for xr, tail in checks:
                    if abs(tail(xr, mpf(df)) / small - 1) > mpf("1e-35"):
                        raise RuntimeError(f"chi-square quantile residual at {p}, {df}")
            # Quantiles are checked through scipy's forward functions on the smaller tail.
            small = p if p <= 0.5 else 1 - p
            if float(xl) >= DBL_MIN:
                qlow_rows.append((p, df, float(xl)))
                f = sc.chdtr if p <= 0.5 else sc.chdtrc
                cross_check(f"chi-square lower quantile {p}, {df}", small, float(f(df, float(xl))), 1e-7)
            if float(xu) >= DBL_MIN:
                qup_rows.append((p, df, float(xu)))
                f = sc.chdtrc if p <= 0.5 else sc.chdtr
                cross_check(f"chi-square upper quantile {p}, {df}", small, float(f(df, float(xu))), 1e-7)
    tables["kRefPValChiSq"] = ("pValChiSq: {x, df, P(X >= x)}", upper_rows)
    tables["kRefCDFChiSq"] = ("CDFChiSq: {x, df, P(X <= x)}", lower_rows)
    tables["kRefInvCDFChiSq"] = ("InvCDFChiSq: {p, df, x with P(X <= x) = p}", qlow_rows)
    tables["kRefInvCDFChiSqUpper"] = ("InvCDFChiSqUpper: {q, df, x with P(X >= x) = q}", qup_rows)

    # Kolmogorov ------------------------------------------------------------------------------
    krows, urows = [], []
    for x in KOLMOGOROV_X:
        k, u = kolmogorov(x)
        krows.append((x, to_double(k)))
        urows.append((x, to_double(u)))
        cross_check(f"kolmogorov({x})", float(u), float(sc.kolmogorov(x)))
    tables["kRefCDFKolmogorov"] = ("CDFKolmogorov: {x, K(x)}", krows)
    tables["kRefCDFKolmogorovUpper"] = ("CDFKolmogorovUpper: {x, 1 - K(x)}", urows)

    return tables


# ---------------------------------------------------------------------------------------------
# Interval helpers
# ---------------------------------------------------------------------------------------------


def wilson_mp(z, p, n, cc):
    """Wilson (1927) score interval with continuity correction cc, Newcombe (1998) methods 3/4."""
    with mp.workdps(WORK_DPS):
        z, p, n, cc = mpf(z), mpf(p), mpf(n), mpf(cc)
        denom = 2 * (n + z * z)
        pl, pu = p - cc / n, p + cc / n
        if pl <= 0:
            lo = mpf(0)
        else:
            lo = (2 * n * p + z * z - 2 * cc - z * mpmath.sqrt(z * z + 4 * n * pl * (1 - pl))) / denom
        if pu >= 1:
            hi = mpf(1)
        else:
            hi = (2 * n * p + z * z + 2 * cc + z * mpmath.sqrt(z * z + 4 * n * pu * (1 - pu))) / denom
        return float(min(max(lo, 0), 1)), float(min(max(hi, 0), 1))


def wilson_cases():
    z95, z99, z90 = 1.959963984540054, 2.5758293035489004, 1.6448536269514722
    conf = {z95: 0.95, z99: 0.99, z90: 0.90}
    counts = [(0, 20), (1, 29), (15, 148), (81, 263), (20, 20), (3, 10), (40, 50), (1, 1),
              (0, 1), (999, 1000), (1, 100000), (5000, 10000)]
    weighted = [(0.3, 12.5), (2.75, 7.5), (7.4, 7.5), (0.2, 1.0), (123.456, 789.0)]
    rows = []
    for z in (z95, z99, z90):
        for cc in (0.0, 0.5, 0.25):
            for k, n in counts + weighted:
                p = k / n
                lo, hi = wilson_mp(z, p, n, cc)
                if cc in (0.0, 0.5) and float(k).is_integer():
                    method = "wilson" if cc == 0 else "wilsoncc"
                    ci = st.binomtest(int(k), int(n)).proportion_ci(conf[z], method)
                    for ours, theirs in ((lo, ci.low), (hi, ci.high)):
                        if abs(ours - theirs) > 1e-12:
                            raise RuntimeError(f"Wilson {k}/{n} cc={cc}: {ours} vs {theirs}")
                rows.append((z, p, float(n), cc, lo, hi))
    return rows


def beta_quantile(tail_prob, upper, a, b, guess):
    """y with I_y(a, b) = tail_prob (upper false) or 1 - I_y(a, b) = tail_prob (upper true),
    polished in mpmath from scipy's guess. The upper tail is given as such (alpha/2), not as the
    double 1 - alpha/2, whose rounding would shift a small tail by up to 1e-14 relative."""
    with mp.workdps(WORK_DPS):
        a, b = mpf(a), mpf(b)
        lt = mpmath.log(mpf(tail_prob))

        def lower_tail(y, a, b):
            # I_y(a, b) = y^a (1-y)^b / (a B(a, b)) 2F1(a + b, 1; a + 1; y): positive terms, used
            # below the mean where it converges (mpmath's betainc gives up for a, b ~ 5e4).
            pre = a * mpmath.log(y) + b * mpmath.log1p(-y) - mpmath.log(a) - mpmath.log(mpmath.beta(a, b))
            return mpmath.exp(pre) * mpmath.hyp2f1(a + b, 1, a + 1, y, maxterms=10**7)

        def tail(y):
            return lower_tail(1 - y, b, a) if upper else lower_tail(y, a, b)

        def logpdf(y):
            return ((a - 1) * mpmath.log(y) + (b - 1) * mpmath.log1p(-y) - mpmath.log(mpmath.beta(a, b)))

        sign = -1 if upper else 1
        g = lambda y: sign * (mpmath.log(tail(y)) - lt)
        dg = lambda y: mpmath.exp(logpdf(y)) / tail(y)
        width = max(abs(mpf(guess)) * mpf("1e-6"), mpf("1e-300"))
        lo, hi = max(mpf(guess) - width, mpf(0) + mpf("1e-320")), min(mpf(guess) + width, 1 - mpf("1e-40"))
        return float(solve_increasing(g, dg, lo, hi))


def clopper_cases():
    cases = [(0, 10), (1, 10), (5, 10), (10, 10), (81, 263), (15, 148), (0, 1), (1, 1),
             (999, 1000), (1, 100000), (50000, 100000), (2.5, 7.5), (0.5, 3.7), (7.4, 7.5),
             (123.456, 789.0)]
    rows = []
    for alpha in (0.05, 0.01, 0.1, 0.001):
        for x, n in cases:
            if x <= 0:
                lo = 0.0
            else:
                g = float(st.beta.ppf(alpha / 2, x, n - x + 1))
                lo = beta_quantile(alpha / 2, False, x, n - x + 1, g)
                cross_check(f"beta.ppf lo {x}/{n}", lo, g)
            if x >= n:
                hi = 1.0
            else:
                g = float(st.beta.isf(alpha / 2, x + 1, n - x))
                hi = beta_quantile(alpha / 2, True, x + 1, n - x, g)
                cross_check(f"beta.ppf hi {x}/{n}", hi, g)
            if float(x).is_integer() and alpha == 0.05:
                # binomtest solves its root only to about 1e-7, so this checks the convention
                # (which beta quantiles), not the digits.
                ci = st.binomtest(int(x), int(n)).proportion_ci(0.95, "exact")
                cross_check(f"binomtest exact lo {x}/{n}", lo, ci.low, 1e-5)
                cross_check(f"binomtest exact hi {x}/{n}", hi, ci.high, 1e-5)
            rows.append((float(x), float(n), alpha, lo, hi))
    return rows


# ---------------------------------------------------------------------------------------------
# Output
# ---------------------------------------------------------------------------------------------


def fmt(v):
    s = repr(float(v))  # shortest string that round-trips exactly
    if "e" not in s and "." not in s and "inf" not in s and "nan" not in s:
        s += ".0"
    return s


def write(tables, wilson, clopper):
    today = datetime.date.today().isoformat()
    lines = [
        "// Reference values for the companion distribution and interval functions.",
        "// Generated by tests/reference/companion/make_distributions.py; do not edit by hand.",
        f"// Python {platform.python_version()}, mpmath {mpmath.__version__} ({WORK_DPS}-digit working"
        f" precision, checked at {CHECK_DPS}),",
        f"// scipy {scipy.__version__} (cross-checks, beta.ppf starts, binomtest), numpy {np.__version__};"
        f" generated {today}.",
        "// Each value is the exact reference rounded once to the nearest double, written in the",
        "// shortest decimal form that reads back to that double.",
        "// Row types (defined by the including test): RefX {x, expected}; RefXY {a, b, expected};",
        "// WilsonRef {z, p, n, cc, lo, hi}; ClopperRef {x, n, alpha, lo, hi}.",
        "",
    ]
    for name, (title, rows) in tables.items():
        typ = "RefX" if len(rows[0]) == 2 else "RefXY"
        lines.append(f"// {title}")
        lines.append(f"static const {typ} {name}[] = {{")
        for r in rows:
            lines.append("    {" + ", ".join(fmt(v) for v in r) + "},")
        lines.append("};")
        lines.append("")
    lines.append("// GetInfSupWilson: {z, p, n, cc, lower, upper}; Newcombe (1998) closed formulas in mpmath")
    lines.append("static const WilsonRef kRefWilson[] = {")
    for r in wilson:
        lines.append("    {" + ", ".join(fmt(v) for v in r) + "},")
    lines.append("};")
    lines.append("")
    lines.append("// GetInfSupClopper: {x, n, alpha, lower, upper}; beta quantiles (scipy, mpmath-polished)")
    lines.append("static const ClopperRef kRefClopper[] = {")
    for r in clopper:
        lines.append("    {" + ", ".join(fmt(v) for v in r) + "},")
    lines.append("};")
    with open(OUT, "w") as f:
        f.write("\n".join(lines) + "\n")
    total = sum(len(r) for _, r in tables.values()) + len(wilson) + len(clopper)
    print(f"wrote {OUT}: {total} rows")


def main():
    mp.dps = WORK_DPS
    tables = build()
    write(tables, wilson_cases(), clopper_cases())


if __name__ == "__main__":
    main()
