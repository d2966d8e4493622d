# The library's Newton-Raphson path for the log-normal law, written out independently in R, and
# the iterates of a fit that never converges.
#
#   Rscript newton_path.R            writes data_lnpath.csv and path_lnpath.csv (this folder)
#   Rscript newton_path.R bench      also replays the log-normal interval-censored benchmark data
#                                    at n = 10000 (the generator of bench/parametric_r.R) and
#                                    prints its iterates
#
# Needs R >= 4.2 (no package). CI never runs it; tests/parametric/test_fit.cpp reads its output.
#
# The fitter, step by step as the library documents it (parametric/fit.h):
#   start   coefficients and intercept by least squares of the log times on the design, scale =
#           sample variance of the log times (log-normal: the variance itself);
#   step    theta1 = theta - H^-1 g with g, H the gradient and Hessian held for the current point;
#           a non-positive scale becomes 1e-12;
#   accept  when L(theta1) - L(theta) > 2.220446049250313e-16, else theta - 2^-m (theta - theta1),
#           m = 1..10, until one is accepted; on acceptance g and H are recomputed at the new
#           point and the fit stops when the change of L is below the tolerance;
#   fallback  after ten failed halvings H keeps only its diagonal (g stays), the scale takes its
#           last halved value (the other parameters stay), L is re-evaluated there and the next
#           iteration steps with that diagonal matrix.
# Log-normal terms (weights v): event v log(phi(z)/sigma), right v log(1 - Phi(z)), left MINUS
# v log Phi(z) (the library's deliberate sign; survreg adds it), interval v log(Phi(zu) - Phi(zl)).
# The event term has no -log t Jacobian (survreg's has): a constant, the path is the same.
#
# What the output shows: from the least-squares start (scale = variance of the log times) the
# first Newton step sends the scale to thousands; none of its ten halvings raises L, so the
# fallback moves the scale alone by 1/1024 of that step, far above the estimate. From there the
# scale's curvature is positive (L is convex in sigma that far out), every Newton step goes
# downhill, its halvings fail, and each fallback moves the scale further up by 1/1024 of the
# step: L falls at every iteration until the limit. The library reports -1 (no convergence).
# survreg starts from another point (its own) and converges in 5 iterations on the same data.

loglik_ln <- function(theta, d, derivs = TRUE) {
  p <- ncol(d$X); np <- p + 2
  s <- theta[np]
  eta <- drop(d$X %*% theta[seq_len(p)]) + theta[p + 1]
  v <- d$w
  z <- (d$y - eta) / s
  zu <- (d$upper - eta) / s
  ll <- 0
  le <- ls <- lee <- les <- lss <- numeric(length(z))
  # a function g(z) of z = (y - eta)/s: chain rule for (eta, s)
  chain <- function(i, g1, g2) {
    zi <- z[i]
    le[i] <<- -g1 / s
    ls[i] <<- -g1 * zi / s
    lee[i] <<- g2 / s^2
    les[i] <<- (g2 * zi + g1) / s^2
    lss[i] <<- (g2 * zi^2 + 2 * g1 * zi) / s^2
  }
  ev <- d$code == 1
  if (any(ev)) {
    ll <- ll + sum(v[ev] * (dnorm(z[ev], log = TRUE) - log(s)))
    chain(which(ev), -v[ev] * z[ev], -v[ev])
    ls[ev] <- ls[ev] - v[ev] / s
    lss[ev] <- lss[ev] + v[ev] / s^2
  }
  rc <- d$code == 0
  if (any(rc)) {
    lq <- pnorm(z[rc], lower.tail = FALSE, log.p = TRUE)
    lam <- exp(dnorm(z[rc], log = TRUE) - lq)
    ll <- ll + sum(v[rc] * lq)
    chain(which(rc), -v[rc] * lam, -v[rc] * lam * (lam - z[rc]))
  }
  lc <- d$code == 2
  if (any(lc)) {
    lp <- pnorm(z[lc], log.p = TRUE)
    mu <- exp(dnorm(z[lc], log = TRUE) - lp)
    ll <- ll - sum(v[lc] * lp)
    chain(which(lc), -v[lc] * mu, v[lc] * mu * (z[lc] + mu))
  }
  ic <- d$code == 3
  if (any(ic)) {
    a <- z[ic]; b <- zu[ic]
    # Phi(b) - Phi(a) from the upper tails when a > 0 (no cancellation of two values near 1)
    D <- ifelse(a > 0, pnorm(a, lower.tail = FALSE) - pnorm(b, lower.tail = FALSE),
                pnorm(b) - pnorm(a))
    ll <- ll + sum(v[ic] * log(D))
    fa <- dnorm(a) / D; fb <- dnorm(b) / D
    # derivatives of a and b: a_e = -1/s, a_s = -a/s, a_ee = 0, a_es = 1/s^2, a_ss = 2a/s^2
    l_e <- fb * (-1 / s) - fa * (-1 / s)
    l_s <- fb * (-b / s) - fa * (-a / s)
    d2 <- function(f, zz, x1, x2, x12) -zz * f * x1 * x2 + f * x12
    l_ee <- d2(fb, b, -1 / s, -1 / s, 0) - d2(fa, a, -1 / s, -1 / s, 0) - l_e^2
    l_es <- d2(fb, b, -1 / s, -b / s, 1 / s^2) - d2(fa, a, -1 / s, -a / s, 1 / s^2) - l_e * l_s
    l_ss <- d2(fb, b, -b / s, -b / s, 2 * b / s^2) - d2(fa, a, -a / s, -a / s, 2 * a / s^2) - l_s^2
    le[ic] <- v[ic] * l_e; ls[ic] <- v[ic] * l_s
    lee[ic] <- v[ic] * l_ee; les[ic] <- v[ic] * l_es; lss[ic] <- v[ic] * l_ss
  }
  if (!derivs) return(list(ll = ll))
  Xa <- cbind(d$X, 1)
  g <- c(colSums(Xa * le), sum(ls))
  H <- matrix(0, np, np)
  H[1:(p + 1), 1:(p + 1)] <- crossprod(Xa, Xa * lee)
  H[1:(p + 1), np] <- H[np, 1:(p + 1)] <- colSums(Xa * les)
  H[np, np] <- sum(lss)
  list(ll = ll, g = g, H = H)
}

newton_path <- function(d, maxit, tol) {
  p <- ncol(d$X); np <- p + 2
  Xa <- cbind(d$X, 1)
  b <- qr.solve(Xa * sqrt(d$w), d$y * sqrt(d$w))
  m <- sum(d$w * d$y) / sum(d$w)
  cur <- c(b, sum(d$w * (d$y - m)^2) / (sum(d$w) - 1))
  e <- loglik_ln(cur, d)
  llCur <- e$ll; g <- e$g; H <- e$H
  path <- list()
  for (iter in seq_len(maxit)) {
    step <- tryCatch(solve(H, g), error = function(err) rep(0, np))
    first <- cur - step
    if (!(first[np] > 0)) first[np] <- 1e-12
    llNew <- loglik_ln(first, d, FALSE)$ll
    accepted <- isTRUE(llNew - llCur > 2.220446049250313e-16)
    trial <- first
    halvings <- 0
    if (!accepted) {
      for (mm in 1:10) {
        trial <- cur - 2^-mm * (cur - first)
        llNew <- loglik_ln(trial, d, FALSE)$ll
        halvings <- mm
        if (isTRUE(llNew - llCur > 2.220446049250313e-16)) { accepted <- TRUE; break }
      }
    }
    stop_now <- FALSE
    if (accepted) {
      change <- abs(llNew - llCur)
      cur <- trial; e <- loglik_ln(cur, d); llCur <- e$ll; g <- e$g; H <- e$H
      stop_now <- change < tol
    } else {
      H <- diag(diag(H), np)
      if (cur[np] != trial[np]) {
        cur[np] <- trial[np]
        llCur <- loglik_ln(cur, d, FALSE)$ll
      }
    }
    path[[iter]] <- c(iter, accepted, halvings, llCur, cur)
    if (stop_now) break
  }
  do.call(rbind, path)
}

args <- commandArgs(trailingOnly = TRUE)
options(digits = 17)

if (length(args) && args[1] == "bench") {
  n <- 10000L
  set.seed(20261122 + n)
  X <- cbind(rnorm(n), rnorm(n), rnorm(n), rnorm(n), as.double(runif(n) < 0.4))
  eta <- drop(1 + X %*% c(0.3, -0.2, 0.1, 0.5, 0))
  tt <- exp(eta + 0.7 * rnorm(n))
  cc <- rexp(n, 1 / 8)
  k <- pmax(floor(log(tt / 0.2) / log(1.3)), -1)
  lo <- ifelse(k < 0, 0.02, 0.2 * 1.3^k); hi <- ifelse(k < 0, 0.2, 0.2 * 1.3^(k + 1))
  right <- cc < tt
  lo[right] <- cc[right]; hi[right] <- NA
  code <- ifelse(right, 0, 3)
  d <- list(y = log(lo), code = code, upper = log(ifelse(code == 3, hi, lo)), X = X,
            w = rep(1, n))
  path <- newton_path(d, 100, 1e-9 * n)
  colnames(path) <- c("iter", "accepted", "halvings", "loglik", paste0("b", 1:5), "b0", "scale")
  print(path[c(1:6, 98:100), ], digits = 10)
}

# A smaller data set with the same behaviour, for the tests: 1000 rows, two covariates, log-normal
# times, interval-censored by visits at 0.2 x 1.3^k or right-censored (smaller samples of this
# design converge; this seed is one that does not).
n <- 1000L
set.seed(12)
X <- cbind(rnorm(n), as.double(runif(n) < 0.4))
tt <- exp(drop(1 + X %*% c(0.5, 0.3)) + 0.7 * rnorm(n))
cc <- rexp(n, 1 / 8)
k <- pmax(floor(log(tt / 0.2) / log(1.3)), -1)
lo <- ifelse(k < 0, 0.02, 0.2 * 1.3^k); hi <- ifelse(k < 0, 0.2, 0.2 * 1.3^(k + 1))
right <- cc < tt
lo[right] <- cc[right]; hi[right] <- NA
code <- ifelse(right, 0, 3)
d <- list(y = log(lo), code = code, upper = log(ifelse(code == 3, hi, lo)), X = X, w = rep(1, n))
path <- newton_path(d, 30, 1e-6)
print(path[c(1:4, 30), ], digits = 10)
df <- data.frame(y = sprintf("%.17g", d$y), code = code, upper = sprintf("%.17g", d$upper),
                 w = 1, x1 = sprintf("%.17g", X[, 1]), x2 = sprintf("%.17g", X[, 2]))
write.csv(df, "data_lnpath.csv", row.names = FALSE, quote = FALSE)
pt <- data.frame(iter = path[, 1], accepted = path[, 2], halvings = path[, 3],
                 loglik = sprintf("%.17g", path[, 4]))
for (j in 5:ncol(path)) pt[[paste0("theta", j - 5)]] <- sprintf("%.17g", path[, j])
write.csv(pt, "path_lnpath.csv", row.names = FALSE, quote = FALSE)
