# Exports the NCCTG advanced lung cancer data (Loprinzi et al. 1994) as R's survival package
# distributes it (survival::lung) to examples/lung.csv: columns as in R, NA as empty cells.
#   time    survival time in days;  status  1 = censored, 2 = dead;  sex  1 = male, 2 = female;
#   inst, age, ph.ecog, ph.karno, pat.karno, meal.cal, wt.loss: see ?survival::lung.
# Run from the repository root: Rscript examples/export_lung.R
suppressMessages(library(survival))
write.csv(survival::lung, "examples/lung.csv", row.names = FALSE, na = "", quote = FALSE)
