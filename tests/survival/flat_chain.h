// The descriptive analysis as the front end chains the flat calls, every output kept: ordering,
// product-limit tables per group, Nelson-Aalen and mean/quartiles of each group, the merged risk
// sets, the three tests and the pairwise comparisons. Shared by the export tests (linked to the
// shared library) and the frame-reuse test (linked to the static library).
#pragma once

#include <algorithm>
#include <vector>

#include "velkor/VELKORLI1M.h"

struct FlatChain {
  int n = 0, G = 0, R = 0, T = 0;
  std::vector<int> status;  // every call's status, in call order (preparation first)
  std::vector<double> t, s, w, g, sizes, tables, lastRows, totals, na, means, combined, tests,
      pairs;

  FlatChain(std::vector<double> time, std::vector<double> st, std::vector<double> group,
            double alpha = 0.05)
      : n(static_cast<int>(time.size())),
        t(std::move(time)),
        s(std::move(st)),
        g(std::move(group)) {
    w.assign(t.size(), 1.0);
    std::vector<double> labels(g);
    std::sort(labels.begin(), labels.end());
    labels.erase(std::unique(labels.begin(), labels.end()), labels.end());
    G = static_cast<int>(labels.size());
    for (double l : labels) sizes.push_back(static_cast<double>(std::count(g.begin(), g.end(), l)));
    double maxTime = 0;
    status.push_back(
        ReorganizeData(t.data(), n, s.data(), w.data(), g.data(), sizes.data(), G, 0, &maxTime));
    R = static_cast<int>(*std::max_element(sizes.begin(), sizes.end())) + 1;
    tables.assign(static_cast<std::size_t>(G) * R * 12, 0.0);
    lastRows.assign(static_cast<std::size_t>(G), 0.0);
    totals.assign(static_cast<std::size_t>(G), 0.0);
    status.push_back(RunLife(t.data(), s.data(), w.data(), n, sizes.data(), G, 0, 1, 0, 0.0, R,
                             tables.data(), lastRows.data(), totals.data()));
    na.assign(static_cast<std::size_t>(G) * R * 9, 0.0);
    for (int k = 0; k < G; ++k) {
      status.push_back(Cpp_TransNelsonAalen(table(k), R, rows(k), alpha, 1, naTable(k)));
      double cap = 0, mean[4] = {}, q[12] = {};
      status.push_back(Cpp_ComputeKaplanMeanMedian(table(k), R, rows(k) + 1, alpha,
                                                   static_cast<int>(sizes[k]), &cap, mean, q));
      means.push_back(cap);
      means.insert(means.end(), mean, mean + 4);
      means.insert(means.end(), q, q + 12);
    }
    // Room for one column per observation; T comes back as the number used, and the first T
    // columns form the (3G + 1) x T table the tests read.
    T = n;
    combined.assign(static_cast<std::size_t>(3 * G + 1) * T, 0.0);
    status.push_back(LoadKaplanTest(&T, tables.data(), G, R, lastRows.data(), combined.data()));
    tests.assign(12, 0.0);
    status.push_back(ComputeLifeTests(combined.data(), T, G, alpha, tests.data()));
    pairs.assign(static_cast<std::size_t>(3 * G * (G - 1) / 2) * 7, 0.0);
    status.push_back(Cpp_ComputeMultComp(combined.data(), T, G, alpha, pairs.data()));
  }
  const double* table(int k) const { return tables.data() + static_cast<std::size_t>(k) * R * 12; }
  double cell(int k, int row, int col) const {
    return table(k)[static_cast<std::size_t>(col - 1) * R + row];
  }
  int rows(int k) const { return static_cast<int>(lastRows[static_cast<std::size_t>(k)]); }
  // Group k's Nelson-Aalen table, rows(k) x 9; its cell (row i, column c), both 1-based.
  double* naTable(int k) { return na.data() + static_cast<std::size_t>(k) * R * 9; }
  double naCell(int k, int i, int c) const {
    return na[static_cast<std::size_t>(k) * R * 9 + static_cast<std::size_t>(c - 1) * rows(k) + i -
              1];
  }
  // Group k's cap, mean record (4) and quartile table (3 x 4), 17 values from means[17 k].
  const double* meanOf(int k) const { return means.data() + 17 * static_cast<std::size_t>(k); }
};
