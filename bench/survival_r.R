# R's survival package on the data of bench/bench_survival.cpp: survfit by group + survdiff, the
# core of the same Kaplan-Meier analysis (R's print/quantile of the fit are not timed).
#   Rscript bench/survival_r.R DIR   (DIR holds surv_<n>.csv written by bench_survival --write-csv)
# Prints one line per size: n, CPU seconds (user + system) for survfit and for survdiff, best of
# the repeats. CPU time rather than elapsed time, because the machine may be shared.
suppressMessages(library(survival))
dir <- commandArgs(trailingOnly = TRUE)[1]
for (n in c(10000, 100000, 1048576)) {
  d <- read.csv(file.path(dir, sprintf("surv_%d.csv", n)))
  reps <- if (n > 200000) 2 else 5
  # CPU times come in clock ticks of 10 ms: small sizes are timed in batches of calls (per-call
  # mean of the batch), best of the repeats.
  batch <- if (n <= 10000) 20L else if (n <= 100000) 3L else 1L
  cpu <- function(st) (st[["user.self"]] + st[["sys.self"]]) / batch
  best <- function(f) min(replicate(reps, cpu(system.time(for (b in seq_len(batch)) f()))))
  fit <- best(function() survfit(Surv(time, status) ~ group, data = d))
  diff <- best(function() survdiff(Surv(time, status) ~ group, data = d))
  cat(sprintf("%d %.6f %.6f\n", n, fit, diff))
}
