# Writes examples/methods.csv: a simulated comparison of two assays of one analyte on 40 subjects,
# each measured twice by both methods (subject, replicate, method x, method y). Method y reads
# about 3 % high with a small constant offset; both have measurement error growing with the level.
# Run from the repository root: Rscript examples/make_methods.R
set.seed(20240611)
k <- 40
level <- exp(runif(k, log(20), log(400)))
d <- expand.grid(replicate = 1:2, subject = 1:k)[, c("subject", "replicate")]
truth <- level[d$subject]
d$x <- round(truth + rnorm(nrow(d), 0, 1 + 0.03 * truth), 1)
d$y <- round(2 + 1.03 * truth + rnorm(nrow(d), 0, 1 + 0.03 * truth), 1)
write.csv(d, "examples/methods.csv", row.names = FALSE, quote = FALSE)
