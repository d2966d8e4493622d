"""The front doors agree with the library: the tool's JSON output and the Python functions give
the same numbers bit for bit (both chain the same exports), the xlsx workbook reads back to the
same tables, the SVG charts are well-formed XML, and bad input ends with one error line and a
non-zero exit code."""
import ctypes
import json
import math
import pathlib
import subprocess
import xml.etree.ElementTree as ET

import numpy as np
import pytest

import velkor
from velkor import _native

ROOT = pathlib.Path(__file__).resolve().parents[2]
TOOL = ROOT / "build" / "release" / "tools" / "velkor"
LUNG = ROOT / "examples" / "lung.csv"
ASAH = ROOT / "examples" / "asah.csv"
KM_ARGS = ["km", str(LUNG), "--time", "time", "--status", "status", "--event-code", "2",
           "--group", "sex"]
ROC_ARGS = ["roc", str(ASAH), "--status", "outcome", "--positive", "Poor", "--marker", "s100b,ndka"]

needs_tool = pytest.mark.skipif(not TOOL.is_file(), reason="velkor tool not built")
pd = pytest.importorskip("pandas")


def run(args, check=True):
    p = subprocess.run([str(TOOL), *args], capture_output=True, text=True)
    if check:
        assert p.returncode == 0, p.stderr
    return p


def same_bits(tool_column, py_column):
    a = [math.nan if v is None else v for v in tool_column]
    b = list(py_column)
    assert len(a) == len(b)
    for x, y in zip(a, b):
        if isinstance(y, str) or isinstance(x, str):
            assert x == y
        elif math.isnan(x) or math.isnan(float(y)):
            assert math.isnan(x) and math.isnan(float(y))
        else:
            assert x == float(y)  # exact: %.17g reads back to the same double


def compare(tool_json, py_result):
    assert set(tool_json["tables"]) == set(py_result)
    for name, cols in tool_json["tables"].items():
        assert list(cols) == list(py_result[name].columns), name
        for key, values in cols.items():
            same_bits(values, py_result[name][key].tolist())


@needs_tool
def test_km_tool_and_python_agree_bit_for_bit():
    tool = json.loads(run([*KM_ARGS, "--format", "json"]).stdout)
    py = velkor.km("time", "status", group="sex", data=pd.read_csv(LUNG), event_code=2)
    compare(tool, py)
    # Against R survival 3.5.3 (survdiff, survfit on lung by sex): log-rank 10.3, median 270 / 426.
    assert py["tests"]["chi-square"][0] == pytest.approx(10.326742, abs=1e-6)
    assert list(py["quartiles"]["time"][[1, 4]]) == [270.0, 426.0]


@needs_tool
def test_roc_tool_and_python_agree_bit_for_bit():
    tool = json.loads(run([*ROC_ARGS, "--format", "json"]).stdout)
    py = velkor.roc("outcome", ["s100b", "ndka"], data=pd.read_csv(ASAH), positive="Poor")
    compare(tool, py)
    # pROC 1.18.0 on aSAH: auc(outcome ~ s100b) = 0.7314, DeLong SE 0.05165929.
    assert py["auc"]["AUC"][0] == pytest.approx(0.731359649122807, abs=1e-4)
    assert py["auc"]["std. error"][0] == pytest.approx(0.05165929, abs=1e-8)


def test_roc_python_equals_a_direct_export_call():
    d = pd.read_csv(ASAH)
    status = np.ascontiguousarray((d["outcome"] == "Poor").astype(float).to_numpy())
    x = np.ascontiguousarray(d["s100b"].to_numpy(dtype=float))
    res = np.zeros(9)
    st = velkor.library().Cpp_ComputeROC(
        _native.ptr(status), _native.ptr(x), None, len(x), 1, ctypes.c_double(0.05), 2, 0, 3, 0,
        ctypes.c_double(0.0), None, 0, None, None, None, _native.ptr(res), None, None)
    assert st == 0
    py = velkor.roc(d["outcome"], d["s100b"].to_numpy(), positive="Poor")
    assert py["auc"]["AUC"][0] == res[0] and py["auc"]["std. error"][0] == res[1]


def test_dicts_of_arrays_and_length_errors():
    with pytest.raises(ValueError):
        velkor.km(np.arange(5.0), np.ones(4))
    r = velkor.km(np.array([1.0, 2, 3, 4, np.nan]), np.array([1.0, 0, 1, 1, 1]))
    assert len(r["product_limit"]) == 4  # the NaN time is left out


@needs_tool
def test_xlsx_round_trip_and_svg_well_formed(tmp_path):
    openpyxl = pytest.importorskip("openpyxl")
    xlsx, svg = tmp_path / "lung.xlsx", tmp_path / "lung.svg"
    tool = json.loads(run([*KM_ARGS, "--format", "json", "--xlsx", str(xlsx), "--svg", str(svg)]).stdout)
    wb = openpyxl.load_workbook(xlsx)
    for name, cols in tool["tables"].items():
        ws = wb[name]
        rows = list(ws.iter_rows(values_only=True))
        assert list(rows[0]) == list(cols)
        for j, key in enumerate(cols):
            got = [r[j] for r in rows[1:]]
            # Missing values are empty cells (None); libxlsxwriter stores 16 significant digits.
            assert [None if v is None else pytest.approx(v, rel=1e-15) if isinstance(v, float) else v
                    for v in cols[key]] == got, (name, key)
    assert {"chart survival", "chart cumhazard"} <= set(wb.sheetnames)
    assert len(wb["chart survival"]._charts) == 1
    for f in (tmp_path / "lung-survival.svg", tmp_path / "lung-cumhazard.svg"):
        root = ET.parse(f).getroot()
        assert root.tag.endswith("svg")
        assert len(root.findall(".//{http://www.w3.org/2000/svg}path")) >= 2
    roc_svg = tmp_path / "roc.svg"
    run([*ROC_ARGS, "--svg", str(roc_svg)])
    ET.parse(roc_svg)


@needs_tool
def test_csv_output_has_header_and_empty_missing_cells():
    out = run([*KM_ARGS, "--format", "csv"]).stdout
    assert out.startswith("# velkor ")
    assert "# event-code: 2" in out
    assert "-1.797" not in out and "e+308" not in out
    na = out.split("# table: nelson_aalen\n")[1].split("\n\n")[0].splitlines()
    assert na[0].startswith("group,time")


BAD = [
    ("no such column", ["km", str(LUNG), "--time", "nope", "--status", "status"], 3, "no column named 'nope'"),
    ("unknown option", ["km", str(LUNG), "--time", "time", "--status", "status", "--bogus"], 2, "unknown option --bogus"),
    ("bad alpha", ["km", str(LUNG), "--time", "time", "--status", "status", "--alpha", "2"], 2, "--alpha"),
    ("missing file", ["km", "/nonexistent.csv", "--time", "t", "--status", "s"], 3, "cannot open"),
    ("bad se method", [*ROC_ARGS, "--se-method", "magic"], 2, "--se-method"),
]


@needs_tool
@pytest.mark.parametrize("label,args,code,text", BAD, ids=[b[0] for b in BAD])
def test_bad_arguments(label, args, code, text):
    p = run(args, check=False)
    assert p.returncode == code and p.stdout == ""
    assert text in p.stderr and p.stderr.count("\n") == 1


@needs_tool
@pytest.mark.parametrize("content,code,text", [
    ("", 3, "is empty"),
    ("time,status\n", 3, "header row but no data"),
    ("time,status\n1,1\nx,1\n", 3, "line 3, column 'time': 'x' is not a number"),
    ("time,status\n1,1\n2\n", 3, "line 3 has 1 fields, the header has 2"),
    ("time,status\n1,\"1\n", 3, "not closed"),
    ("time,status\n1,1\n", 12, "fewer than two observations"),
    ("time,status\n1,3\n2,3\n", 0, "no event"),
])
def test_bad_files(tmp_path, content, code, text):
    f = tmp_path / "in.csv"
    f.write_text(content)
    p = run(["km", str(f), "--time", "time", "--status", "status", "--event-code", "1"], check=False)
    assert p.returncode == code
    assert text in p.stderr


def test_plot_helpers_draw(tmp_path):
    mpl = pytest.importorskip("matplotlib")
    mpl.use("Agg")
    import velkor.plot  # noqa: PLC0415
    r = velkor.km("time", "status", group="sex", data=pd.read_csv(LUNG), event_code=2)
    ax = velkor.plot.km(r)
    assert len(ax.get_lines()) >= 6
    velkor.plot.cumhazard(r)
    ax = velkor.plot.roc(velkor.roc("outcome", ["s100b", "ndka"], data=pd.read_csv(ASAH), positive="Poor"))
    ax.figure.savefig(tmp_path / "roc.png")
    m = pd.read_csv(METHODS)
    velkor.plot.bland_altman(velkor.bland_altman("x", "y", data=m))
    ax = velkor.plot.regression(velkor.passing_bablok("x", "y", data=m))
    assert len(ax.get_lines()) == 2


METHODS = ROOT / "examples" / "methods.csv"
MC_CASES = [
    (["bland-altman", "--x", "x", "--y", "y"], lambda d: velkor.bland_altman("x", "y", data=d)),
    (["bland-altman", "--x", "x", "--y", "y", "--type", "ratio", "--loa-ci", "approx"],
     lambda d: velkor.bland_altman("x", "y", data=d, type="ratio", loa_ci="approx")),
    (["repeatability", "--value", "y", "--subject", "subject"],
     lambda d: velkor.repeatability("y", "subject", data=d)),
    (["passing-bablok", "--x", "x", "--y", "y"], lambda d: velkor.passing_bablok("x", "y", data=d)),
    (["passing-bablok", "--x", "x", "--y", "y", "--method", "equivariant"],
     lambda d: velkor.passing_bablok("x", "y", data=d, method="equivariant")),
    (["deming", "--x", "x", "--y", "y"], lambda d: velkor.deming("x", "y", data=d)),
    (["deming", "--x", "x", "--y", "y", "--subject", "subject", "--lambda", "0"],
     lambda d: velkor.deming("x", "y", data=d, subject="subject", lambda_=0)),
]


@needs_tool
@pytest.mark.parametrize("args,call", MC_CASES, ids=[" ".join(c[0][:1] + c[0][5:]) for c in MC_CASES])
def test_method_comparison_tool_and_python_agree_bit_for_bit(args, call, tmp_path):
    svg = tmp_path / "c.svg"
    tool = json.loads(run([args[0], str(METHODS), *args[1:], "--format", "json", "--svg", str(svg)]).stdout)
    compare(tool, call(pd.read_csv(METHODS)))
    if args[0] != "repeatability":
        ET.parse(svg)


def test_method_comparison_against_scipy_free_formulas():
    d = pd.read_csv(METHODS)
    ba = velkor.bland_altman("x", "y", data=d)["agreement"]
    diff = d["y"] - d["x"]
    assert ba["estimate"][0] == pytest.approx(diff.mean(), rel=1e-13)
    assert ba["std. deviation"][0] == pytest.approx(diff.std(ddof=1), rel=1e-13)


REG_CASES = [
    (["cox", "--time", "time", "--status", "status", "--event-code", "2", "--covariates", "age,ph.karno",
      "--factors", "sex,ph.ecog"],
     lambda d: velkor.cox("time", "status", ["age", "ph.karno"], ["sex", "ph.ecog"], data=d, event_code=2)),
    (["cox", "--time", "time", "--status", "status", "--event-code", "2", "--covariates", "age,wt.loss",
      "--factors", "ph.ecog", "--strata", "sex", "--selection", "backward"],
     lambda d: velkor.cox("time", "status", ["age", "wt.loss"], ["ph.ecog"], data=d, event_code=2,
                          strata="sex", selection="backward")),
    (["survreg", "--time", "time", "--status", "status", "--event-code", "2", "--covariates", "age",
      "--factors", "sex"],
     lambda d: velkor.survreg("time", "status", ["age"], ["sex"], data=d, event_code=2)),
    (["survreg", "--time", "time", "--status", "status", "--event-code", "2", "--covariates", "age,ph.karno",
      "--dist", "lognormal"],
     lambda d: velkor.survreg("time", "status", ["age", "ph.karno"], data=d, event_code=2, dist="lognormal")),
]


@needs_tool
@pytest.mark.parametrize("args,call", REG_CASES, ids=["cox", "cox-strata-backward", "weibull", "lognormal"])
def test_regressions_tool_and_python_agree_bit_for_bit(args, call):
    tool = json.loads(run([args[0], str(LUNG), *args[1:], "--format", "json"]).stdout)
    compare(tool, call(pd.read_csv(LUNG)))


def test_regressions_against_r_survival():
    d = pd.read_csv(LUNG)
    # R 4.2, survival 3.5.3: coxph(Surv(time, status) ~ age + ph.karno + factor(sex) + factor(ph.ecog),
    # ties = "breslow") and survreg(Surv(time, status) ~ age + factor(sex)) on lung.
    c = velkor.cox("time", "status", ["age", "ph.karno"], ["sex", "ph.ecog"], data=d, event_code=2)
    r_cox = [0.01253225, 0.01240787, -0.56483408, 0.57748703, 1.23784175, 2.39696549]
    assert np.allclose(c["coefficients"]["coefficient"], r_cox, atol=5e-8)
    w = velkor.survreg("time", "status", ["age"], ["sex"], data=d, event_code=2)
    assert np.allclose(w["parameters"]["estimate"][:3], [6.65693820, -0.01225703, 0.38208514], atol=5e-7)


MGUS = ROOT / "examples" / "mgus2.csv"


@needs_tool
def test_cuminc_tool_and_python_agree_bit_for_bit(tmp_path):
    svg = tmp_path / "ci.svg"
    tool = json.loads(run(["cuminc", str(MGUS), "--time", "etime", "--status", "event", "--group", "sex",
                           "--format", "json", "--svg", str(svg)]).stdout)
    py = velkor.cuminc("etime", "event", data=pd.read_csv(MGUS), group="sex")
    compare(tool, py)
    ET.parse(svg)
    # R 4.2, cmprsk 2.2.11: cuminc(etime, event, sex)$Tests; timepoints(., 60)$est (the estimates
    # agree; the library's variance is its own delta-method form, not cmprsk's).
    g = py["gray_test"]
    stat = dict(zip(g["cause"], g["statistic"]))  # causes numbered by first appearance: 2, then 1
    assert [stat["1"], stat["2"]] == pytest.approx([1.194508, 11.651259], abs=1e-5)
    inc = py["incidence"]
    sel = (inc["group"] == "F") & (inc["cause"] == "1") & (inc["time"] <= 60)
    assert inc["incidence"][sel].iloc[-1] == pytest.approx(0.03978962, abs=1e-8)


OPTION_CASES = [
    (["km", str(LUNG), "--time", "time", "--status", "status", "--event-code", "2", "--group", "ph.ecog",
      "--weight", "age", "--na-variance", "3", "--alpha", "0.1", "--life-table", "--width", "150"],
     lambda: velkor.km("time", "status", group="ph.ecog", weight="age", data=pd.read_csv(LUNG), event_code=2,
                       na_variance=3, alpha=0.1, life_table=True, width=150)),
    ([*ROC_ARGS, "--se-method", "hanley", "--tail", "upper", "--side", "3", "--interval", "2", "--prior", "0.3"],
     lambda: velkor.roc("outcome", ["s100b", "ndka"], data=pd.read_csv(ASAH), positive="Poor", se_method="hanley",
                        tail="upper", side=3, interval=2, prior=0.3)),
    ([*ROC_ARGS[:-1], "wfns", "--se-method", "bamber", "--tail", "lower", "--side", "2"],
     lambda: velkor.roc("outcome", "wfns", data=pd.read_csv(ASAH), positive="Poor", se_method="bamber",
                        tail="lower", side=2)),
]


@needs_tool
@pytest.mark.parametrize("args,call", OPTION_CASES, ids=["km-options", "roc-hanley-upper", "roc-bamber-lower"])
def test_options_reach_the_library_the_same_way(args, call):
    """Every option maps to the same library argument in the tool and the package (rows with a
    missing group, here ph.ecog, are left out by both)."""
    compare(json.loads(run([*args, "--format", "json"]).stdout), call())


@needs_tool
def test_quoted_labels_and_missing_cells_through_the_tool(tmp_path):
    f = tmp_path / "q.csv"
    f.write_text('time,status,arm\r\n5,1,"A, low"\r\n8,0,"A, low"\r\n3,1,"B ""high"""\r\n'
                 '9,1,"B ""high"""\r\nNA,1,"A, low"\r\n12,1,\r\n7,0,"B ""high"""\r\n')
    tool = json.loads(run(["km", str(f), "--time", "time", "--status", "status", "--group", "arm",
                           "--format", "json"]).stdout)
    assert tool["tables"]["summary"]["group"] == ["A, low", 'B "high"']
    assert tool["tables"]["summary"]["n"] == [2, 3]
    assert "5 rows used, 2 left out" in tool["notes"][0]
    out = run(["km", str(f), "--time", "time", "--status", "status", "--group", "arm", "--format", "csv"]).stdout
    assert '"A, low",2,' in out and '"B ""high""",3,' in out
