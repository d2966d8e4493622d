# Writes examples/mgus2.csv: the monoclonal gammopathy (MGUS) cohort of R's survival package
# (survival::mgus2, 1384 patients) as competing risks: time to progression to a plasma cell
# malignancy (event 1) or death without progression (event 2), else censored (event 0), in months.
# Run from the repository root: Rscript examples/export_mgus2.R
suppressMessages(library(survival))
d <- survival::mgus2
d$etime <- ifelse(d$pstat == 0, d$futime, d$ptime)
d$event <- ifelse(d$pstat == 0, 2 * d$death, 1)
write.csv(d[, c("id", "age", "sex", "hgb", "mspike", "etime", "event")], "examples/mgus2.csv",
          row.names = FALSE, na = "", quote = FALSE)
