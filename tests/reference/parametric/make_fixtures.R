# Reference values for the parametric survival regression tests.
#
# Run once from this folder:  Rscript make_fixtures.R
# Needs R >= 4.2 with survival (3.5.3 when these files were made). Writes data_<set>.csv (log time,
# censoring code, log upper bound, weight, covariates) and expected.csv (case, data set, law,
# weighted flag, kind, index, value). CI never runs this script; it only reads its output.
#
# Two kinds of reference:
#  1. survreg fits (kind coef / se / loglik) where the library's log-likelihood equals survreg's up
#     to a constant: right-censored data under the Weibull and log-normal laws, exponential data
#     with events only, unit-weight Weibull with left- and interval-censoring, log-normal with
#     right- and interval-censoring. survreg's parameters are mapped to the library's order
#     (coefficients, intercept, scale) and its Log(scale) to the scale (se(scale) = scale x
#     se(log scale), exact at the maximum).
#     ovarian_weibull is the one survreg fit the library's fitter does not reproduce: its function
#     is survreg's (tests check the value and the zero gradient at survreg's estimate), but from
#     its prescribed start (scale 0.5 log(4 var / 1.64) = 0.139 against survreg's 0.547) the
#     Newton path with step halving and the diagonal fallback leaves for a region where the
#     700 exponent guard makes the Weibull log-likelihood unbounded, and the fit ends at the
#     iteration limit (status -1). survreg starts elsewhere and converges.
#  2. The library's own log-likelihood where it deliberately differs from survreg, computed here
#     from its formulas (part_ll below) at fixed parameter points (kind ptJ_theta / ptJ_ll) and
#     maximised with optim (kind optcoef):
#       - exponential law: the four censoring terms are carried over from the last observation of
#         each code to all later ones, so with censored data the function is not survreg's;
#       - log-normal law: the left-censored term is SUBTRACTED (- w log Phi(z)), survreg adds it
#         (the function then rewards left-censored rows far below the fit, so only its values
#         at fixed points are stored: it need not have a maximum);
#       - Weibull law: left- and interval-censored terms are unweighted, survreg weights them;
#       - log-normal and exponential events lack the -log(t) Jacobian that survreg includes (a
#         constant: parameters agree, log-likelihoods differ by sum(w log t) over events).
suppressMessages(library(survival))
options(digits = 17)
out_rows <- list()
emit <- function(case, data, dist, weighted, kind, values) {
  out_rows[[length(out_rows) + 1]] <<- data.frame(case = case, data = data, dist = dist,
    weighted = weighted, kind = kind, index = seq_along(values) - 1,
    value = sprintf("%.17g", values))
}
write_data <- function(name, y, code, upper, w, X) {
  df <- data.frame(y = sprintf("%.17g", y), code = code, upper = sprintf("%.17g", upper),
                   w = sprintf("%.17g", w))
  for (j in seq_len(ncol(X))) df[[paste0("x", j)]] <- sprintf("%.17g", X[, j])
  write.csv(df, paste0("data_", name, ".csv"), row.names = FALSE, quote = FALSE)
}
ctl <- survreg.control(rel.tolerance = 1e-13, maxiter = 200)
lawname <- c("exponential", "weibull", "lognormal")

# survreg fit -> library order (coefficients, intercept, scale)
# kind_prefix "survreg_" marks a fit the library's fitter does not reach (ovarian Weibull, see
# above): its values are stored for the tests of the library's function, not of its fitter.
emit_survreg <- function(case, data, dist, weighted, fit, p, kind_prefix = "") {
  b <- coef(fit); V <- vcov(fit); se <- sqrt(diag(V))
  est <- c(b[-1], b[1]); s <- c(se[2:(p + 1)], se[1])
  if (dist != 1) { est <- c(est, fit$scale); s <- c(s, fit$scale * se[p + 2]) }
  emit(case, data, dist, weighted, paste0(kind_prefix, "coef"), est)
  emit(case, data, dist, weighted, paste0(kind_prefix, "se"), s)
  emit(case, data, dist, weighted, paste0(kind_prefix, "loglik"), fit$loglik[2])
}

# The library's log-likelihood, written from its definition (y = log time, u = log upper bound).
part_ll <- function(theta, y, code, u, X, w, dist) {
  p <- ncol(X); eta <- drop(X %*% theta[seq_len(p)]) + theta[p + 1]; ll <- 0
  if (dist == 1) {
    run <- c(0, 0, 0, 0)  # event, right, left, interval: carried over on purpose
    for (i in seq_along(y)) {
      wi <- y[i] - eta[i]
      if (code[i] == 1) {
        run[1] <- if (wi >= 700) run[1] + wi else wi - exp(wi)
      } else if (code[i] == 0) {
        if (wi < 700) run[2] <- -exp(wi)
      } else if (code[i] == 2) {
        if (wi < 700) run[3] <- log(1 - exp(-exp(wi)))
      } else if (code[i] == 3) {
        if (u[i] - eta[i] < 700) run[4] <- log(exp(-exp(wi)) - exp(-exp(u[i] - eta[i])))
      }
      ll <- ll + w[i] * (run[1] + run[2] + run[3] + run[4])
    }
    return(ll)
  }
  s <- theta[p + 2]; z <- (y - eta) / s; zu <- (u - eta) / s
  for (i in seq_along(y)) {
    if (dist == 2) {
      if (code[i] == 1) {
        ll <- ll + w[i] * (-log(s) + z[i] - y[i]); if (z[i] < 700) ll <- ll - w[i] * exp(z[i])
      } else if (code[i] == 0) {
        if (z[i] < 700) ll <- ll - w[i] * exp(z[i])
      } else if (code[i] == 2) {
        ll <- ll + log(-expm1(-exp(z[i])))                      # unweighted on purpose
      } else if (code[i] == 3) {
        ll <- ll + log(exp(-exp(z[i])) - exp(-exp(zu[i])))      # unweighted on purpose
      }
    } else {
      if (code[i] == 1) ll <- ll + w[i] * (dnorm(z[i], log = TRUE) - log(s))
      else if (code[i] == 0) ll <- ll + w[i] * pnorm(z[i], lower.tail = FALSE, log.p = TRUE)
      else if (code[i] == 2) ll <- ll - w[i] * pnorm(z[i], log.p = TRUE)   # subtracted on purpose
      else if (code[i] == 3) ll <- ll + w[i] * log(pnorm(zu[i]) - pnorm(z[i]))
    }
  }
  ll
}

emit_points <- function(case, data, dist, weighted, start, y, code, u, X, w) {
  # three points around a reasonable start: the start and two perturbations
  k <- length(start)
  pts <- list(start, start + 0.05 * ((seq_len(k) %% 3) - 1), start * 1.1 + 0.01)
  for (j in seq_along(pts)) {
    th <- pts[[j]]
    emit(case, data, dist, weighted, paste0("pt", j - 1, "_theta"), th)
    emit(case, data, dist, weighted, paste0("pt", j - 1, "_ll"), part_ll(th, y, code, u, X, w, dist))
  }
}

emit_optim <- function(case, data, dist, weighted, start, y, code, u, X, w) {
  f <- function(th) -part_ll(th, y, code, u, X, w, dist)
  o <- optim(start, f, method = "BFGS", control = list(reltol = 1e-16, maxit = 5000))
  o <- optim(o$par, f, method = "Nelder-Mead", control = list(reltol = 1e-16, maxit = 20000))
  o <- optim(o$par, f, method = "BFGS", control = list(reltol = 1e-16, maxit = 5000))
  emit(case, data, dist, weighted, "optcoef", o$par)
  emit(case, data, dist, weighted, "optll", -o$value)
}

# ---- lung: age, sex, ph.ecog; status 2 = death --------------------------------------------
d <- na.omit(lung[, c("time", "status", "age", "sex", "ph.ecog")])
X <- as.matrix(d[, c("age", "sex", "ph.ecog")]); code <- d$status - 1; y <- log(d$time)
wts <- 1 + (seq_len(nrow(d)) %% 3) / 2
write_data("lung", y, code, y, wts, X)
for (dist in 2:3) {
  fit <- survreg(Surv(time, status) ~ age + sex + ph.ecog, data = d, dist = lawname[dist], control = ctl)
  emit_survreg(paste0("lung_", lawname[dist]), "lung", dist, 0, fit, 3)
  fitw <- survreg(Surv(time, status) ~ age + sex + ph.ecog, data = d, weights = wts,
                  dist = lawname[dist], control = ctl)
  emit_survreg(paste0("lung_", lawname[dist], "_w"), "lung", dist, 1, fitw, 3)
}
# exponential with censoring: the carried-over terms make it the library's own function
st <- c(coef(survreg(Surv(time, status) ~ age + sex + ph.ecog, data = d, dist = "exponential"))[-1],
        coef(survreg(Surv(time, status) ~ age + sex + ph.ecog, data = d, dist = "exponential"))[1])
emit_points("lung_exp_carry", "lung", 1, 1, unname(st), y, code, y, X, wts)
emit_optim("lung_exp_carry_opt", "lung", 1, 0, unname(st), y, code, y, X, rep(1, length(y)))

# ---- ovarian: age, ecog.ps, rx -------------------------------------------------------------
X <- as.matrix(ovarian[, c("age", "ecog.ps", "rx")]); y <- log(ovarian$futime)
write_data("ovarian", y, ovarian$fustat, y, rep(1, nrow(ovarian)), X)
for (dist in 2:3) {
  fit <- survreg(Surv(futime, fustat) ~ age + ecog.ps + rx, data = ovarian, dist = lawname[dist], control = ctl)
  emit_survreg(paste0("ovarian_", lawname[dist]), "ovarian", dist, 0, fit, 3,
               if (dist == 2) "survreg_" else "")
}

# ---- veteran: 5 covariates -----------------------------------------------------------------
X <- as.matrix(veteran[, c("trt", "karno", "diagtime", "age", "prior")]); y <- log(veteran$time)
write_data("veteran", y, veteran$status, y, rep(1, nrow(veteran)), X)
for (dist in 2:3) {
  fit <- survreg(Surv(time, status) ~ trt + karno + diagtime + age + prior, data = veteran,
                 dist = lawname[dist], control = ctl)
  emit_survreg(paste0("veteran_", lawname[dist]), "veteran", dist, 0, fit, 5)
}
# exponential on the deaths only: no censoring term is ever set, so no carry-over
ve <- veteran[veteran$status == 1, ]
Xe <- as.matrix(ve[, c("trt", "karno", "diagtime", "age", "prior")])
write_data("veteran_events", log(ve$time), ve$status, log(ve$time), rep(1, nrow(ve)), Xe)
fit <- survreg(Surv(time, status) ~ trt + karno + diagtime + age + prior, data = ve,
               dist = "exponential", control = ctl)
emit_survreg("veteran_events_exponential", "veteran_events", 1, 0, fit, 5)

# ---- interval-censored: lung deaths seen only at 90-day visits -----------------------------
# death between visits -> interval (L, L + 90]; before the first visit -> left-censored at 90;
# censored -> right-censored at its time. Coded for survreg with Surv(type = "interval2").
d <- na.omit(lung[, c("time", "status", "age", "sex", "ph.ecog")])
L <- floor(d$time / 90) * 90; U <- L + 90
left <- d$status == 2 & L == 0
lo <- ifelse(d$status == 2, ifelse(left, NA, L), d$time)
hi <- ifelse(d$status == 2, U, NA)
code <- ifelse(d$status == 1, 0, ifelse(left, 2, 3))
y <- log(ifelse(code == 2, U, ifelse(code == 3, L, d$time)))
u <- ifelse(code == 3, log(U), y)
d$lo <- lo; d$hi <- hi
X <- as.matrix(d[, c("age", "sex", "ph.ecog")])
wts <- 1 + (seq_len(nrow(d)) %% 3) / 2
write_data("icens", y, code, u, wts, X)
fit <- survreg(Surv(lo, hi, type = "interval2") ~ age + sex + ph.ecog, data = d, dist = "weibull", control = ctl)
emit_survreg("icens_weibull", "icens", 2, 0, fit, 3)
# log-normal without the left-censored rows (their term is the library's own)
keep <- code != 2
write_data("icens_noleft", y[keep], code[keep], u[keep], rep(1, sum(keep)), X[keep, , drop = FALSE])
fit <- survreg(Surv(lo, hi, type = "interval2") ~ age + sex + ph.ecog, data = d[keep, ],
               dist = "lognormal", control = ctl)
emit_survreg("icens_noleft_lognormal", "icens_noleft", 3, 0, fit, 3)
# the library's own functions on all rows: log-normal (subtracted left term), weighted Weibull
# (unweighted left/interval terms), exponential (carried terms)
fw <- survreg(Surv(lo, hi, type = "interval2") ~ age + sex + ph.ecog, data = d, dist = "weibull")
stw <- unname(c(coef(fw)[-1], coef(fw)[1], fw$scale))
emit_points("icens_weibull_w", "icens", 2, 1, stw, y, code, u, X, wts)
fl <- survreg(Surv(lo, hi, type = "interval2") ~ age + sex + ph.ecog, data = d, dist = "lognormal")
stl <- unname(c(coef(fl)[-1], coef(fl)[1], fl$scale))
emit_points("icens_lognormal_left", "icens", 3, 1, stl, y, code, u, X, wts)
emit_points("icens_exp_carry", "icens", 1, 1, stw[1:4], y, code, u, X, wts)

res <- do.call(rbind, out_rows)
write.csv(res, "expected.csv", row.names = FALSE, quote = FALSE)
cat("# survival", as.character(packageVersion("survival")), "R", R.version.string, "\n")
