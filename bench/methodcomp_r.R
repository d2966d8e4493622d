# R timings of Bland-Altman and Deming regression on the benchmark data (1,048,576 pairs).
# Usage: Rscript methodcomp_r.R DIR   -> prints "task wall_seconds cpu_seconds value" lines
# (best of 5 runs each).
# Bland-Altman: mean, sd, qt, qnorm of y - x. Deming: closed form plus the leave-one-out
# jackknife of intercept and slope, vectorised with downdated sums (the same algorithm as the
# library; explicit refits would be O(n^2) and take hours at this n).
args <- commandArgs(TRUE)
d <- args[1]
rd <- function(f) readBin(file.path(d, f), "double", n = 1048576, size = 8, endian = "little")
x <- rd("lin_x.f64"); y <- rd("lin_y.f64")
best <- function(f, reps = 5) {
  t <- replicate(reps, system.time(f()))
  c(min(t["elapsed", ]), min(t["user.self", ] + t["sys.self", ]))
}

ba <- function() {
  dd <- y - x; mu <- (x + y) / 2; m <- length(dd)
  b <- mean(dd); s <- sd(dd); h <- qt(0.975, m - 1) * s / sqrt(m); z <- qnorm(0.975)
  c(b, s, b - h, b + h, b - z * s, b + z * s)
}
deming <- function(lambda = 1) {
  n <- length(x); mx <- mean(x); my <- mean(y)
  dx <- x - mx; dy <- y - my
  Sxx <- sum(dx^2); Syy <- sum(dy^2); Sxy <- sum(dx * dy)
  slope <- function(Sxx, Syy, Sxy) { D <- Syy - lambda * Sxx; (D + sqrt(D^2 + 4 * lambda * Sxy^2)) / (2 * Sxy) }
  b <- slope(Sxx, Syy, Sxy); a <- my - b * mx
  f <- n / (n - 1)
  bi <- slope(Sxx - f * dx^2, Syy - f * dy^2, Sxy - f * dx * dy)
  ai <- (my - dy / (n - 1)) - bi * (mx - dx / (n - 1))
  jse <- function(t) sqrt((n - 1) / n * sum((t - mean(t))^2))
  fitted <- a + b * x
  c(a, jse(ai), b, jse(bi), fitted[1], (y - fitted)[1])
}
tb <- best(ba); td <- best(deming)
cat(sprintf("bland_altman %.6f %.6f %.15g\n", tb[1], tb[2], ba()[1]))
cat(sprintf("deming %.6f %.6f %.15g\n", td[1], td[2], deming()[3]))
