# Reference values for the velkor tool's and Python package's Cox outputs after the fit, on
# examples/lung.csv (complete cases of time, status, age, ph.ecog, sex), with R survival.
#   Rscript tests/reference/frontdoors/cox_lung.R > tests/reference/frontdoors/cox_lung.json
# Model: Surv(time, status == 2) ~ age + ph.ecog + factor(sex), Breslow ties; a second fit
# stratified by sex with age and ph.ecog. Differences of the library kept on purpose:
#   - the concordance index counts tied predictors as 0 and never compares equal times, so it is
#     not R's concordance(); the tests count pairs by brute force instead;
#   - the baseline survival is at the raw covariates (basehaz(centered = FALSE));
#   - "survival at means" averages a factor's indicator columns (R's default curve puts them at 0).
suppressMessages(library(survival))
d <- read.csv("examples/lung.csv")
d <- d[complete.cases(d[, c("time", "status", "age", "ph.ecog", "sex")]), ]
d$line <- as.numeric(rownames(d)) + 1  # CSV line of the row (header on line 1)
f <- coxph(Surv(time, status == 2) ~ age + ph.ecog + factor(sex), data = d, ties = "breslow",
           eps = 1e-12, iter.max = 100)
fs <- coxph(Surv(time, status == 2) ~ age + ph.ecog + strata(sex), data = d, ties = "breslow",
            eps = 1e-12, iter.max = 100)
zph <- lapply(c(identity = "identity", log = "log", rank = "rank", km = "km"), function(g) {
  z <- cox.zph(f, transform = g, terms = FALSE)$table
  list(chisq = unname(z[, "chisq"]), p = unname(z[, "p"]))
})
bh <- basehaz(f, centered = FALSE)
bhs <- basehaz(fs, centered = FALSE)
# At the mean covariates: the library averages every design column, a factor's indicators
# included; R's default curve puts 0/1 columns at 0, so the means are given as newdata.
d$sex2 <- as.numeric(d$sex == 2)
f2 <- coxph(Surv(time, status == 2) ~ age + ph.ecog + sex2, data = d, ties = "breslow",
            eps = 1e-12, iter.max = 100)
sf <- survfit(f2, newdata = data.frame(t(colMeans(d[, c("age", "ph.ecog", "sex2")]))))
num <- function(x) sprintf("%.17g", x)
arr <- function(x) paste0("[", paste(num(x), collapse = ", "), "]")
cat("{\n")
cat('  "source": "R ', as.character(getRversion()), ' survival ', as.character(packageVersion("survival")), '",\n', sep = "")
cat('  "coef": ', arr(coef(f)), ",\n", sep = "")
for (g in names(zph)) cat('  "zph_', g, '_chisq": ', arr(zph[[g]]$chisq), ",\n", sep = "")
cat('  "basehaz_time": ', arr(bh$time), ",\n", sep = "")
cat('  "basehaz": ', arr(bh$hazard), ",\n", sep = "")
cat('  "surv_at_means": ', arr(sf$surv), ",\n", sep = "")
cat('  "strata_basehaz_stratum": ', arr(as.numeric(as.character(sub("sex=", "", bhs$strata)))), ",\n", sep = "")
cat('  "strata_basehaz_time": ', arr(bhs$time), ",\n", sep = "")
cat('  "strata_basehaz": ', arr(bhs$hazard), ",\n", sep = "")
cat('  "line": ', arr(d$line), ",\n", sep = "")
cat('  "martingale": ', arr(residuals(f, type = "martingale")), ",\n", sep = "")
cat('  "deviance": ', arr(residuals(f, type = "deviance")), ",\n", sep = "")
sc <- residuals(f, type = "score")
cat('  "score_age": ', arr(sc[, 1]), ",\n", sep = "")
cat('  "strata_martingale": ', arr(residuals(fs, type = "martingale")), "\n", sep = "")
cat("}\n")
