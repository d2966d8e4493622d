"""Cox outputs after the fit through the front doors: the tool and the package agree bit for bit
option by option, the tables are placed and labelled right (checked against R survival 3.5.3 on
lung, tests/reference/frontdoors/cox_lung.R), validation is reproducible from its seed, progress
reaches the terminal only when asked, and bad options fail clearly."""
import json
import os
import pty
import subprocess
import xml.etree.ElementTree as ET

import numpy as np
import pytest

import velkor
from test_frontdoors import LUNG, ROOT, TOOL, compare, needs_tool, run

pd = pytest.importorskip("pandas")
REF = json.loads((ROOT / "tests" / "reference" / "frontdoors" / "cox_lung.json").read_text())
COX = ["cox", str(LUNG), "--time", "time", "--status", "status", "--event-code", "2",
       "--covariates", "age,ph.ecog", "--factors", "sex"]


def py_cox(**kw):
    return velkor.cox("time", "status", ["age", "ph.ecog"], factors="sex", data=pd.read_csv(LUNG),
                      event_code=2, **kw)


CASES = [
    (["--baseline"], dict(baseline=True)),
    (["--residuals"], dict(residuals=True)),
    (["--concordance"], dict(concordance=True)),
    (["--cv", "4", "--seed", "7"], dict(cv=4, seed=7)),
    (["--bootstrap", "40", "--seed", "3", "--alpha", "0.1"], dict(bootstrap=40, seed=3, alpha=0.1)),
    (["--ph-test", "log"], dict(ph_test="log")),
    (["--ties", "efron", "--ph-test", "rank", "--cv", "3", "--refit-tol", "1e-8"],
     dict(ties="efron", ph_test="rank", cv=3, refit_tol=1e-8)),
    (["--strata", "inst", "--weight", "age", "--baseline", "--residuals", "--ph-test", "km", "--bootstrap", "20"],
     dict(strata="inst", weight="age", baseline=True, residuals=True, ph_test="km", bootstrap=20)),
    (["--selection", "backward", "--threshold", "0.01", "--concordance", "--bootstrap", "17"],
     dict(selection="backward", threshold=0.01, concordance=True, bootstrap=17)),
]


@needs_tool
@pytest.mark.parametrize("flags,kw", CASES, ids=["baseline", "residuals", "concordance", "cv", "bootstrap",
                                                 "ph-test", "efron-refit", "strata-weights", "selection"])
def test_tool_and_python_agree_bit_for_bit(flags, kw):
    tool = json.loads(run([*COX, *flags, "--format", "json"]).stdout)
    compare(tool, py_cox(**kw))


def by_line(table, column):
    return dict(zip(np.asarray(table["line"]).astype(int), np.asarray(table[column], dtype=float)))


def test_against_r_survival():
    r = py_cox(tol=1e-12, baseline=True, residuals=True, concordance=True, refit_tol=1e-10,
               ph_test="identity")
    # Both fits stop on their own convergence rule: agreement to about 1e-9 relative.
    assert np.asarray(r["coefficients"]["coefficient"]) == pytest.approx(REF["coef"], rel=1e-8)
    # Grambsch-Therneau test for each transform (the refit converges to 1e-10 relative).
    for g in ("identity", "log", "rank", "km"):
        chisq = py_cox(ph_test=g, refit_tol=1e-10)["ph_test"]["chi-square"]
        assert np.asarray(chisq) == pytest.approx(REF[f"zph_{g}_chisq"], rel=1e-6), g
    b = r["baseline"]
    assert np.asarray(b["time"]) == pytest.approx(REF["basehaz_time"], abs=0)
    assert np.asarray(b["baseline survival"]) == pytest.approx(np.exp(-np.array(REF["basehaz"])), rel=1e-8)
    assert np.asarray(b["survival at means"]) == pytest.approx(REF["surv_at_means"], rel=1e-8)
    # Residual rows are sorted by time; their CSV line puts each back on R's row.
    res = r["residuals"]
    for col, key in (("martingale", "martingale"), ("deviance", "deviance"), ("score age", "score_age")):
        got = by_line(res, col)
        assert [got[ln] for ln in REF["line"]] == pytest.approx(REF[key], rel=1e-7, abs=1e-10), col
    assert np.all(np.diff(np.asarray(res["time"])) >= 0)


def test_stratified_tables_against_r_survival():
    d = pd.read_csv(LUNG)
    r = velkor.cox("time", "status", ["age", "ph.ecog"], data=d, event_code=2, strata="sex", tol=1e-12,
                   baseline=True, residuals=True)
    b = r["baseline"]
    assert list(b.columns) == ["stratum", "time", "baseline survival", "survival at means"]
    assert list(b["stratum"].astype(float)) == REF["strata_basehaz_stratum"]
    assert np.asarray(b["time"]) == pytest.approx(REF["strata_basehaz_time"], abs=0)
    assert np.asarray(b["baseline survival"]) == pytest.approx(np.exp(-np.array(REF["strata_basehaz"])), rel=1e-8)
    got = by_line(r["residuals"], "martingale")
    assert [got[ln] for ln in REF["line"]] == pytest.approx(REF["strata_martingale"], rel=1e-7, abs=1e-10)
    # Martingale residuals sum to zero within each stratum.
    res = r["residuals"]
    for _, g in res.groupby("stratum"):
        assert abs(g["martingale"].sum()) < 1e-9


def test_concordance_counts_pairs_as_documented():
    """Strict pairs counted by brute force: later time, event on the earlier one, higher risk
    concordant; tied predictors and equal times count nothing (unlike R's concordance())."""
    r = py_cox(concordance=True)
    d = pd.read_csv(LUNG).dropna(subset=["time", "status", "age", "ph.ecog", "sex"])
    beta = np.asarray(r["coefficients"]["coefficient"])
    eta = np.column_stack([d["age"], d["ph.ecog"], d["sex"] == 2]).astype(float) @ beta
    t, ev = d["time"].to_numpy(), d["status"].to_numpy() == 2
    comparable = ev[:, None] & (t[None, :] > t[:, None])
    concordant = comparable & (eta[:, None] > eta[None, :])
    c = r["concordance"]
    assert c["comparable pairs"][0] == comparable.sum() and c["concordant pairs"][0] == concordant.sum()
    assert c["concordance index"][0] == concordant.sum() / comparable.sum()
    q = r["quality"]
    assert q["concordance"][0] == c["concordance index"][0]
    assert q["Somers' D"][0] == pytest.approx(2 * (q["concordance"][0] - 0.5), rel=1e-15)


def test_validation_is_reproducible_and_summarised():
    a = py_cox(cv=5, bootstrap=30, seed=11)
    b = py_cox(cv=5, bootstrap=30, seed=11)
    c = py_cox(cv=5, bootstrap=30, seed=12)
    for name in ("cross_validation", "bootstrap"):
        pd.testing.assert_frame_equal(a[name], b[name])
        assert not a[name].equals(c[name])
    cv = a["cross_validation"]
    assert list(cv["rows"]) == ["all rows"] + [f"fold {k}" for k in range(1, 6)] + ["mean of folds"]
    folds = cv.iloc[1:6, 1:].astype(float)
    assert np.asarray(cv.iloc[6, 1:], dtype=float) == pytest.approx(np.nanmean(folds, axis=0), rel=1e-14)
    boot = a["bootstrap"]
    assert list(boot["term"]) == ["age", "ph.ecog", "sex=2", "concordance"]
    assert (boot["replicates used"] == 30).all()
    assert (boot["lower 95%"] <= boot["upper 95%"]).all()
    # The refit's estimate is the flat fit's coefficient to the refit tolerance.
    assert np.asarray(boot["estimate"][:3]) == pytest.approx(np.asarray(a["coefficients"]["coefficient"]), rel=1e-4)


def test_progress_callback_and_stop():
    seen = []
    py_cox(bootstrap=40, cv=3, progress=lambda phase, done, total: seen.append((phase, done, total)))
    assert ("cross-validation folds", 3, 3) in seen and ("bootstrap replicates", 40, 40) in seen
    assert [d for p, d, _ in seen if p == "bootstrap replicates"] == [16, 32, 40]
    with pytest.warns(UserWarning, match="stopped"):
        r = py_cox(bootstrap=40, progress=lambda phase, done, total: False)
    assert (r["bootstrap"]["replicates used"] < 40).all()


@needs_tool
def test_tool_progress_only_on_a_terminal():
    args = [str(TOOL), *COX, "--bootstrap", "40", "--format", "csv"]

    def on_pty(extra):
        master, slave = pty.openpty()
        p = subprocess.run(args + extra, stdout=subprocess.PIPE, stderr=slave, check=True)
        os.close(slave)
        chunks = []
        while True:
            try:
                data = os.read(master, 4096)
            except OSError:
                break
            if not data:
                break
            chunks.append(data)
        os.close(master)
        return p.stdout.decode(), b"".join(chunks).decode()

    out, err = on_pty([])
    assert "bootstrap replicates 40/40 (100%)" in err and "\r" in err
    assert "replicates" not in out.split("# table: bootstrap")[0]  # stdout carries no progress
    assert on_pty(["--quiet"])[1] == ""
    assert run([*COX, "--bootstrap", "40"]).stderr == ""  # not a terminal: silent


@needs_tool
def test_new_sheets_and_charts_round_trip(tmp_path):
    openpyxl = pytest.importorskip("openpyxl")
    xlsx, svg = tmp_path / "cox.xlsx", tmp_path / "cox.svg"
    tool = json.loads(run([*COX, "--baseline", "--residuals", "--concordance", "--cv", "3", "--bootstrap", "20",
                           "--ph-test", "km", "--format", "json", "--xlsx", str(xlsx), "--svg", str(svg)]).stdout)
    wb = openpyxl.load_workbook(xlsx)
    for name in ("baseline", "residuals", "concordance", "quality", "ph_test", "cross_validation", "bootstrap"):
        rows = list(wb[name].iter_rows(values_only=True))
        cols = tool["tables"][name]
        assert list(rows[0]) == list(cols), name
        for j, key in enumerate(cols):
            assert [None if v is None else pytest.approx(v, rel=1e-15) if isinstance(v, float) else v
                    for v in cols[key]] == [r[j] for r in rows[1:]], (name, key)
    for chart in ("baseline", "schoenfeld-age", "schoenfeld-ph.ecog", "schoenfeld-sex_2"):
        assert len(wb[f"chart {chart}"]._charts) == 1
        root = ET.parse(tmp_path / f"cox-{chart}.svg").getroot()
        assert root.tag.endswith("svg")
    events = int(sum(np.asarray(tool["tables"]["residuals"]["status"]) == 1))
    circles = ET.parse(tmp_path / "cox-schoenfeld-age.svg").getroot().findall(".//{http://www.w3.org/2000/svg}circle")
    assert len(circles) == events


BAD = [
    ("cv one fold", ["--cv", "1"], "--cv must be a whole number >= 2"),
    ("fractional bootstrap", ["--bootstrap", "2.5"], "--bootstrap must be a whole number"),
    ("negative seed", ["--bootstrap", "5", "--seed", "-1"], "--seed must be a whole number"),
    ("unknown transform", ["--ph-test", "sqrt"], "--ph-test must be identity, log, rank or km"),
    ("zero refit tolerance", ["--cv", "3", "--refit-tol", "0"], "--refit-tol must be a positive number"),
    ("non-numeric folds", ["--cv", "ten"], "--cv expects a number"),
]


@needs_tool
@pytest.mark.parametrize("label,flags,text", BAD, ids=[b[0] for b in BAD])
def test_bad_options_fail_in_one_line(label, flags, text):
    p = run([*COX, *flags], check=False)
    assert p.returncode == 2 and p.stdout == ""
    assert text in p.stderr and p.stderr.count("\n") == 1


@pytest.mark.parametrize("kw,text", [
    (dict(cv=1), "cv must be a whole number"),
    (dict(bootstrap=2.5), "bootstrap must be a whole number"),
    (dict(bootstrap=10, seed=-1), "seed must be a whole number"),
    (dict(ph_test="sqrt"), "ph_test must be one of 'identity', 'log', 'rank', 'km'"),
    (dict(ties="exact"), "ties must be one of 'breslow', 'efron'"),
    (dict(selection="stepwise"), "selection must be one of"),
    (dict(cv=3, refit_tol=0.0), "refit_tol must be positive"),
])
def test_python_bad_options_raise_value_errors(kw, text):
    with pytest.raises(ValueError, match=text):
        py_cox(**kw)


def test_dict_form_without_pandas_and_plots(monkeypatch, tmp_path):
    import builtins  # noqa: PLC0415
    real_import = builtins.__import__

    def no_pandas(name, *args, **kwargs):
        if name == "pandas":
            raise ImportError(name)
        return real_import(name, *args, **kwargs)

    d = pd.read_csv(LUNG)
    data = {k: d[k].to_numpy() for k in d.columns}
    monkeypatch.setattr(builtins, "__import__", no_pandas)
    r = velkor.cox("time", "status", ["age", "ph.ecog"], data=data, event_code=2, residuals=True, bootstrap=10)
    monkeypatch.undo()
    assert isinstance(r["bootstrap"], dict) and isinstance(r["bootstrap"]["estimate"], np.ndarray)
    assert list(r["bootstrap"]["term"]) == ["age", "ph.ecog", "concordance"]
    mpl = pytest.importorskip("matplotlib")
    mpl.use("Agg")
    from velkor import plot  # noqa: PLC0415
    full = py_cox(baseline=True, residuals=True, strata="inst")
    ax = plot.cox_survival(full)
    assert len(ax.get_lines()) == len(set(full["baseline"]["stratum"]))
    ax = plot.schoenfeld(full, "sex=2")
    assert len(ax.get_lines()[0].get_xdata()) == int((full["residuals"]["status"] == 1).sum())
    with pytest.raises(KeyError, match="terms: age, ph.ecog, sex=2"):
        plot.schoenfeld(full, "weight")
    ax.figure.savefig(tmp_path / "schoenfeld.png")


@pytest.mark.parametrize("call,text", [
    (lambda d: velkor.passing_bablok("x", "y", data=d, method="robust"), "method must be one of 'standard'"),
    (lambda d: velkor.bland_altman("x", "y", data=d, type="log"), "type must be one of 'diff'"),
    (lambda d: velkor.bland_altman("x", "y", data=d, loa_ci="bootstrap"), "loa_ci must be one of"),
    (lambda d: velkor.roc(d["x"] > d["x"].median(), "y", data=d, positive=True, se_method="exact"),
     "se_method must be one of"),
    (lambda d: velkor.roc(d["x"] > d["x"].median(), "y", data=d, positive=True, tail="both"), "tail must be one of"),
], ids=["passing-bablok method", "bland-altman type", "bland-altman loa_ci", "roc se_method", "roc tail"])
def test_every_text_option_is_checked(call, text):
    """A misspelt option value is an error naming the valid values, never a silent default."""
    with pytest.raises(ValueError, match=text):
        call(pd.read_csv(ROOT / "examples" / "methods.csv"))


@needs_tool
def test_empty_final_model_skips_validation_with_a_warning():
    flags = ["--selection", "forward", "--threshold", "1e-12", "--concordance", "--bootstrap", "10"]
    p = run([*COX, *flags, "--format", "json"])
    assert "no covariate is left in the final model" in p.stderr
    with pytest.warns(UserWarning, match="no covariate is left"):
        py = py_cox(selection="forward", threshold=1e-12, concordance=True, bootstrap=10)
    compare(json.loads(p.stdout), py)
    assert "bootstrap" not in py and "concordance" not in py
