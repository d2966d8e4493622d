# R side of the ROC benchmark: writes the data sets that bench_roc reads and times pROC on them.
#   Rscript bench/roc_r.R DIR [REPEATS]
# For each n it writes DIR/roc_n<N>.bin (n status values then n test values, little-endian
# doubles) and prints "n,seconds" for pROC's roc() + auc() + ci.auc(method = "delong"), the median
# of REPEATS runs (default 3), as "n,elapsed,cpu,auc" (cpu = user + system time). Data: status ~ Bernoulli(0.3), value = N(0, 1) + status, rounded to
# 3 decimals (so that ties occur, as in real marker data).
suppressMessages(library(pROC))
args <- commandArgs(trailingOnly = TRUE)
dir <- args[1]
repeats <- if (length(args) > 1) as.integer(args[2]) else 3L
for (n in c(10000, 100000, 1048576)) {
  set.seed(n)
  status <- as.numeric(runif(n) < 0.3)
  value <- round(rnorm(n) + status, 3)
  con <- file(file.path(dir, sprintf("roc_n%d.bin", n)), "wb")
  writeBin(c(status, value), con, endian = "little")
  close(con)
  times <- cpu <- numeric(repeats)
  for (k in seq_len(repeats)) {
    st <- system.time({
      r <- roc(status, value, levels = c(0, 1), direction = "<", quiet = TRUE)
      a <- auc(r)
      ci <- ci.auc(r, method = "delong")
    })
    times[k] <- st[["elapsed"]]
    cpu[k] <- st[["user.self"]] + st[["sys.self"]]
  }
  cat(sprintf("%d,%.6f,%.6f,%.15g\n", n, median(times), median(cpu), as.numeric(a)))
}
