# Data and survreg timings for bench/bench_parametric.cpp (run by bench/parametric_compare.sh).
#
#   Rscript parametric_r.R DIR N1 [N2 ...]
#
# For each n and scenario (Weibull / log-normal law x right- / interval-censoring) it writes the
# data the C++ benchmark reads, DIR/<scenario>_<n>.bin (little-endian doubles, column by column:
# time, censoring code, upper bound, x1..x5; codes 1 event, 0 right-, 2 left-, 3 interval-
# censored), then times survreg on the same data and appends
# "scenario,n,seconds,cpu_seconds,iterations,reps" (wall and CPU time per fit) to
# DIR/r_times.csv. Interval data come from visits at 0.2 x 1.3^k; an event before the first
# visit is left-censored for the Weibull law and an interval (first visit / 10, first visit] for
# the log-normal law (whose left-censored term the library defines differently from survreg).
suppressMessages(library(survival))
args <- commandArgs(trailingOnly = TRUE)
dir <- args[1]; sizes <- as.integer(args[-1])
out <- file.path(dir, "r_times.csv")
if (!file.exists(out)) cat("scenario,n,seconds,cpu_seconds,iterations,reps\n", file = out)
for (n in sizes) {
  for (law in c("weibull", "lognormal")) for (cens in c("right", "interval")) {
    set.seed(20261122 + n)
    X <- cbind(rnorm(n), rnorm(n), rnorm(n), rnorm(n), as.double(runif(n) < 0.4))
    eta <- drop(1 + X %*% c(0.3, -0.2, 0.1, 0.5, 0))
    e <- if (law == "weibull") log(rexp(n)) else rnorm(n)
    tt <- exp(eta + 0.7 * e)
    cc <- rexp(n, 1 / 8)
    if (cens == "right") {
      time <- pmin(tt, cc); code <- as.double(tt <= cc); upper <- time
      fit_time <- function() survreg(Surv(time, code) ~ X, dist = law)
    } else {
      k <- pmax(floor(log(tt / 0.2) / log(1.3)), -1)
      lo <- ifelse(k < 0, NA, 0.2 * 1.3^k); hi <- ifelse(k < 0, 0.2, 0.2 * 1.3^(k + 1))
      if (law == "lognormal") lo[is.na(lo)] <- 0.02
      right <- cc < tt
      lo[right] <- cc[right]; hi[right] <- NA
      code <- ifelse(right, 0, ifelse(is.na(lo), 2, 3))
      time <- ifelse(code == 2, hi, lo); upper <- ifelse(code == 3, hi, time)
      fit_time <- function() survreg(Surv(lo, hi, type = "interval2") ~ X, dist = law)
    }
    scen <- paste0(law, "_", cens)
    con <- file(file.path(dir, sprintf("%s_%d.bin", scen, n)), "wb")
    writeBin(c(time, code, upper, as.vector(X)), con, endian = "little"); close(con)
    reps <- if (n >= 1000000) 1 else if (n >= 100000) 2 else 5
    fit <- NULL
    tm <- system.time(for (r in seq_len(reps)) fit <- fit_time())
    el <- tm[["elapsed"]] / reps; cpu <- (tm[["user.self"]] + tm[["sys.self"]]) / reps
    cat(sprintf("%s,%d,%.6f,%.6f,%d,%d\n", scen, n, el, cpu, fit$iter, reps), file = out, append = TRUE)
  }
}
