#!/usr/bin/env bash
# Times `velkor cox` with every output after the fit (concordance, proportional-hazards test,
# 10-fold cross-validation, 100 bootstrap replicates) against R doing the same work on the same
# CSV in the same run: coxph, concordance, cox.zph(transform = "km"), 10 refits on the training
# folds with the concordance of each held-out fold, 100 bootstrap refits. Both times include
# reading the CSV. Usage: bench/frontdoors_cox.sh [rows] (after a release build of the velkor
# target). Keep it short on a shared machine: two runs each.
set -euo pipefail
cd "$(dirname "$0")/.."
rows=${1:-20000}
csv=$(mktemp --suffix=.csv)
trap 'rm -f "$csv"' EXIT
/usr/bin/python3 - "$rows" "$csv" <<'PY'
import sys
import numpy as np
n, path = int(sys.argv[1]), sys.argv[2]
rng = np.random.default_rng(2)
g = rng.integers(1, 4, n)
age = rng.integers(30, 90, n)
w = np.round(rng.normal(70, 10, n), 2)
t = np.round(rng.exponential(300 * np.exp(-0.02 * (age - 60) - 0.3 * (g - 2))), 1) + 0.1
c = np.round(rng.exponential(600, n), 1) + 0.1
s = np.where(t <= c, 2, 1)
with open(path, "w") as f:
    f.write("time,status,group,age,weight\n")
    f.write("\n".join(f"{a},{b},{x},{d},{e}" for a, b, x, d, e in zip(np.minimum(t, c), s, g, age, w)))
    f.write("\n")
PY
echo "rows: $rows"
for i in 1 2; do
  start=$(date +%s.%N)
  ./build/release/tools/velkor cox "$csv" --time time --status status --event-code 2 \
    --covariates age,weight --factors group --concordance --ph-test km --cv 10 --bootstrap 100 \
    --quiet >/dev/null
  end=$(date +%s.%N)
  awk -v s="$start" -v e="$end" 'BEGIN { printf "velkor: %.3f s\n", e - s }'
done
Rscript -e "suppressMessages(library(survival)); f <- commandArgs(TRUE)[1]; set.seed(1)
for (i in 1:2) { t0 <- proc.time()[['elapsed']]; d <- read.csv(f); d\$group <- factor(d\$group)
  form <- Surv(time, status == 2) ~ age + weight + group
  fit <- coxph(form, data = d, ties = 'breslow'); cc <- concordance(fit); z <- cox.zph(fit, transform = 'km')
  fold <- sample(rep(1:10, length.out = nrow(d)))
  cv <- sapply(1:10, function(k) { m <- coxph(form, data = d[fold != k, ], ties = 'breslow')
    concordance(m, newdata = d[fold == k, ])\$concordance })
  bt <- t(sapply(1:100, function(b) { db <- d[sample.int(nrow(d), replace = TRUE), ]
    m <- coxph(form, data = db, ties = 'breslow'); c(coef(m), concordance(m)\$concordance) }))
  t1 <- proc.time()[['elapsed']]; cat(sprintf('R: %.3f s\n', t1 - t0)) }" "$csv"
