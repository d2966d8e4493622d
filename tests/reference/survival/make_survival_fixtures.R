# Reference values of the descriptive survival family, computed with R's survival package.
#   Rscript tests/reference/survival/make_survival_fixtures.R > tests/reference/survival/survival_fixtures.inc
# Run once by hand; CI never runs R. Data: survival::lung (by sex) and survival::veteran (by
# celltype, 4 groups), with status recoded to 1 = event, 0 = censored and rows with a missing
# time or status dropped.
#
# What is compared, and where Velkor deliberately differs from R:
#  - survival S and Greenwood sum G: survfit(conf.type = "plain"); R's std.err is sqrt(G).
#    We keep a row at every distinct time, censored-only ones included (survfit's default too);
#    such a row repeats the previous S and G as R does, and also repeats the previous conditional
#    survival p_j in column 7 where 1 would be the natural value (deliberate; R has no such
#    column): that rule is tested by hand in tests/exports/test_survival_api.cpp.
#    Where S reaches 0, R's std.err is Inf; our Greenwood sum skips the term with p = 0 (the
#    variance of S = 0 is 0 either way), so those rows are checked against the previous sum.
#    The plain band itself is not compared: ours is clipped to [0, 1] (R clips it too, but we
#    test the clipping by hand).
#  - Nelson-Aalen H and its variance with method 1 (sum d/n^2): survfit's cumhaz and std.chaz.
#  - log-rank statistic: survdiff(rho = 0). Gehan-Wilcoxon (weight N_t) and Tarone-Ware (weight
#    sqrt(N_t)) have no R function with these exact weights (survdiff's rho = 1 is Peto-Peto), so
#    they are evaluated below from the same formulas (U' V^-1 U over the merged risk sets).
#  - quartiles: quantile(fit)$quantile. Their confidence limits differ from R on purpose (we scan
#    the squared Greenwood band row by row, R inverts the pointwise interval), so limits are tested
#    by hand-computed cases, not against R.
#  - restricted mean: print(fit, rmean = tau) with tau = the end of the area Velkor integrates
#    (the time cap rule: when the curve does not reach 0, the cap is the time of a censored-only
#    row whose previous row's time exceeds the cap so far, and the area stops at the last time
#    below the cap; R integrates to whatever upper limit it is given), computed here by the same
#    rule; se(rmean) compared too.
suppressMessages(library(survival))

f17 <- function(x) paste(ifelse(is.na(x), "NAN", ifelse(is.infinite(x), "INFINITY", sprintf("%.17g", x))), collapse = ", ")
emit <- function(name, x) cat(sprintf("static const double %s[] = {%s};\n", name, f17(x)))

# Gehan / Tarone-Ware / log-rank statistic from the merged risk sets (last group reference).
weighted_test <- function(time, status, group, wfun) {
  g <- sort(unique(group)); G <- length(g)
  tt <- sort(unique(time[status == 1]))
  U <- rep(0, G - 1); V <- matrix(0, G - 1, G - 1)
  for (t in tt) {
    n <- sapply(g, function(k) sum(time >= t & group == k))
    d <- sapply(g, function(k) sum(time == t & status == 1 & group == k))
    N <- sum(n); D <- sum(d); w <- wfun(N)
    E <- n * D / N
    U <- U + w * (d - E)[1:(G - 1)]
    if (N > 1) {
      for (k in 1:(G - 1)) for (l in 1:(G - 1))
        V[k, l] <- V[k, l] + w^2 * D * (N - D) / (N - 1) * (n[k] / N) * ((k == l) - n[l] / N)
    }
  }
  drop(t(U) %*% solve(V) %*% U)
}

# The time cap and the end of the mean's area, by Velkor's rule.
velkor_tau <- function(tm, S, d) {
  T <- length(tm); cap <- 0
  if (S[T] > 2.220446049250313e-16) {
    for (j in 2:T) if (!(d[j] > 0) && tm[j - 1] > cap) cap <- tm[j]
  }
  tau <- tm[1]
  if (T >= 2) for (j in 1:(T - 1)) if (tm[j + 1] < cap || cap == 0) tau <- tm[j + 1]
  c(cap = cap, tau = tau)
}

one_dataset <- function(prefix, time, status, group) {
  cat(sprintf("// ---- %s: n = %d, groups = %d\n", prefix, length(time), length(unique(group))))
  emit(paste0(prefix, "_time"), time)
  emit(paste0(prefix, "_status"), status)
  emit(paste0(prefix, "_group"), group)
  levels <- sort(unique(group))
  for (k in seq_along(levels)) {
    sel <- group == levels[k]
    fit <- survfit(Surv(time[sel], status[sel]) ~ 1, conf.type = "plain")
    p <- sprintf("%s_g%d", prefix, k)
    emit(paste0(p, "_t"), fit$time)
    emit(paste0(p, "_nrisk"), fit$n.risk)
    emit(paste0(p, "_nevent"), fit$n.event)
    emit(paste0(p, "_ncens"), fit$n.censor)
    emit(paste0(p, "_surv"), fit$surv)
    emit(paste0(p, "_greenwood"), fit$std.err^2)
    emit(paste0(p, "_cumhaz"), fit$cumhaz)
    emit(paste0(p, "_varhaz"), fit$std.chaz^2)
    q <- quantile(fit, c(0.25, 0.5, 0.75))$quantile
    # Velkor's quartile rows are labelled 0.75, 0.5, 0.25 and hold the times where S falls to
    # 0.25, 0.5, 0.75, i.e. R's quantiles of F = 1 - S at 0.75, 0.5, 0.25.
    emit(paste0(p, "_quartiles"), rev(q))
    ct <- velkor_tau(fit$time, fit$surv, fit$n.event)
    tab <- summary(fit, rmean = ct[["tau"]])$table
    emit(paste0(p, "_mean"), c(ct[["cap"]], ct[["tau"]], tab[["rmean"]], tab[["se(rmean)"]]))
  }
  sd <- survdiff(Surv(time, status) ~ group)
  emit(paste0(prefix, "_tests"), c(sd$chisq,
                                  weighted_test(time, status, group, function(N) N),
                                  weighted_test(time, status, group, function(N) sqrt(N))))
  # Pairwise log-rank statistics, pairs (1,2), (1,3), ..., in Velkor's order.
  pw <- c()
  for (a in 1:(length(levels) - 1)) for (b in (a + 1):length(levels)) {
    sel <- group %in% levels[c(a, b)]
    pw <- c(pw, survdiff(Surv(time[sel], status[sel]) ~ group[sel])$chisq)
  }
  emit(paste0(prefix, "_pairwise_logrank"), pw)
}

cat(sprintf("// Generated by tests/reference/survival/make_survival_fixtures.R with R %s, survival %s.\n",
            paste(R.version$major, R.version$minor, sep = "."), packageVersion("survival")))
cat("// Do not edit: re-run the script.\n#pragma once\n#include <cmath>\n")
lung <- survival::lung
lung <- lung[!is.na(lung$time) & !is.na(lung$status), ]
one_dataset("lung", lung$time, as.numeric(lung$status == 2), lung$sex)
vet <- survival::veteran
one_dataset("veteran", vet$time, vet$status, as.numeric(vet$celltype))
