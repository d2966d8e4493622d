#include "cox/risk_sets.h"

#include <cmath>

#include "core/numeric.h"

namespace velkor::cox {
namespace {

// Running sums of one risk set (S, A, packed upper triangle of C) or of one tied block (T, B, E).
struct Moments {
  double s = 0.0;
  std::vector<double> a, c;
  explicit Moments(int p) : a(static_cast<std::size_t>(p), 0.0), c(Packed(p), 0.0) {}
  static std::size_t Packed(int p) { return static_cast<std::size_t>(p) * (p + 1) / 2; }
  void Clear() {
    s = 0.0;
    for (double& v : a) v = 0.0;
    for (double& v : c) v = 0.0;
  }
  // Adds the row x (p values) with factor e.
  void Add(const double* x, double e) {
    s += e;
    const std::size_t p = a.size();
    std::size_t idx = 0;
    for (std::size_t col = 0; col < p; ++col) {
      const double ex = e * x[col];
      a[col] += ex;
      for (std::size_t r = 0; r <= col; ++r) c[idx++] += ex * x[r];
    }
  }
};

// The evaluation state: eta of every row, the row being read, and the accumulated outputs.
struct Evaluation {
  const RiskLayout& lay;
  const double* X;
  std::size_t ldx;
  int p;
  const double* w;
  TieTerms terms;
  std::vector<double> eta, xrow, grad, hess;  // hess: packed upper triangle
  double loglik = 0.0;
  Moments risk, tied;

  Evaluation(const RiskLayout& l, const double* x, std::size_t ld, int np, const double* wt,
             const double* beta, TieTerms t)
      : lay(l), X(x), ldx(ld), p(np), w(wt), terms(t), eta(l.n, 0.0),
        xrow(static_cast<std::size_t>(np), 0.0), grad(static_cast<std::size_t>(np), 0.0),
        hess(Moments::Packed(np), 0.0), risk(np), tied(np) {
    for (int j = 0; j < p; ++j) {
      const double b = beta[j];
      const double* col = X + static_cast<std::size_t>(j) * ldx;
      for (std::size_t i = 0; i < lay.n; ++i) eta[i] += col[i] * b;
    }
  }

  const double* Row(std::size_t i) {
    for (int j = 0; j < p; ++j) xrow[static_cast<std::size_t>(j)] = X[static_cast<std::size_t>(j) * ldx + i];
    return xrow.data();
  }

  // Adds row i to the risk-set sums unless its linear predictor reaches the exponent guard
  // (skipped, not clamped: exp(700) is the last value an accumulation over many rows can hold).
  void AddToRisk(std::size_t i) {
    if (!(eta[i] < kExpGuard)) return;
    risk.Add(Row(i), std::exp(eta[i]));
  }

  // The event term of one distinct time: weighted block sum of x (and of eta for the
  // log-likelihood), then the ties terms from the risk-set and tied-block sums.
  void TimeTerms(const TiedBlock& b) {
    const int d = b.events;
    if (d <= 0) return;  // a time with only censored rows contributes nothing
    double wsum = 0.0;
    const bool efron = terms == TieTerms::EfronWeighted;
    if (efron) tied.Clear();
    for (std::size_t i = b.start; i < static_cast<std::size_t>(b.start) + b.size; ++i) {
      const double wi = w[i];
      if (wi == 0.0) continue;  // censored rows carry event weight 0
      wsum += wi;
      loglik += wi * eta[i];
      const double* x = Row(i);
      for (int j = 0; j < p; ++j) grad[static_cast<std::size_t>(j)] += wi * x[j];
      if (efron && eta[i] < kExpGuard) tied.Add(x, wi * std::exp(eta[i]));
    }
    const double S = risk.s;
    if (!(S > kEpsilon)) return;  // vanishing risk set: the time contributes nothing more
    if (terms == TieTerms::EfronWeighted) {
      const double wbar = wsum / d;
      for (int j = 0; j < d; ++j) {
        const double f = static_cast<double>(j) / d;
        const double den = S - f * tied.s;
        if (!(den > kEpsilon)) continue;
        Subtract(wbar, den, f);
      }
    } else {
      const double factor = terms == TieTerms::BreslowCount ? static_cast<double>(d) : wsum;
      loglik -= factor * std::log(S);
      AddMoments(factor, S, 0.0);
    }
  }

  // loglik -= c log(den); gradient and matrix terms for fraction f.
  void Subtract(double c, double den, double f) {
    loglik -= c * std::log(den);
    AddMoments(c, den, f);
  }
  void AddMoments(double c, double den, double f) {
    std::size_t idx = 0;
    for (int col = 0; col < p; ++col) {
      const auto uc = static_cast<std::size_t>(col);
      const double ac = (risk.a[uc] - f * tied.a[uc]) / den;
      grad[uc] -= c * ac;
      for (int r = 0; r <= col; ++r, ++idx) {
        const auto ur = static_cast<std::size_t>(r);
        const double ar = (risk.a[ur] - f * tied.a[ur]) / den;
        const double second = (risk.c[idx] - f * tied.c[idx]) / den;
        hess[idx] -= c * (second - ar * ac);
      }
    }
  }

  void Write(double& ll, double* g, double* h) const {
    ll = loglik;
    std::size_t idx = 0;
    const auto np = static_cast<std::size_t>(p);
    for (std::size_t col = 0; col < np; ++col) {
      g[col] = grad[col];
      for (std::size_t r = 0; r <= col; ++r, ++idx) {
        h[col * np + r] = hess[idx];
        h[r * np + col] = hess[idx];
      }
    }
  }
};

void Zero(int p, double& loglik, double* grad, double* hess) {
  loglik = 0.0;
  for (int j = 0; j < p; ++j) grad[j] = 0.0;
  for (long long k = 0; k < static_cast<long long>(p) * p; ++k) hess[k] = 0.0;
}

void DirectStratum(Evaluation& ev, const StratumRange& st) {
  const std::size_t end = static_cast<std::size_t>(st.first) + st.rows;
  for (std::uint32_t k = st.blockBegin; k < st.blockEnd; ++k) {
    const TiedBlock& b = ev.lay.blocks[k];
    if (b.events <= 0) continue;
    ev.risk.Clear();
    for (std::size_t i = b.start; i < end; ++i) ev.AddToRisk(i);
    ev.TimeTerms(b);
  }
}

}  // namespace

void EvaluateRiskSets(const RiskLayout& layout, const double* X, std::size_t ldx, int p,
                      const double* w, const double* beta, TieTerms terms, double& loglik,
                      double* grad, double* hess) {
  if (p < 1) {
    loglik = 0.0;
    return;
  }
  Zero(p, loglik, grad, hess);
  if (terms == TieTerms::Nothing) return;
  Evaluation ev(layout, X, ldx, p, w, beta, terms);
  for (const StratumRange& st : layout.strata) {
    if (!st.ascending) {
      DirectStratum(ev, st);
      continue;
    }
    // Backward cumulative sums: walking the blocks from the last time to the first, the rows
    // from each block's start up to the rows already added complete the risk set R_k.
    ev.risk.Clear();
    std::size_t lo = static_cast<std::size_t>(st.first) + st.rows;
    for (std::uint32_t k = st.blockEnd; k-- > st.blockBegin;) {
      const TiedBlock& b = layout.blocks[k];
      while (lo > b.start) ev.AddToRisk(--lo);
      ev.TimeTerms(b);
    }
  }
  ev.Write(loglik, grad, hess);
}

void EvaluateRiskSetsDirect(const RiskLayout& layout, const double* X, std::size_t ldx, int p,
                            const double* w, const double* beta, TieTerms terms, double& loglik,
                            double* grad, double* hess) {
  if (p < 1) {
    loglik = 0.0;
    return;
  }
  Zero(p, loglik, grad, hess);
  if (terms == TieTerms::Nothing) return;
  Evaluation ev(layout, X, ldx, p, w, beta, terms);
  for (const StratumRange& st : layout.strata) DirectStratum(ev, st);
  ev.Write(loglik, grad, hess);
}

}  // namespace velkor::cox
