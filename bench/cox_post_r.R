# R side of the Cox post-fit benchmark (bench/cox_post_bench.sh): reads the data written by
# bench_cox_post, fits coxph (Breslow) and times concordance(), residuals(type = "schoenfeld"),
# basehaz(centered = FALSE) and cox.zph(transform = "km"). Writes "task n seconds" lines.
suppressPackageStartupMessages(library(survival))
args <- commandArgs(TRUE)
dir <- args[1]
out <- file.path(dir, "r_times.txt")
cat("", file = out)
for (n in as.integer(args[-1])) {
  con <- file(file.path(dir, sprintf("cox_post_%d.bin", n)), "rb")
  v <- readBin(con, "double", n * 5)
  close(con)
  d <- data.frame(time = v[1:n], status = v[n + 1:n], x1 = v[2 * n + 1:n],
                  x2 = v[3 * n + 1:n], x3 = v[4 * n + 1:n])
  fit <- coxph(Surv(time, status) ~ x1 + x2 + x3, data = d, ties = "breslow")
  eta <- fit$linear.predictors
  tm <- function(task, expr) {
    s <- system.time(expr)[["elapsed"]]
    cat(sprintf("%s %d %.6f\n", task, n, s), file = out, append = TRUE)
  }
  tm("concordance", concordance(Surv(time, status) ~ eta, data = d, reverse = TRUE))
  tm("schoenfeld", residuals(fit, type = "schoenfeld"))
  tm("score", residuals(fit, type = "score"))
  tm("basehaz", basehaz(fit, centered = FALSE))
  tm("zph", cox.zph(fit, transform = "km"))
  if (n == 100000) {
    # Bootstrap: 20 refits on resamples, scaled to 200 (one core; R has no threads here).
    set.seed(1)
    s <- system.time(for (b in 1:20) {
      i <- sample.int(n, n, replace = TRUE)
      f <- coxph(Surv(time, status) ~ x1 + x2 + x3, data = d[i, ], ties = "breslow")
      concordance(f)
    })[["elapsed"]] * 10
    cat(sprintf("bootstrap %d %.6f\n", n, s), file = out, append = TRUE)
  }
}
