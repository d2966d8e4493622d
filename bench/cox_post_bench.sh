#!/bin/sh
# Cox post-fit benchmark against R on the same data, in one run:
#   1. bench_cox_post --write DIR writes the data sets (n = 100,000 and 1,048,576, 3 covariates);
#   2. R times concordance, residuals, basehaz and cox.zph on them (bench/cox_post_r.R);
#   3. bench_cox_post DIR times ours and prints the table (task, n, ours, R, ratio), plus the
#      bootstrap of 200 resamples at n = 100,000 on all cores.
# Usage (from the repository root, after building the bench_cox_post target): bench/cox_post_bench.sh
set -e
dir=build/release/bench-cox-post
mkdir -p "$dir"
build/release/bench/bench_cox_post --write "$dir"
Rscript bench/cox_post_r.R "$dir" 100000 1048576
build/release/bench/bench_cox_post "$dir"
