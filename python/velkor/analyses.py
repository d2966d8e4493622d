"""One function per analysis, chaining the library's flat entry points exactly as the velkor
command-line tool does, so that both give the same numbers bit for bit.

Each function returns a dict of tables (pandas DataFrames when pandas is installed, dicts of
arrays otherwise) named as the tool's CSV/JSON tables; cells without a value are NaN.
"""
from __future__ import annotations

import ctypes

import numpy as np

import sys
import warnings

from ._native import PROGRESS_FN, MISSING, as_column, check, choice, frontdoor, library, ptr, table, to_nan

_c_int = ctypes.c_int
_c_double = ctypes.c_double


def _labels_in_order(raw: list[str]) -> list[str]:
    """Distinct labels, numerically ordered when all are numbers (as the tool orders them)."""
    def num(s):
        try:
            return float(s)
        except ValueError:
            return None
    distinct = sorted(set(raw))
    if all(num(s) is not None for s in distinct):
        return sorted(distinct, key=lambda s: (num(s), s))
    return distinct


def _label(v) -> str:
    if isinstance(v, (float, np.floating)) and float(v).is_integer():
        return str(int(v))
    return str(v)


def _missing_label(v) -> bool:
    return v is None or (isinstance(v, (float, np.floating)) and np.isnan(v)) or str(v).strip() in ("", "NA")


def km(time, status, group=None, weight=None, data=None, event_code: float = 1, alpha: float = 0.05,
       na_variance: int = 1, life_table: bool = False, width: float | None = None):
    """Kaplan-Meier analysis (the tool's `velkor km`): tables summary, product_limit,
    nelson_aalen, mean, quartiles and, with two groups or more, tests and pairwise.

    time, status, group, weight: arrays, or column names of `data` (a DataFrame or dict).
    A status equal to `event_code` is an event, any other value censored. Rows with a missing
    time, status, group or weight are left out. `life_table` adds the actuarial life table
    (intervals of `width`, default the largest time / 10).
    """
    lib = library()
    t = np.asarray(as_column(data, time), dtype=np.float64)
    s = np.asarray(as_column(data, status), dtype=np.float64)
    w = None if weight is None else np.asarray(as_column(data, weight), dtype=np.float64)
    g = None if group is None else list(as_column(data, group))
    if len(s) != len(t) or (w is not None and len(w) != len(t)) or (g is not None and len(g) != len(t)):
        raise ValueError("time, status, group and weight must have the same length")
    keep = ~(np.isnan(t) | np.isnan(s))
    if w is not None:
        keep &= ~np.isnan(w)
    raw = ["all"] * len(t) if g is None else [None if _missing_label(v) else _label(v) for v in g]
    keep &= np.array([v is not None for v in raw], dtype=bool)
    idx = np.flatnonzero(keep)
    used = [raw[i] for i in idx]
    labels = _labels_in_order(used)
    code = {lab: k + 1.0 for k, lab in enumerate(labels)}
    times = np.ascontiguousarray(t[idx])
    stat = np.ascontiguousarray(np.where(s[idx] == event_code, 1.0, 0.0))
    wts = np.ascontiguousarray(np.ones(len(idx)) if w is None else w[idx])
    groups = np.ascontiguousarray(np.array([code[v] for v in used], dtype=np.float64))
    G, n = len(labels), len(idx)
    sizes = np.zeros(max(G, 1))
    for v in groups:
        sizes[int(v) - 1] += 1
    max_time = _c_double(0)
    st = lib.ReorganizeData(ptr(times), n, ptr(stat), ptr(wts), ptr(groups), ptr(sizes), G, 0,
                            ctypes.byref(max_time))
    check("ReorganizeData", st, warnings_ok=(-3, -5))
    R = int(sizes.max()) + 1
    tables = np.zeros(G * R * 12)
    last = np.zeros(G)
    totals = np.zeros(G)
    check("RunLife", lib.RunLife(ptr(times), ptr(stat), ptr(wts), n, ptr(sizes), G, 0, 1, 0,
                                 _c_double(0.0), R, ptr(tables), ptr(last), ptr(totals)))
    tab = tables.reshape(G, 12, R)  # tab[g, col - 1, row]
    summary = np.zeros(G * 6)
    lib.Cpp_Build_Summary(ptr(tables), R, G, ptr(last), ptr(totals), ptr(summary))
    summary = summary.reshape(6, G)
    name = ["all"] if group is None else labels
    out = {"summary": table({"group": np.array(name, dtype=object),
                             **{h: to_nan(summary[c]) for c, h in enumerate(
                                 ["n", "events", "censored", "% censored", "first time", "last time"])}})}
    level = round(100 * (1 - alpha))
    lo, hi = f"lower {level}%", f"upper {level}%"
    pl = {k: [] for k in ["group", "time", "at risk", "events", "censored", "survival", "std. error", lo, hi]}
    na = {k: [] for k in ["group", "time", "at risk", "events", "cum. hazard", "std. error", lo, hi]}
    means = {k: [] for k in ["group", "mean", "std. error", lo, hi, "time cap"]}
    quart = {k: [] for k in ["group", "quantile", "time", lo, hi]}
    for gi in range(G):
        T = int(last[gi])
        P, C = 2 * T + 1, max(2 * T - 1, 1)
        block = np.ascontiguousarray(tables[gi * R * 12:(gi + 1) * R * 12])
        main = np.zeros(P * 7)
        hz = np.zeros(C * 3)
        ll = np.zeros(C * 3)
        lib.Cpp_PrepareKaplanCharts(ptr(block), R, T, 0, 0, 0, _c_double(tab[gi, 0, 1] if T > 0 else 0.0),
                                    _c_double(alpha), 1, ptr(main), P, ptr(hz), ptr(ll), C)
        main = main.reshape(7, P)
        for j in range(1, T + 1):
            S = tab[gi, 7, j]
            pl["group"].append(name[gi])
            pl["time"].append(tab[gi, 0, j])
            pl["at risk"].append(tab[gi, 2, j])
            pl["events"].append(tab[gi, 3, j])
            pl["censored"].append(tab[gi, 4, j])
            pl["survival"].append(S)
            pl["std. error"].append(S if S <= MISSING else S * np.sqrt(tab[gi, 10, j]))
            pl[lo].append(main[1, 2 * j])
            pl[hi].append(main[2, 2 * j])
        nao = np.zeros(max(T, 1) * 9)
        lib.Cpp_TransNelsonAalen(ptr(block), R, T, _c_double(alpha), int(na_variance), ptr(nao))
        for j in range(T):
            na["group"].append(name[gi])
            for key, col in zip(list(na)[1:], [0, 1, 2, 4, 6, 7, 8]):
                na[key].append(nao[col * T + j])
        cap = _c_double(0)
        mean = np.zeros(4)
        q = np.zeros(12)
        lib.Cpp_ComputeKaplanMeanMedian(ptr(block), R, T + 1, _c_double(alpha), int(sizes[gi]),
                                        ctypes.byref(cap), ptr(mean), ptr(q))
        means["group"].append(name[gi])
        for key, v in zip(["mean", "std. error", lo, hi], mean):
            means[key].append(v)
        means["time cap"].append(cap.value if cap.value > 0 else MISSING)
        for k in (2, 1, 0):
            quart["group"].append(name[gi])
            for c, key in enumerate(["quantile", "time", lo, hi]):
                quart[key].append(q[3 * c + k])

    def finish(d):
        return table({k: (np.array(v, dtype=object) if k == "group" else to_nan(np.array(v, dtype=np.float64)))
                      for k, v in d.items()})
    out["product_limit"] = finish(pl)
    out["nelson_aalen"] = finish(na)
    out["mean"] = finish(means)
    out["quartiles"] = finish(quart)
    if G >= 2:
        count = _c_int(n)
        combined = np.zeros((3 * G + 1) * n)
        lib.LoadKaplanTest(ctypes.byref(count), ptr(tables), G, R, ptr(last), ptr(combined))
        T = count.value
        res = np.zeros(12)
        pairs = np.zeros(3 * G * (G - 1) // 2 * 7)
        lib.ComputeLifeTests(ptr(combined), T, G, _c_double(alpha), ptr(res))
        lib.Cpp_ComputeMultComp(ptr(combined), T, G, _c_double(alpha), ptr(pairs))
        names = ["Log-rank", "Gehan-Wilcoxon", "Tarone-Ware"]
        out["tests"] = table({"test": np.array(names, dtype=object), "chi-square": to_nan(res[0:3]),
                              "df": np.full(3, G - 1.0), "critical value": to_nan(res[3:6]),
                              "p-value": to_nan(res[6:9])})
        rows = 3 * G * (G - 1) // 2
        p = pairs.reshape(7, rows)
        out["pairwise"] = table({
            "group a": np.array([labels[int(v) - 1] for v in p[0]], dtype=object),
            "group b": np.array([labels[int(v) - 1] for v in p[1]], dtype=object),
            "test": np.array([names[int(v) - 1] for v in p[2]], dtype=object),
            "chi-square": to_nan(p[3]), "p-value": to_nan(p[4]), "Bonferroni": to_nan(p[5]),
            "Holm": to_nan(p[6])})
    if life_table:
        w_in = float(width) if width is not None else 0.0
        w_eff = w_in if w_in > 0 else max_time.value / 10
        LR = int(min(1e6, np.ceil(max_time.value / (w_eff if w_eff > 0 else 1)) + 2))
        lt = np.zeros(G * LR * 12)
        ll, lt2 = np.zeros(G), np.zeros(G)
        lib.RunLife(ptr(times), ptr(stat), ptr(wts), n, ptr(sizes), G, 0, 1, -1, _c_double(w_in), LR, ptr(lt),
                    ptr(ll), ptr(lt2))
        heads = ["start", "end", "entering", "deaths", "withdrawn", "at risk", "cond. survival", "survival", "hazard"]
        cols = [1, 2, 3, 4, 5, 6, 7, 8, 10]
        life = {"group": [], **{h: [] for h in heads}}
        L = lt.reshape(G, 12, LR)
        for gi in range(G):
            for j in range(1, int(ll[gi]) + 1):
                life["group"].append(name[gi])
                for h, c in zip(heads, cols):
                    life[h].append(L[gi, c - 1, j])
        out["life_table"] = finish(life)
    return out


_SE = {"hanley": 0, "bamber": 1, "delong": 2}
_TAIL = {"two": 0, "lower": -1, "upper": 1}


def roc(status, markers, data=None, positive="1", weight=None, side: int = 1, se_method: str = "delong",
        tail: str = "two", interval: int = 3, prior: float = 0.0, alpha: float = 0.05):
    """ROC analysis (the tool's `velkor roc`): tables auc, optimal, curve, thresholds and, with
    several markers, comparison and global_test.

    status: array or column name; a row is truly positive when its status equals `positive`
    (as text, or as the same number). markers: one column name / array, or a list of them.
    """
    lib = library()
    se_code, tail_code = choice("se_method", se_method, _SE), choice("tail", tail, _TAIL)
    if isinstance(markers, (str, np.ndarray)) or not isinstance(markers, (list, tuple)):
        markers = [markers]
    names = [m if isinstance(m, str) else f"marker{k + 1}" for k, m in enumerate(markers)]
    x = [np.asarray(as_column(data, m), dtype=np.float64) for m in markers]
    s = list(as_column(data, status))
    w = None if weight is None else np.asarray(as_column(data, weight), dtype=np.float64)
    n0 = len(s)
    if any(len(v) != n0 for v in x) or (w is not None and len(w) != n0):
        raise ValueError("status, markers and weight must have the same length")
    pos = str(positive)
    try:
        pos_num = float(pos)
    except ValueError:
        pos_num = None

    def is_positive(v):
        if _label(v) == pos or str(v) == pos:
            return True
        try:
            return pos_num is not None and float(v) == pos_num
        except (TypeError, ValueError):
            return False
    keep = np.array([not _missing_label(v) for v in s], dtype=bool)
    for v in x:
        keep &= ~np.isnan(v)
    if w is not None:
        keep &= ~np.isnan(w)
    idx = np.flatnonzero(keep)
    st_arr = np.ascontiguousarray([1.0 if is_positive(s[i]) else 0.0 for i in idx], dtype=np.float64)
    wts = np.ascontiguousarray(np.ones(len(idx)) if w is None else w[idx])
    xs = [np.ascontiguousarray(v[idx]) for v in x]
    n = len(idx)
    R = max(n, 1)
    level = round(100 * (1 - alpha))
    lo, hi = f"lower {level}%", f"upper {level}%"
    auc_t = {k: [] for k in ["marker", "AUC", "std. error", lo, hi, "z", "p-value"]}
    curve = {k: [] for k in ["marker", "1 - specificity", "sensitivity", "threshold"]}
    thr = {k: [] for k in ["marker", "threshold", "TP", "FP", "FN", "TN", "sensitivity", "specificity",
                           "PPV", "NPV", "Youden J"]}
    opt = {k: [] for k in ["marker", "threshold", "Youden J"]}
    for name, v in zip(names, xs):
        cv = np.zeros((R + 1) * 3)
        ts = np.zeros(R * 44)
        costs = np.zeros(R)
        res = np.zeros(9)
        optimal = np.zeros(R * 4)
        counts = (ctypes.c_int * 3)()
        st = lib.Cpp_ComputeROC(ptr(st_arr), ptr(v), ptr(wts), n, side, _c_double(alpha), se_code,
                                tail_code, interval, 0, _c_double(prior), None, 0, ptr(cv), ptr(ts),
                                ptr(costs), ptr(res), ptr(optimal), counts)
        check("Cpp_ComputeROC", st)
        auc_t["marker"].append(name)
        for key, c in zip(list(auc_t)[1:], [0, 1, 2, 3, 4, 7]):
            auc_t[key].append(res[c])
        k = counts[0]
        for j in range(k + 1):
            curve["marker"].append(name)
            for c, key in enumerate(list(curve)[1:]):
                curve[key].append(cv[c * (R + 1) + j])
        T = ts.reshape(44, R)
        for j in range(k):
            thr["marker"].append(name)
            sens, specif = T[7, j], T[8, j]
            vals = [T[0, j], T[1, j], T[2, j], T[3, j], T[4, j], sens, specif, T[12, j], T[13, j],
                    MISSING if sens <= MISSING or specif <= MISSING else sens + specif - 1]
            for key, val in zip(list(thr)[1:], vals):
                thr[key].append(val)
        for j in range(counts[1]):
            opt["marker"].append(name)
            opt["threshold"].append(optimal[j])
            opt["Youden J"].append(optimal[R + j])

    def finish(d):
        return table({kk: (np.array(vv, dtype=object) if kk == "marker" else to_nan(np.array(vv, dtype=np.float64)))
                      for kk, vv in d.items()})
    out = {"auc": finish(auc_t)}
    M = len(xs)
    if M >= 2:
        allv = np.ascontiguousarray(np.concatenate(xs))
        aucs = np.zeros(M * 4)
        cov = np.zeros(M * M)
        glob = np.zeros(3)
        P = M * (M - 1) // 2
        pairs = np.zeros(P * 8)
        st = lib.Cpp_ComputeROCComparisonsDep2(ptr(st_arr), ptr(allv), ptr(wts), n, M, side, _c_double(alpha),
                                               ptr(aucs), ptr(cov), ptr(glob), ptr(pairs))
        check("Cpp_ComputeROCComparisonsDep2", st)
        pr = pairs.reshape(8, P)
        out["comparison"] = table({
            "marker a": np.array([names[int(v) - 1] for v in pr[0]], dtype=object),
            "marker b": np.array([names[int(v) - 1] for v in pr[1]], dtype=object),
            "difference": to_nan(pr[2]), "std. error": to_nan(pr[3]), lo: to_nan(pr[4]), hi: to_nan(pr[5]),
            "z": to_nan(pr[6]), "p-value": to_nan(pr[7])})
        out["global_test"] = table({"chi-square": to_nan(glob[0:1]), "df": to_nan(glob[1:2]),
                                    "p-value": to_nan(glob[2:3])})
    out["optimal"] = finish(opt)
    out["curve"] = finish(curve)
    out["thresholds"] = finish(thr)
    return out


def _xy(data, x, y):
    xa = np.asarray(as_column(data, x), dtype=np.float64)
    ya = np.asarray(as_column(data, y), dtype=np.float64)
    if len(xa) != len(ya):
        raise ValueError("x and y must have the same length")
    return np.ascontiguousarray(np.where(np.isnan(xa), MISSING, xa)), np.ascontiguousarray(
        np.where(np.isnan(ya), MISSING, ya))


def _subjects(values):
    """Subject codes 1..k in order of first appearance (missing cells: the marker)."""
    codes, out = {}, []
    for v in values:
        if _missing_label(v):
            out.append(MISSING)
        else:
            out.append(codes.setdefault(_label(v), float(len(codes) + 1)))
    return np.ascontiguousarray(out, dtype=np.float64), len(codes)


def _estimates(labels, est, se, lo, hi, alpha, se_name="std. error"):
    level = round(100 * (1 - alpha))
    cols = {"statistic": np.array(labels, dtype=object), "estimate": to_nan(np.array(est, dtype=float))}
    if se is not None:
        cols[se_name] = to_nan(np.array(se, dtype=float))
    cols[f"lower {level}%"] = to_nan(np.array(lo, dtype=float))
    cols[f"upper {level}%"] = to_nan(np.array(hi, dtype=float))
    return cols


def bland_altman(x, y, data=None, type: str = "diff", loa_ci: str = "exact", alpha: float = 0.05,
                 alpha_ci: float = 0.05):
    """Bland-Altman analysis (`velkor bland-altman`): tables agreement and rows."""
    lib = library()
    xa, ya = _xy(data, x, y)
    n = len(xa)
    t = choice("type", type, {"diff": 0, "relative": 1, "ratio": 2})
    exact = choice("loa_ci", loa_ci, {"approx": 0, "exact": 1})
    diffs, means = np.full(n, MISSING), np.full(n, MISSING)
    sc = [_c_double(0) for _ in range(6)]
    check("Cpp_BlandAltman", lib.Cpp_BlandAltman(ptr(xa), ptr(ya), n, t, _c_double(alpha), ptr(diffs),
                                                 ptr(means), *[ctypes.byref(v) for v in sc]))
    limits = np.zeros(6)
    check("Cpp_BlandAltmanLoACI", lib.Cpp_BlandAltmanLoACI(ptr(xa), ptr(ya), n, t, _c_double(alpha),
                                                           _c_double(alpha_ci), exact,
                                                           ptr(limits)))
    bias, sd, bl, bh, ll, lh = (v.value for v in sc)
    cols = _estimates(["bias", "lower limit of agreement", "upper limit of agreement"], [bias, ll, lh],
                      [sd, MISSING, MISSING], [bl, limits[1], limits[4]], [bh, limits[2], limits[5]], alpha,
                      se_name="std. deviation")
    keys = list(cols)
    cols = {("lower limit" if k == keys[3] else "upper limit" if k == keys[4] else k): v for k, v in cols.items()}
    return {"agreement": table(cols),
            "rows": table({"row": np.arange(1.0, n + 1), "mean": to_nan(means), "difference": to_nan(diffs)})}


def repeatability(value, subject, data=None, alpha: float = 0.05):
    """Within-subject standard deviation (`velkor repeatability`): table repeatability."""
    lib = library()
    xa = np.asarray(as_column(data, value), dtype=np.float64)
    xa = np.ascontiguousarray(np.where(np.isnan(xa), MISSING, xa))
    subj, _ = _subjects(list(as_column(data, subject)))
    if len(subj) != len(xa):
        raise ValueError("value and subject must have the same length")
    sw, lo, hi = _c_double(0), _c_double(0), _c_double(0)
    check("Cpp_GetRepeatability", lib.Cpp_GetRepeatability(ptr(xa), len(xa), ptr(subj), _c_double(alpha),
                                                           ctypes.byref(sw), ctypes.byref(lo), ctypes.byref(hi)))
    return {"repeatability": table(_estimates(["within-subject SD"], [sw.value], None, [lo.value], [hi.value],
                                              alpha))}


def passing_bablok(x, y, data=None, method: str = "standard", allow_negative: bool = False,
                   alpha: float = 0.05):
    """Passing-Bablok regression (`velkor passing-bablok`): tables coefficients, linearity, rows."""
    lib = library()
    xa, ya = _xy(data, x, y)
    n = len(xa)
    sc = [_c_double(0) for _ in range(9)]
    fit, res, dif, dist = (np.zeros(n) for _ in range(4))
    fn = choice("method", method, {"standard": lib.Cpp_Passing_Bablok, "equivariant": lib.Cpp_PassingBablokBIS})
    refs = [ctypes.byref(v) for v in sc]
    st = fn(ptr(xa), n, ptr(ya), 3 if allow_negative else 1, _c_double(alpha), *refs[:6], ptr(fit), ptr(res),
            ptr(dif), ptr(dist), *refs[6:])
    if st == -10:
        raise _native_error("Cpp_Passing_Bablok", st)
    check("Cpp_Passing_Bablok", st)
    a, al, ah, b, bl, bh, cus, crit, p = (v.value for v in sc)
    return {"coefficients": table(_estimates(["intercept", "slope"], [a, b], None, [al, bl], [ah, bh], alpha)),
            "linearity": table({"max |cusum|": to_nan(np.array([cus])), "critical value": to_nan(np.array([crit])),
                                "p-value": to_nan(np.array([p]))}),
            "rows": table({"x": to_nan(xa), "y": to_nan(ya), "fitted": to_nan(fit), "residual": to_nan(res),
                           "y - x": to_nan(dif), "distance": to_nan(dist)})}


def _native_error(function, status):
    from ._native import VelkorError  # noqa: PLC0415
    return VelkorError(function, status)


def deming(x, y, data=None, lambda_: float = 1.0, subject=None, weighted: bool = False, max_iter: int = 50,
           tol: float = 1e-10, alpha: float = 0.05):
    """Deming regression (`velkor deming`): tables coefficients, fit (with replicates) and rows."""
    lib = library()
    xa, ya = _xy(data, x, y)
    n = len(xa)
    coef, info = np.zeros(8), np.full(3, MISSING)
    fit, res = np.zeros(n), np.zeros(n)
    subj = None if subject is None else _subjects(list(as_column(data, subject)))[0]
    replicates = subject is not None or weighted or not (lambda_ > 0)
    if replicates:
        st = lib.Cpp_NewDemingRegression(ptr(xa), ptr(ya), n, None if subj is None else ptr(subj),
                                         -1 if weighted else 0, _c_double(lambda_), _c_double(alpha), int(max_iter),
                                         _c_double(tol), ptr(coef), ptr(info), ptr(fit), ptr(res))
    else:
        st = lib.VB_DemingRegression(ptr(xa), ptr(ya), n, _c_double(lambda_), _c_double(alpha), ptr(coef),
                                     ptr(fit), ptr(res))
    check("Deming regression", st)
    out = {"coefficients": table(_estimates(["intercept", "slope"], coef[[0, 4]], coef[[1, 5]], coef[[2, 6]],
                                            coef[[3, 7]], alpha))}
    if replicates:
        out["fit"] = table({"lambda": to_nan(info[0:1]), "subjects": to_nan(info[1:2]),
                            "iterations": to_nan(info[2:3])})
    out["rows"] = table({"x": to_nan(xa), "y": to_nan(ya), "fitted": to_nan(fit), "residual": to_nan(res)})
    return out


def _level_order(levels):
    def num(s):
        try:
            return float(s)
        except ValueError:
            return None
    if all(num(s) is not None for s in levels):
        return sorted(levels, key=lambda s: (num(s), s))
    return sorted(levels)


def _design(data, n, covariates, factors, required, text_required=()):
    """Rows used (no missing value anywhere), the design matrix (column-major) with factor
    indicator columns (first level in ascending order as reference), column names, and the
    number of columns of each variable."""
    covariates = [covariates] if isinstance(covariates, str) else list(covariates or [])
    factors = [factors] if isinstance(factors, str) else list(factors or [])
    cov = [np.asarray(as_column(data, c), dtype=np.float64) for c in covariates]
    fac = [[None if _missing_label(v) else _label(v) for v in as_column(data, f)] for f in factors]
    txt = [[None if _missing_label(v) else _label(v) for v in col] for col in text_required]
    keep = np.ones(n, dtype=bool)
    for a in list(required) + cov:
        if len(a) != n:
            raise ValueError("every column must have the same length")
        keep &= ~np.isnan(a)
    for f in fac + txt:
        if len(f) != n:
            raise ValueError("every column must have the same length")
        keep &= np.array([v is not None for v in f], dtype=bool)
    rows = np.flatnonzero(keep)
    cols, names, var_coefs, var_names = [], [], [], []
    for c, a in zip(covariates, cov):
        cols.append(a[rows])
        names.append(str(c))
        var_coefs.append(1)
        var_names.append(str(c))
    for f, labels in zip(factors, fac):
        used = [labels[i] for i in rows]
        levels = _level_order(list(dict.fromkeys(used)))
        if len(levels) < 2:
            continue
        for lev in levels[1:]:
            cols.append(np.array([1.0 if v == lev else 0.0 for v in used]))
            names.append(f"{f}={lev}")
        var_coefs.append(len(levels) - 1)
        var_names.append(str(f))
    x = np.ascontiguousarray(np.concatenate(cols) if cols else np.zeros(0))
    return rows, x, names, var_coefs, var_names


_PH_TRANSFORMS = {"identity": 0, "log": 1, "rank": 2, "km": 3}
_QUALITY = ["R-square", "rescaled R-square", "-2 log L reduction", "concordance", "Somers' D"]


def _whole(option, value, low, high):
    if isinstance(value, bool) or not isinstance(value, (int, np.integer)) or not low <= value <= high:
        raise ValueError(f"{option} must be a whole number between {low} and {high}, not {value!r}")
    return int(value)


def _progress_callback(progress):
    """The C progress callback for `progress`: None draws on stderr when it is a terminal, False
    nothing, a callable is called as progress(phase, done, total) and stops the work when it
    returns False. Returns the callback and a function that erases the line drawn."""
    names = {1: "cross-validation folds", 2: "bootstrap replicates"}
    draw = progress is None and sys.stderr is not None and sys.stderr.isatty()
    shown = [False]

    def call(phase, done, total, _context):
        if callable(progress):
            return 0 if progress(names.get(phase, "work"), int(done), int(total)) is False else 1
        if draw and total > 0:
            sys.stderr.write(f"\r\033[Kvelkor.cox: {names.get(phase, 'work')} {done}/{total} ({100 * done // total}%)")
            sys.stderr.flush()
            shown[0] = True
        return 1

    def erase():
        if shown[0]:
            sys.stderr.write("\r\033[K")
            sys.stderr.flush()
    return PROGRESS_FN(call), erase


def cox(time, status, covariates=None, factors=None, data=None, event_code: float = 1, strata=None,
        weight=None, ties: str = "breslow", selection: str = "none", threshold: float = 0.05,
        back_statistic: str = "wald", max_iter: int = 100, tol: float = 1e-9, alpha: float = 0.05,
        baseline: bool = False, residuals: bool = False, concordance: bool = False, cv: int | None = None,
        bootstrap: int | None = None, seed: int = 1, ph_test: str | None = None, refit_tol: float = 1e-6,
        progress=None):
    """Cox regression (`velkor cox`): tables coefficients, model, tests (and selection).

    After the fit, as the tool's options of the same names: `baseline` (table baseline: Breslow
    baseline survival and survival at the mean covariates per stratum and distinct time),
    `residuals` (martingale, deviance, Schoenfeld and score residuals, rows sorted by stratum and
    time, `line` the CSV line of the row), `concordance` (tables concordance and quality),
    `cv=K` (table cross_validation), `bootstrap=B` with `seed` (table bootstrap) and
    `ph_test` in "identity", "log", "rank", "km" (table ph_test, Grambsch-Therneau). The last
    three refit the final model through libvelkor_frontdoor (centred covariates, true Efron
    correction when ties="efron", relative tolerance `refit_tol`). `progress`: None shows progress on stderr when it is a
    terminal, False never, or a callable progress(phase, done, total) returning False to stop."""
    lib = library()
    ties_code = choice("ties", ties, {"breslow": 0, "efron": 1})
    sel = choice("selection", selection, {"none": -1, "forward": 0, "backward": 1})
    back = choice("back_statistic", back_statistic, {"wald": 0, "lr": 1})
    ph_code = -1 if ph_test is None else choice("ph_test", ph_test, _PH_TRANSFORMS)
    cv = None if cv is None else _whole("cv", cv, 2, 10**6)
    bootstrap = None if bootstrap is None else _whole("bootstrap", bootstrap, 1, 10**7)
    seed = _whole("seed", seed, 0, 2**32 - 1)
    if not 0 < alpha < 1:
        raise ValueError(f"alpha must lie in (0, 1), not {alpha!r}")
    if not refit_tol > 0:
        raise ValueError(f"refit_tol must be positive, not {refit_tol!r}")
    t = np.asarray(as_column(data, time), dtype=np.float64)
    s = np.asarray(as_column(data, status), dtype=np.float64)
    req = [t, s] + ([] if weight is None else [np.asarray(as_column(data, weight), dtype=np.float64)])
    strata_col = [] if strata is None else [list(as_column(data, strata))]
    rows, x, names, var_coefs, var_names = _design(data, len(t), covariates, factors, req, strata_col)
    n, p = len(rows), len(names)
    tt = np.ascontiguousarray(t[rows])
    ss = np.ascontiguousarray(np.where(s[rows] == event_code, 1.0, 0.0))
    w = None if weight is None else np.ascontiguousarray(req[2][rows])
    m, st_keys = 1, None
    if strata is not None:
        labels = [_label(strata_col[0][i]) for i in rows]
        levels = _level_order(list(dict.fromkeys(labels)))
        code = {lev: k + 1.0 for k, lev in enumerate(levels)}
        st_keys = np.ascontiguousarray([code[v] for v in labels], dtype=np.float64)
        m = len(levels)
    V = len(var_coefs)
    vc = np.ascontiguousarray(var_coefs, dtype=np.int32)
    iters = _c_int(int(max_iter))
    nfinal = _c_int(0)
    z = _c_double(0)
    beta, stats, tests, coef = np.zeros(p), np.zeros(12), np.zeros(9), np.zeros(p * 9)
    steps = np.full(V * 4, MISSING)
    var_step = np.zeros(V, dtype=np.int32)
    # Survival outputs: one column per distinct time of a stratum, rows in RunCoxReg's order
    # (stratum key, then time, ties as given; lexsort is stable).
    post_fit = baseline or residuals or ph_code >= 0
    keys = np.zeros(n) if st_keys is None else st_keys
    order = np.lexsort((tt, keys))
    stratum_of = keys[order].astype(int) - (0 if st_keys is None else 1)
    distinct = [np.unique(tt[order][stratum_of == k]) for k in range(m)]
    K = max(len(d) for d in distinct)
    base = np.full(m * K, MISSING) if post_fit else None
    mean = np.full(m * K, MISSING) if post_fit else None
    resid = np.full(n * (4 + 2 * p), MISSING) if post_fit else None
    st = lib.RunCoxReg(ptr(tt), ptr(ss), None if w is None else ptr(w), ptr(x),
                       None if st_keys is None else ptr(st_keys), None, n, p, m, ties_code,
                       ctypes.byref(iters), _c_double(tol), sel, _c_double(threshold),
                       back, V, ptr(vc), _c_double(alpha), -1 if post_fit else 0, K if post_fit else 0,
                       ptr(beta), ptr(stats), ptr(tests), ptr(coef), ctypes.byref(z), ptr(steps), ptr(var_step),
                       ctypes.byref(nfinal), ptr(base) if post_fit else None, None,
                       ptr(mean) if post_fit else None, ptr(resid) if post_fit else None)
    check("RunCoxReg", st)
    level = round(100 * (1 - alpha))
    c = coef.reshape(9, p)
    heads = ["coefficient", "std. error", "Wald chi-square", "p-value", "hazard ratio", f"lower {level}%",
             f"upper {level}%", "in model"]
    out = {"coefficients": table({"term": np.array(names, dtype=object),
                                  **{h: to_nan(c[k]) for k, h in enumerate(heads)}}),
           "model": table({"statistic": np.array(["events used", "df", "-2 log L", "AIC", "Schwarz (SBC)",
                                                  "iterations"], dtype=object),
                           "null model": to_nan(stats[:6]), "fitted model": to_nan(stats[6:])}),
           "tests": table({"test": np.array(["Likelihood ratio", "Score", "Wald"], dtype=object),
                           "df": to_nan(tests[0:3]), "chi-square": to_nan(tests[3:6]), "p-value": to_nan(tests[6:9])})}
    if selection != "none":
        sp = steps.reshape(4, V)
        k = 0
        while k < V and sp[0, k] > MISSING:
            k += 1
        var = [var_names[int(v) - 1] if v > MISSING and 1 <= int(v) <= V else "(final)" for v in sp[3, :k]]
        out["selection"] = table({"variable": np.array(var, dtype=object), "variables in model": to_nan(sp[0, :k]),
                                  "statistic": to_nan(sp[1, :k]), "p-value": to_nan(sp[2, :k])})

    # ---- After the fit, on the final model (the columns in the model).
    in_model = [j for j in range(p) if c[7, j] == 1.0]
    q = len(in_model)
    terms = [names[j] for j in in_model]
    xq = np.ascontiguousarray(x.reshape(p, n)[in_model].ravel()) if q else np.zeros(0)
    bq = np.ascontiguousarray(beta[in_model])
    stratum_names = ["all"] * m
    if strata is not None:
        stratum_names = levels
    if baseline:
        cols = {}
        bs, ms = base.reshape(K, m), mean.reshape(K, m)
        if m > 1:
            cols["stratum"] = np.array([stratum_names[k] for k in range(m) for _ in distinct[k]], dtype=object)
        cols["time"] = np.concatenate(distinct)
        cols["baseline survival"] = to_nan(np.concatenate([bs[:len(distinct[k]), k] for k in range(m)]))
        cols["survival at means"] = to_nan(np.concatenate([ms[:len(distinct[k]), k] for k in range(m)]))
        out["baseline"] = table(cols)
    if residuals:
        r = resid.reshape(4 + 2 * p, n)
        cols = {"line": rows[order] + 2.0}
        if m > 1:
            cols["stratum"] = np.array([stratum_names[k] for k in stratum_of], dtype=object)
        for k, h in enumerate(["time", "status", "martingale", "deviance"]):
            cols[h] = to_nan(r[k])
        for j, nm in enumerate(names):
            cols[f"Schoenfeld {nm}"] = to_nan(r[4 + j])
        for j, nm in enumerate(names):
            cols[f"score {nm}"] = to_nan(r[4 + p + j])
        out["residuals"] = table(cols)
    if not q and (concordance or cv or bootstrap or ph_code >= 0):
        warnings.warn("no covariate is left in the final model: concordance and validation skipped", stacklevel=2)
    if concordance and q:
        cidx, ncon, ncomp = _c_double(0), _c_double(0), _c_double(0)
        quality = np.full(5, MISSING)
        check("Cpp_ConcordIndex", lib.Cpp_ConcordIndex(ptr(tt), ptr(ss), ptr(xq), ptr(bq), n, q, ctypes.byref(cidx),
                                                       ctypes.byref(ncon), ctypes.byref(ncomp)))
        check("Cpp_ComputeCVTable", lib.Cpp_ComputeCVTable(ptr(tt), ptr(ss), ptr(xq), ptr(bq), n, q,
                                                           _c_double(stats[8]), _c_double(stats[2]), ptr(stats),
                                                           1, 1, ptr(quality)))
        out["concordance"] = table({"concordance index": to_nan(np.array([cidx.value])),
                                    "concordant pairs": np.array([ncon.value]),
                                    "comparable pairs": np.array([ncomp.value])})
        out["quality"] = table({"rows": np.array(["all rows"], dtype=object),
                                **{h: to_nan(quality[k:k + 1]) for k, h in enumerate(_QUALITY)}})
    if (cv or bootstrap or ph_code >= 0) and q:
        folds = min(cv or 0, n)
        ph, cvt, boot = np.zeros((q + 1) * 3), np.zeros((folds + 2) * 5), np.zeros((q + 1) * 6)
        completed = ctypes.c_int(1)
        callback, erase = _progress_callback(progress)
        try:
            st = frontdoor().velkor_cox_validation(
                tt.ctypes.data, ss.ctypes.data, None if w is None else w.ctypes.data, xq.ctypes.data,
                None if st_keys is None else st_keys.ctypes.data, n, q, ties_code, int(max_iter), refit_tol, alpha,
                ph_code, cv or 0, bootstrap or 0, seed, callback, None, ph.ctypes.data, cvt.ctypes.data,
                boot.ctypes.data, ctypes.byref(completed))
        finally:
            erase()
        check("velkor_cox_validation", st)
        if not completed.value:
            warnings.warn("validation stopped before the end; the rows not computed are NaN", stacklevel=2)
        if ph_code >= 0:
            pt = ph.reshape(3, q + 1)
            out["ph_test"] = table({"term": np.array(terms + ["global"], dtype=object), "chi-square": to_nan(pt[0]),
                                    "df": to_nan(pt[1]), "p-value": to_nan(pt[2])})
        if cv:
            ct = cvt.reshape(5, folds + 2)
            labels = ["all rows"] + [f"fold {f}" for f in range(1, folds + 1)] + ["mean of folds"]
            out["cross_validation"] = table({"rows": np.array(labels, dtype=object),
                                             **{h: to_nan(ct[k]) for k, h in enumerate(_QUALITY)}})
        if bootstrap:
            bt = boot.reshape(6, q + 1)
            bheads = ["estimate", "bootstrap mean", "std. error", f"lower {level}%", f"upper {level}%",
                      "replicates used"]
            out["bootstrap"] = table({"term": np.array(terms + ["concordance"], dtype=object),
                                      **{h: to_nan(bt[k]) for k, h in enumerate(bheads)}})
    return out


def survreg(time, status, covariates=None, factors=None, data=None, event_code: float = 1, codes: bool = False,
            time2=None, weight=None, dist: str = "weibull", selection: str = "none", p_enter: float = 0.05,
            p_remove: float = 0.1, max_iter: int = 100, tol: float = 1e-9, alpha: float = 0.05):
    """Parametric survival regression of log time (`velkor survreg`): tables parameters,
    criteria, tests, residuals."""
    lib = library()
    t = np.asarray(as_column(data, time), dtype=np.float64)
    s = np.asarray(as_column(data, status), dtype=np.float64)
    req = [t, s] + ([] if weight is None else [np.asarray(as_column(data, weight), dtype=np.float64)])
    rows, x, names, _, _ = _design(data, len(t), covariates, factors, req)
    n, p = len(rows), len(names)
    tt = np.ascontiguousarray(t[rows])
    cc = np.ascontiguousarray(s[rows] if codes else np.where(s[rows] == event_code, 1.0, 0.0))
    w = None if weight is None else np.ascontiguousarray(req[2][rows])
    up = tt if time2 is None else np.asarray(as_column(data, time2), dtype=np.float64)[rows]
    up = np.where(np.isnan(up), tt, up)
    bounds = np.ascontiguousarray(np.concatenate([tt, up]))
    dcode = choice("dist", dist, {"exponential": 1, "weibull": 2, "lognormal": 3})
    k = 1 if dcode == 1 else 2
    q = p + k
    iters, nkept = _c_int(int(max_iter)), _c_int(0)
    params, cov, crit = np.zeros(q), np.zeros(q * q), np.zeros(14)
    ptable, tests = np.zeros(q * 6), np.zeros(9)
    history = np.full(max(p, 1) * 4, MISSING)
    resid, kept = np.zeros(n * 4), np.zeros(max(p, 1))
    sel = choice("selection", selection, {"none": -1, "forward": 0, "backward": 1})
    st = lib.Cpp_RunParamReg(ptr(tt), n, p, ptr(cc), ptr(bounds), ptr(x) if p else None,
                             None if w is None else ptr(w), dcode, sel, _c_double(p_enter), _c_double(p_remove),
                             ctypes.byref(iters), _c_double(tol), 0, _c_double(0.0), -1, _c_double(alpha),
                             ptr(params), ptr(cov), ptr(crit), ptr(ptable), ptr(tests), ptr(history), ptr(resid),
                             ptr(kept), ctypes.byref(nkept))
    check("Cpp_RunParamReg", st)
    level = round(100 * (1 - alpha))
    pt = ptable.reshape(6, q)
    heads = ["estimate", "std. error", "Wald chi-square", "p-value", f"lower {level}%", f"upper {level}%"]
    terms = ["intercept"] + names + (["sigma"] if k == 2 else [])
    r = resid.reshape(4, n)
    return {"parameters": table({"term": np.array(terms, dtype=object), **{h: to_nan(pt[j]) for j, h in enumerate(heads)}}),
            "criteria": table({"statistic": np.array(["observations", "parameters", "-2 log L", "AIC", "SBC", "AICc",
                                                      "iterations"], dtype=object),
                               "null model": to_nan(crit[:7]), "final model": to_nan(crit[7:])}),
            "tests": table({"test": np.array(["Likelihood ratio", "Score", "Wald"], dtype=object),
                            "df": to_nan(tests[0:3]), "chi-square": to_nan(tests[3:6]), "p-value": to_nan(tests[6:9])}),
            "residuals": table({"line": rows + 2.0, "standardised": to_nan(r[0]), "Cox-Snell": to_nan(r[1]),
                                "martingale": to_nan(r[2]), "deviance": to_nan(r[3])})}


def cuminc(time, status, data=None, group=None, strata=None, censor_code: float = 0, rho: float = 0.0,
           alpha: float = 0.05):
    """Cumulative incidence of competing risks (`velkor cuminc`): tables incidence and, with two
    groups or more, gray_test. Causes are the status values other than `censor_code`, numbered
    in order of first appearance."""
    lib = library()
    t = np.asarray(as_column(data, time), dtype=np.float64)
    s = np.asarray(as_column(data, status), dtype=np.float64)
    n0 = len(t)
    g = ["all"] * n0 if group is None else [None if _missing_label(v) else _label(v) for v in as_column(data, group)]
    k = None if strata is None else [None if _missing_label(v) else _label(v) for v in as_column(data, strata)]
    if len(s) != n0 or len(g) != n0 or (k is not None and len(k) != n0):
        raise ValueError("every column must have the same length")
    keep = ~(np.isnan(t) | np.isnan(s)) & np.array([v is not None for v in g], dtype=bool)
    if k is not None:
        keep &= np.array([v is not None for v in k], dtype=bool)
    rows = np.flatnonzero(keep)
    n = len(rows)
    glabels = _level_order(list(dict.fromkeys(g[i] for i in rows)))
    gcode = {lab: j + 1.0 for j, lab in enumerate(glabels)}
    groups = np.ascontiguousarray([gcode[g[i]] for i in rows], dtype=np.float64)
    st_keys = None
    if k is not None:
        slabels = _level_order(list(dict.fromkeys(k[i] for i in rows)))
        scode = {lab: j + 1.0 for j, lab in enumerate(slabels)}
        st_keys = np.ascontiguousarray([scode[k[i]] for i in rows], dtype=np.float64)
    times = np.ascontiguousarray(t[rows])
    stat = np.ascontiguousarray(s[rows])
    causes = np.zeros(max(n, 1))
    recoded = np.zeros(max(n, 1))
    ncauses = ctypes.c_uint(0)
    check("Cpp_CheckStatusFormat", lib.Cpp_CheckStatusFormat(ptr(stat), n, ptr(causes), ctypes.byref(ncauses),
                                                             int(censor_code), ptr(recoded)))
    G = len(glabels)
    sizes = np.zeros(max(G, 1))
    for v in groups:
        sizes[int(v) - 1] += 1
    all_cause = np.zeros(n)
    max_time = _c_double(0)
    check("Cpp_ReorganizeDataCum", lib.Cpp_ReorganizeDataCum(ptr(times), n, ptr(recoded), ptr(all_cause), ptr(groups),
                                                             ptr(sizes), G, ctypes.byref(max_time)), warnings_ok=(-3, -5))
    level = round(100 * (1 - alpha))
    heads = ["time", "at risk", "failures", "events (all causes)", "censored", "incidence", "std. error",
             f"lower {level}%", f"upper {level}%"]
    cols = {"group": [], "cause": [], **{h: [] for h in heads}}
    offset = 0
    names = ["all"] if group is None else glabels
    for gi in range(G):
        ng = int(sizes[gi])
        R = ng + 2
        pl = np.zeros(R * 12)
        last, totals = np.zeros(1), np.zeros(1)
        ones = np.ones(max(ng, 1))
        tb = np.ascontiguousarray(times[offset:offset + ng])
        ab = np.ascontiguousarray(all_cause[offset:offset + ng])
        lib.RunLife(ptr(tb), ptr(ab), ptr(ones), ng, None, 0, 0, 1, 0, _c_double(0.0), R, ptr(pl), ptr(last),
                    ptr(totals))
        T = int(last[0])
        for c in range(1, ncauses.value + 1):
            ic = np.zeros(max(T, 1) * 10)
            comp = np.zeros(max(T, 1) * 10)
            lib.Cpp_CumIncCalc(T, n, ptr(times), ptr(recoded), c, _c_double(alpha), ng, offset, ptr(pl), ptr(ic),
                               ptr(comp))
            m = ic[:T * 10].reshape(10, T) if T > 0 else np.zeros((10, 0))
            label = f"{causes[c - 1]:g}"
            for j in range(T):
                cols["group"].append(names[gi])
                cols["cause"].append(label)
                for col, h in enumerate(heads):
                    cols[h].append(m[col, j])
        offset += ng
    out = {"incidence": table({kk: (np.array(vv, dtype=object) if kk in ("group", "cause")
                                    else to_nan(np.array(vv, dtype=np.float64))) for kk, vv in cols.items()})}
    if G >= 2:
        nc = ncauses.value
        tests = np.zeros(nc * 3)
        check("Cpp_GrayTest", lib.Cpp_GrayTest(ptr(times), ptr(recoded), ptr(groups),
                                               None if st_keys is None else ptr(st_keys), n, 0, _c_double(rho), nc, G,
                                               ptr(tests), None, None))
        tt = tests.reshape(3, nc)
        out["gray_test"] = table({"cause": np.array([f"{v:g}" for v in causes[:nc]], dtype=object),
                                  "statistic": to_nan(tt[0]), "df": to_nan(tt[1]), "p-value": to_nan(tt[2])})
    return out
