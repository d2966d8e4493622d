# Data and R timings for bench/bench_competing.cpp: writes one CSV per size (time, cause, group)
# into the directory given as the first argument and times cmprsk::cuminc (incidence of each
# cause in each group with Gray's test between the 3 groups) on the same rows.
#
#   Rscript bench/competing_r.R /tmp/velkor_competing_bench
#
# Output: <dir>/competing_<n>.csv and <dir>/r_times.csv (n, seconds: the fastest of the runs).
suppressMessages(library(cmprsk))
args <- commandArgs(trailingOnly = TRUE)
dir <- if (length(args) > 0) args[1] else "/tmp/velkor_competing_bench"
dir.create(dir, showWarnings = FALSE, recursive = TRUE)
sizes <- c(10000, 100000, 1048576)
res <- data.frame(n = integer(), seconds = double())
for (n in sizes) {
  set.seed(n)
  group <- sample(1:3, n, replace = TRUE)
  # Exponential times with group-dependent rates, rounded to 3 decimals (some ties).
  time <- round(rexp(n, rate = c(1, 1.2, 0.8)[group]), 3)
  cause <- sample(0:2, n, replace = TRUE, prob = c(0.3, 0.4, 0.3))
  write.csv(data.frame(time = time, cause = cause, group = group),
            file.path(dir, sprintf("competing_%d.csv", n)), row.names = FALSE)
  runs <- if (n > 200000) 2 else 5
  best <- Inf
  for (r in seq_len(runs)) best <- min(best, system.time(cuminc(time, cause, group))[["elapsed"]])
  res <- rbind(res, data.frame(n = n, seconds = best))
  cat(sprintf("R cuminc n = %d: %.4f s\n", n, best))
}
write.csv(res, file.path(dir, "r_times.csv"), row.names = FALSE)
