# Writes examples/asah.csv: the aneurysmal subarachnoid haemorrhage data shipped with R's pROC
# package (113 patients; outcome Good/Poor, biomarkers s100b and ndka, WFNS score).
# Run from the repository root: Rscript examples/export_asah.R
library(pROC)
data(aSAH)
write.csv(aSAH[, c("gender", "age", "outcome", "wfns", "s100b", "ndka")], "examples/asah.csv",
          row.names = FALSE, na = "")
