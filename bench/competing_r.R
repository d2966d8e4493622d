# Data and R timings for bench/bench_competing.cpp: writes one CSV per size (time, cause, group)
# into the directory given as the first argument and times cmprsk::cuminc (incidence of each
# cause in each group with Gray's test between the 3 groups) on the same rows.
#
#   Rscript bench/competing_r.R /tmp/velkor_competing_bench
#
# Output: <dir>/competing_<n>.csv and <dir>/r_times.csv (n, elapsed and CPU seconds, user +
# system, of the fastest run). CPU time is what the comparison uses: the build machine is shared
# and elapsed times there measure the neighbours as much as the code.
suppressMessages(library(cmprsk))
args <- commandArgs(trailingOnly = TRUE)
dir <- if (length(args) > 0) args[1] else "/tmp/velkor_competing_bench"
dir.create(dir, showWarnings = FALSE, recursive = TRUE)
sizes <- c(10000L, 100000L, 1048576L)
res <- data.frame(n = integer(), elapsed = double(), cpu = double())
for (n in sizes) {
  set.seed(n)
  group <- sample(1:3, n, replace = TRUE)
  # Exponential times with group-dependent rates, rounded to 3 decimals (some ties).
  time <- round(rexp(n, rate = c(1, 1.2, 0.8)[group]), 3)
  cause <- sample(0:2, n, replace = TRUE, prob = c(0.3, 0.4, 0.3))
  write.csv(data.frame(time = time, cause = cause, group = group),
            file.path(dir, sprintf("competing_%d.csv", n)), row.names = FALSE)
  # CPU times come in clock ticks of 10 ms: small sizes are timed in batches of calls (per-call
  # mean of the batch), best of the repeats.
  runs <- if (n > 200000) 2 else 5
  batch <- if (n <= 10000) 40L else if (n <= 100000) 4L else 1L
  best <- c(elapsed = Inf, cpu = Inf)
  for (r in seq_len(runs)) {
    st <- system.time(for (b in seq_len(batch)) cuminc(time, cause, group))
    cpu <- (st[["user.self"]] + st[["sys.self"]]) / batch
    if (cpu < best[["cpu"]]) best <- c(elapsed = st[["elapsed"]] / batch, cpu = cpu)
  }
  res <- rbind(res, data.frame(n = n, elapsed = best[["elapsed"]], cpu = best[["cpu"]]))
  cat(sprintf("R cuminc n = %d: %.4f s elapsed, %.4f s CPU\n", n, best[["elapsed"]], best[["cpu"]]))
}
write.csv(res, file.path(dir, "r_times.csv"), row.names = FALSE)
