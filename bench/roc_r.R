# R side of the ROC benchmark: writes the data sets that bench_roc reads and times pROC on them.
#   Rscript bench/roc_r.R DIR [REPEATS]
# For each n and each kind of data it writes DIR/roc_<kind><N>.bin (n status values then n test
# values, little-endian doubles) and prints, for pROC's roc() + auc() + ci.auc(method = "delong"),
# the median of REPEATS runs (default 3) as "kind,n,elapsed,cpu,auc" (cpu = user + system time).
# Data: status ~ Bernoulli(0.3), value = N(0, 1) + status; kind "n" rounds the values to 3
# decimals (ties, as in real marker data, about 8,000 distinct values), kind "c" keeps them
# continuous (every value distinct).
suppressMessages(library(pROC))
args <- commandArgs(trailingOnly = TRUE)
dir <- args[1]
repeats <- if (length(args) > 1) as.integer(args[2]) else 3L
for (kind in c("n", "c")) for (n in c(10000, 100000, 1048576)) {
  set.seed(n)
  status <- as.numeric(runif(n) < 0.3)
  value <- rnorm(n) + status
  if (kind == "n") value <- round(value, 3)
  con <- file(file.path(dir, sprintf("roc_%s%d.bin", kind, n)), "wb")
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
  cat(sprintf("%s,%d,%.6f,%.6f,%.15g\n", kind, n, median(times), median(cpu), as.numeric(a)))
}
