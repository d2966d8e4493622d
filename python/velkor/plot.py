"""matplotlib charts of the analyses' results (the same charts as the tool's --svg reports)."""
from __future__ import annotations

import numpy as np


def _col(t, k):
    return np.asarray(t[k])


def km(result, ax=None, band: bool = True, alpha: float = 0.05):
    """Kaplan-Meier step curves of `velkor.km(...)` with censoring marks and, when `band`, the
    pointwise confidence limits as dashed steps."""
    import matplotlib.pyplot as plt  # noqa: PLC0415
    ax = ax or plt.figure().gca()
    pl = result["product_limit"]
    level = round(100 * (1 - alpha))
    groups = _col(pl, "group")
    for k, g in enumerate(dict.fromkeys(groups)):
        m = groups == g
        t = np.concatenate([[0.0], _col(pl, "time")[m].astype(float)])
        s = np.concatenate([[1.0], _col(pl, "survival")[m].astype(float)])
        line, = ax.step(t, s, where="post", label=str(g), color=f"C{k}")
        if band:
            for key in (f"lower {level}%", f"upper {level}%"):
                ax.step(t, np.concatenate([[1.0], _col(pl, key)[m].astype(float)]), where="post",
                        color=line.get_color(), linestyle="--", linewidth=0.8)
        cens = _col(pl, "censored")[m].astype(float) > 0
        ax.plot(t[1:][cens], s[1:][cens], "|", color=line.get_color(), markersize=8)
    ax.set_xlabel("Time")
    ax.set_ylabel("Survival probability")
    ax.set_ylim(0, 1.02)
    ax.legend()
    return ax


def cumhazard(result, ax=None):
    """Nelson-Aalen cumulative hazard steps of `velkor.km(...)`."""
    import matplotlib.pyplot as plt  # noqa: PLC0415
    ax = ax or plt.figure().gca()
    na = result["nelson_aalen"]
    groups = _col(na, "group")
    for k, g in enumerate(dict.fromkeys(groups)):
        m = groups == g
        h = _col(na, "cum. hazard")[m].astype(float)
        ok = ~np.isnan(h)
        ax.step(np.concatenate([[0.0], _col(na, "time")[m][ok].astype(float)]),
                np.concatenate([[0.0], h[ok]]), where="post", label=str(g), color=f"C{k}")
    ax.set_xlabel("Time")
    ax.set_ylabel("Cumulative hazard")
    ax.legend()
    return ax


def roc(result, ax=None):
    """ROC curves of `velkor.roc(...)` with the chance diagonal."""
    import matplotlib.pyplot as plt  # noqa: PLC0415
    ax = ax or plt.figure().gca()
    cv = result["curve"]
    markers = _col(cv, "marker")
    aucs = dict(zip(_col(result["auc"], "marker"), _col(result["auc"], "AUC")))
    for m in dict.fromkeys(markers):
        sel = markers == m
        ax.plot(_col(cv, "1 - specificity")[sel].astype(float), _col(cv, "sensitivity")[sel].astype(float),
                label=f"{m} (AUC {aucs[m]:.3f})")
    ax.plot([0, 1], [0, 1], "--", color="grey", linewidth=0.8, label="chance")
    ax.set_xlim(0, 1)
    ax.set_ylim(0, 1)
    ax.set_aspect("equal")
    ax.set_xlabel("1 - specificity")
    ax.set_ylabel("Sensitivity")
    ax.legend(loc="lower right")
    return ax


def bland_altman(result, ax=None):
    """Bland-Altman plot of `velkor.bland_altman(...)`: differences against means, the bias and
    the limits of agreement."""
    import matplotlib.pyplot as plt  # noqa: PLC0415
    ax = ax or plt.figure().gca()
    rows, agr = result["rows"], result["agreement"]
    m, d = _col(rows, "mean").astype(float), _col(rows, "difference").astype(float)
    ax.scatter(m, d, s=12, alpha=0.6)
    est = _col(agr, "estimate").astype(float)
    ax.axhline(est[0], color="C3", label=f"bias {est[0]:.4g}")
    for v in est[1:]:
        ax.axhline(v, color="C2", linestyle="--")
    ax.plot([], [], color="C2", linestyle="--", label="limits of agreement")
    ax.set_xlabel("Mean of the two methods")
    ax.set_ylabel("Difference")
    ax.legend()
    return ax


def regression(result, ax=None):
    """Scatter of `velkor.passing_bablok(...)` or `velkor.deming(...)` with the fitted line and
    the identity line."""
    import matplotlib.pyplot as plt  # noqa: PLC0415
    ax = ax or plt.figure().gca()
    rows = result["rows"]
    x, y = _col(rows, "x").astype(float), _col(rows, "y").astype(float)
    ax.scatter(x, y, s=12, alpha=0.6)
    a, b = _col(result["coefficients"], "estimate").astype(float)[:2]
    lo, hi = np.nanmin(x), np.nanmax(x)
    ax.plot([lo, hi], [a + b * lo, a + b * hi], color="C3", label=f"y = {a:.4g} + {b:.4g} x")
    ax.plot([lo, hi], [lo, hi], color="grey", linestyle="--", label="identity")
    ax.set_xlabel("method 1")
    ax.set_ylabel("method 2")
    ax.legend()
    return ax


def cox_survival(result, ax=None):
    """Survival at the mean covariates of `velkor.cox(..., baseline=True)`, one step curve per
    stratum (the tool's baseline chart)."""
    import matplotlib.pyplot as plt  # noqa: PLC0415
    ax = ax or plt.figure().gca()
    b = result["baseline"]
    strata = _col(b, "stratum") if "stratum" in b else np.full(len(_col(b, "time")), "all", dtype=object)
    for k, g in enumerate(dict.fromkeys(strata)):
        m = strata == g
        s = _col(b, "survival at means")[m].astype(float)
        ok = ~np.isnan(s)
        ax.step(np.concatenate([[0.0], _col(b, "time")[m][ok].astype(float)]), np.concatenate([[1.0], s[ok]]),
                where="post", label=str(g), color=f"C{k}")
    ax.set_xlabel("Time")
    ax.set_ylabel("Survival probability")
    ax.set_ylim(0, 1.02)
    if len(dict.fromkeys(strata)) > 1:
        ax.legend()
    return ax


def schoenfeld(result, term, ax=None):
    """Schoenfeld residuals of one term against time, event rows only, with the zero line, from
    `velkor.cox(..., residuals=True)` (the tool's charts of --ph-test)."""
    import matplotlib.pyplot as plt  # noqa: PLC0415
    ax = ax or plt.figure().gca()
    r = result["residuals"]
    key = f"Schoenfeld {term}"
    if key not in r:
        raise KeyError(f"no Schoenfeld residuals of {term!r} (terms: "
                       + ", ".join(k[len("Schoenfeld "):] for k in r if str(k).startswith("Schoenfeld ")) + ")")
    ev = _col(r, "status").astype(float) == 1.0
    t = _col(r, "time").astype(float)[ev]
    ax.plot(t, _col(r, key).astype(float)[ev], "o", markersize=3, alpha=0.6, color="C0")
    ax.axhline(0.0, color="0.5", linestyle="--", linewidth=0.8)
    ax.set_xlabel("Time")
    ax.set_ylabel("Schoenfeld residual")
    ax.set_title(f"Schoenfeld residuals: {term}")
    return ax
