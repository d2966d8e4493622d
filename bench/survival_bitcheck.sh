#!/bin/sh
# Bit-identity check of the descriptive survival chain between two builds of the library: both
# run every flat entry of the chain (ReorganizeData, RunLife with the product-limit and the
# life-table estimator, Cpp_TransNelsonAalen with the three variance methods,
# Cpp_ComputeKaplanMeanMedian, Cpp_PrepareKaplanCharts, LoadKaplanTest, ComputeLifeTests,
# Cpp_ComputeMultComp) on generated data sets (2 to 7 groups, ties, case weights, 20 to 100,000
# rows; outputs pre-filled with values the workers must overwrite or keep), print a hash of every
# output's bits, and the two listings are compared.
#   bench/survival_bitcheck.sh OLD_BUILD_DIR [NEW_BUILD_DIR]   (build dirs hold libVELKORLI1M.so)
set -e
old=$1
new=${2:-build/release}
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
cat > "$tmp/dump.cpp" <<'CPP'
// Dumps every output of the flat descriptive chain as hex floats (bit-identity check).
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <vector>
#include "velkor/VELKORLI1M.h"
static void dump(const char* what, const double* p, size_t n) {
  unsigned long long h = 1469598103934665603ull;
  for (size_t i = 0; i < n; ++i) { unsigned long long b; memcpy(&b, p + i, 8); h = (h ^ b) * 1099511628211ull; }
  printf("%s %zu %016llx\n", what, n, h);
}
static void run(int n, int G, double round, unsigned seed, bool weights, int method, int lifeTable) {
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(0, 1);
  std::vector<double> t(n), s(n), g(n), w(n, 1.0);
  for (int i = 0; i < n; ++i) { int k = i % G; double a = -(200 + 50.0 * k) * std::log(1 - u(rng)), c = 1200 * u(rng);
    t[i] = std::round(std::min(a, c) * round) / round; s[i] = a <= c; g[i] = k + 1; if (weights) w[i] = 0.5 + u(rng); }
  std::vector<double> sizes(G, 0); for (double x : g) sizes[(int)x - 1] += 1;
  int R = (int)*std::max_element(sizes.begin(), sizes.end()) + 1;
  double mx = 0;
  printf("case n=%d G=%d round=%g w=%d m=%d life=%d prep=%d\n", n, G, round, weights, method, lifeTable,
         ReorganizeData(t.data(), n, s.data(), w.data(), g.data(), sizes.data(), G, 0, &mx));
  dump("t", t.data(), n); dump("s", s.data(), n); dump("w", w.data(), n); dump("g", g.data(), n); dump("mx", &mx, 1);
  std::vector<double> tab((size_t)G * R * 12, 7.0), last(G), tot(G);
  RunLife(t.data(), s.data(), w.data(), n, sizes.data(), G, 0, 1, lifeTable, 0.0, R, tab.data(), last.data(), tot.data());
  dump("tab", tab.data(), tab.size()); dump("last", last.data(), G); dump("tot", tot.data(), G);
  for (int k = 0; k < G; ++k) {
    const double* tb = tab.data() + (size_t)k * R * 12; int T = (int)last[k];
    std::vector<double> na((size_t)std::max(T, 1) * 9, 3.0);
    Cpp_TransNelsonAalen(tb, R, T, 0.05, method, na.data()); dump("na", na.data(), na.size());
    double cap = 5, mean[4] = {1, 2, 3, 4}, q[12]; for (double& x : q) x = 9;
    Cpp_ComputeKaplanMeanMedian(tb, R, T + 1, 0.05, (int)sizes[k], &cap, mean, q);
    dump("cap", &cap, 1); dump("mean", mean, 4); dump("q", q, 12);
    int P = 2 * T + 1, C = std::max(2 * T - 1, 1);
    std::vector<double> ms((size_t)P * 7), hz((size_t)C * 3), ll((size_t)C * 3);
    Cpp_PrepareKaplanCharts(tb, R, T, -1, -1, -1, 1.0, 0.05, 1, ms.data(), P, hz.data(), ll.data(), C);
    dump("main", ms.data(), ms.size()); dump("haz", hz.data(), hz.size()); dump("ll", ll.data(), ll.size());
  }
  int cap = n + 5; std::vector<double> comb((size_t)(3 * G + 1) * cap, 2.0);
  int T = cap; LoadKaplanTest(&T, tab.data(), G, R, last.data(), comb.data());
  printf("T %d\n", T); dump("comb", comb.data(), comb.size());
  double res[12]; std::vector<double> pairs((size_t)3 * G * (G - 1) / 2 * 7);
  ComputeLifeTests(comb.data(), T, G, 0.05, res); dump("tests", res, 12);
  Cpp_ComputeMultComp(comb.data(), T, G, 0.05, pairs.data()); dump("pairs", pairs.data(), pairs.size());
  for (int i = 0; i < 12; ++i) printf("%a ", res[i]); printf("\n");
}
int main() {
  run(10000, 3, 100, 1, false, 1, 0);
  run(3000, 2, 1, 2, false, 2, 0);
  run(3000, 4, 1, 3, true, 3, 0);
  run(3000, 7, 0.1, 4, false, 1, 0);
  run(2000, 5, 10, 5, true, 1, 0);
  run(2000, 6, 10, 6, false, 2, 0);
  run(700, 3, 100, 7, false, 1, -1);
  run(100000, 3, 100, 8, false, 1, 0);
  run(20, 3, 1, 9, false, 1, 0);
}
CPP
c++ -O2 -std=c++20 -Iinclude "$tmp/dump.cpp" -L"$new" -lVELKORLI1M -o "$tmp/dump"
LD_LIBRARY_PATH="$old" "$tmp/dump" > "$tmp/old.txt"
LD_LIBRARY_PATH="$new" "$tmp/dump" > "$tmp/new.txt"
if cmp -s "$tmp/old.txt" "$tmp/new.txt"; then
  echo "identical: $(grep -c . "$tmp/new.txt") output hashes over $(grep -c '^case' "$tmp/new.txt") data sets"
else
  diff "$tmp/old.txt" "$tmp/new.txt" | head -40
  exit 1
fi
