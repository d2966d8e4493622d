#include "companion/linalg.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "core/numeric.h"

namespace {

double& at(matrix<double>* m, std::size_t i, std::size_t j) {
  return m->data[j * m->rows + i];
}
double at(const matrix<double>* m, std::size_t i, std::size_t j) {
  return m->data[j * m->rows + i];
}

bool square_ok(const matrix<double>* a, const matrix<double>* inv) {
  return a && inv && a->data && inv->data && a->rows == a->cols && inv->rows >= a->rows &&
         inv->cols >= a->rows;
}

void zero_block(matrix<double>* m, std::size_t n) {
  for (std::size_t j = 0; j < n; ++j)
    for (std::size_t i = 0; i < n; ++i) at(m, i, j) = 0.0;
}

}  // namespace

int M_Inverse(const matrix<double>* a, matrix<double>* inv, short& flag, double tol) {
  flag = 0;
  if (!square_ok(a, inv)) {
    flag = -1;
    return -1;
  }
  const std::size_t n = a->rows;
  if (n == 0) return 0;
  const double threshold = tol > 0.0 ? 1e-8 : velkor::kEpsilon;
  // Work on a row-scaled copy: row i divided by its largest absolute element, so the pivot
  // choice and the threshold are independent of the rows' units.
  std::vector<double> lu(n * n), scale(n);
  for (std::size_t i = 0; i < n; ++i) {
    double big = 0.0;
    for (std::size_t j = 0; j < n; ++j) big = std::max(big, std::fabs(at(a, i, j)));
    if (big == 0.0) {
      zero_block(inv, n);
      flag = -1;
      return -1;
    }
    scale[i] = 1.0 / big;
    for (std::size_t j = 0; j < n; ++j) lu[i * n + j] = at(a, i, j) * scale[i];
  }
  std::vector<std::size_t> perm(n);
  for (std::size_t i = 0; i < n; ++i) perm[i] = i;
  // Doolittle elimination with partial pivoting on the scaled rows.
  for (std::size_t k = 0; k < n; ++k) {
    std::size_t piv = k;
    double best = -1.0;
    for (std::size_t i = k; i < n; ++i) {
      const double v = std::fabs(lu[i * n + k]);
      if (v > best) {
        best = v;
        piv = i;
      }
    }
    if (!(best >= threshold)) {  // also catches NaN
      zero_block(inv, n);
      flag = -1;
      return -2;
    }
    if (piv != k) {
      for (std::size_t j = 0; j < n; ++j) std::swap(lu[k * n + j], lu[piv * n + j]);
      std::swap(perm[k], perm[piv]);
    }
    const double d = lu[k * n + k];
    for (std::size_t i = k + 1; i < n; ++i) {
      const double f = lu[i * n + k] / d;
      lu[i * n + k] = f;
      if (f == 0.0) continue;
      for (std::size_t j = k + 1; j < n; ++j) lu[i * n + j] -= f * lu[k * n + j];
    }
  }
  // Solve (S A) X = S P' for each unit column: A^-1 = X with the row scaling folded into the
  // right-hand side.
  std::vector<double> col(n);
  for (std::size_t c = 0; c < n; ++c) {
    for (std::size_t i = 0; i < n; ++i) col[i] = (perm[i] == c) ? scale[c] : 0.0;
    for (std::size_t i = 0; i < n; ++i) {
      double s = col[i];
      for (std::size_t j = 0; j < i; ++j) s -= lu[i * n + j] * col[j];
      col[i] = s;
    }
    for (std::size_t i = n; i-- > 0;) {
      double s = col[i];
      for (std::size_t j = i + 1; j < n; ++j) s -= lu[i * n + j] * col[j];
      col[i] = s / lu[i * n + i];
    }
    for (std::size_t i = 0; i < n; ++i) at(inv, i, c) = col[i];
  }
  return 0;
}

int cNewtonRaphson(matrix<double>* beta, int p, const matrix<double>* fixed,
                   const matrix<double>* grad, const matrix<double>* hess, double tol,
                   matrix<double>* inverse, matrix<double>* stdErrs, short invertHere,
                   double pivotTol) {
  if (p <= 0) return 1;
  const std::size_t np = static_cast<std::size_t>(p);
  if (!beta || !grad || !hess || !inverse || beta->count < np || grad->count < np ||
      hess->rows < np || hess->cols < np || inverse->rows < np || inverse->cols < np) {
    return -1;
  }
  if (invertHere == -1) {
    // Invert the leading p x p block of H.
    matrix<double> h(static_cast<std::uint32_t>(p), static_cast<std::uint32_t>(p));
    for (std::size_t j = 0; j < np; ++j)
      for (std::size_t i = 0; i < np; ++i) at(&h, i, j) = at(hess, i, j);
    matrix<double> hinv(static_cast<std::uint32_t>(p), static_cast<std::uint32_t>(p));
    short flag = 0;
    const int st = M_Inverse(&h, &hinv, flag, pivotTol);
    for (std::size_t j = 0; j < np; ++j)
      for (std::size_t i = 0; i < np; ++i) at(inverse, i, j) = at(&hinv, i, j);
    if (st < 0) return st;
  }
  if (stdErrs) {
    for (std::size_t i = 0; i < np && i < stdErrs->count; ++i)
      stdErrs->data[i] = std::sqrt(std::fabs(at(inverse, i, i)));
  }
  int converged = 1;
  std::vector<double> step(np, 0.0);
  for (std::size_t i = 0; i < np; ++i) {
    double s = 0.0;
    for (std::size_t j = 0; j < np; ++j) s += at(inverse, i, j) * grad->data[j];
    step[i] = s;
  }
  for (std::size_t i = 0; i < np; ++i) {
    const bool is_fixed = fixed && i < fixed->count && fixed->data[i] != 0.0;
    if (is_fixed) continue;
    const double old = beta->data[i];
    beta->data[i] = old - step[i];
    if (!(std::fabs(beta->data[i] - old) <= tol)) converged = 0;
  }
  return converged;
}

int OLSBasic(const matrix<double>* X, const matrix<double>* y, const matrix<double>* w, int n,
             int p, matrix<double>* coef, double tolSing, double tolRank) {
  if (n < 1 || p < 1 || !X || !y || !coef || !X->data || !y->data) return -1;
  const std::size_t nr = std::min<std::size_t>({static_cast<std::size_t>(n), X->rows, y->count});
  const std::size_t nc = std::min<std::size_t>(static_cast<std::size_t>(p), X->cols);
  const double tol = tolSing > 0.0 ? std::max(tolRank, 0.0) : 1e-7;
  // Weighted copies: rows scaled by sqrt(w).
  std::vector<std::size_t> rows;
  for (std::size_t i = 0; i < nr; ++i) {
    const double wi = (w && i < w->count) ? w->data[i] : 1.0;
    if (wi > 0.0) rows.push_back(i);
  }
  const std::size_t m = rows.size();
  std::vector<double> A(m * nc), b(m);
  for (std::size_t r = 0; r < m; ++r) {
    const std::size_t i = rows[r];
    const double sw = std::sqrt((w && i < w->count) ? w->data[i] : 1.0);
    for (std::size_t j = 0; j < nc; ++j) A[j * m + r] = at(X, i, j) * sw;
    b[r] = y->data[i] * sw;
  }
  std::vector<double> norm0(nc);
  for (std::size_t j = 0; j < nc; ++j) {
    double s = 0;
    for (std::size_t r = 0; r < m; ++r) s += A[j * m + r] * A[j * m + r];
    norm0[j] = std::sqrt(s);
  }
  // Householder QR without column pivoting; aliased columns are skipped (kept out of Q).
  std::vector<bool> aliased(nc, false);
  std::vector<std::size_t> used_cols;
  std::size_t k = 0;  // next Householder row
  for (std::size_t j = 0; j < nc && k < m; ++j) {
    double s = 0;
    for (std::size_t r = k; r < m; ++r) s += A[j * m + r] * A[j * m + r];
    const double nrm = std::sqrt(s);
    if (!(nrm > tol * norm0[j]) || norm0[j] == 0.0) {
      aliased[j] = true;
      continue;
    }
    const double alpha = A[j * m + k] > 0 ? -nrm : nrm;
    std::vector<double> v(m - k);
    for (std::size_t r = k; r < m; ++r) v[r - k] = A[j * m + r];
    v[0] -= alpha;
    double vv = 0;
    for (double e : v) vv += e * e;
    if (vv > 0) {
      for (std::size_t jj = j; jj < nc; ++jj) {
        double d = 0;
        for (std::size_t r = k; r < m; ++r) d += v[r - k] * A[jj * m + r];
        const double f = 2 * d / vv;
        for (std::size_t r = k; r < m; ++r) A[jj * m + r] -= f * v[r - k];
      }
      double d = 0;
      for (std::size_t r = k; r < m; ++r) d += v[r - k] * b[r];
      const double f = 2 * d / vv;
      for (std::size_t r = k; r < m; ++r) b[r] -= f * v[r - k];
    }
    used_cols.push_back(j);
    ++k;
  }
  for (std::size_t j = nc; j-- > 0;) {
    if (!aliased[j] && std::find(used_cols.begin(), used_cols.end(), j) == used_cols.end())
      aliased[j] = true;
  }
  // Back substitution on the upper-triangular R (row t belongs to used_cols[t]).
  std::vector<double> c(nc, 0.0);
  for (std::size_t t = used_cols.size(); t-- > 0;) {
    const std::size_t j = used_cols[t];
    double s = b[t];
    for (std::size_t u = t + 1; u < used_cols.size(); ++u)
      s -= A[used_cols[u] * m + t] * c[used_cols[u]];
    c[j] = s / A[j * m + t];
  }
  for (std::size_t j = 0; j < nc && j < coef->count; ++j) coef->data[j] = c[j];
  return static_cast<int>(used_cols.size());
}

double M_ProductTrVBV(const matrix<double>* v, const matrix<double>* B, int p) {
  if (!v || !B || p <= 0) return 0.0;
  const std::size_t np =
      std::min<std::size_t>({static_cast<std::size_t>(p), v->count, B->rows, B->cols});
  double s = 0.0;
  for (std::size_t j = 0; j < np; ++j) {
    double t = 0.0;
    for (std::size_t i = 0; i < np; ++i) t += v->data[i] * at(B, i, j);
    s += t * v->data[j];
  }
  return s;
}

void M_RemoveCol(matrix<double>* m, int col) {
  if (!m || !m->data || col < 1 || static_cast<std::uint32_t>(col) > m->cols) return;
  const std::size_t r = m->rows;
  for (std::size_t j = static_cast<std::size_t>(col); j < m->cols; ++j)
    for (std::size_t i = 0; i < r; ++i) m->data[(j - 1) * r + i] = m->data[j * r + i];
  m->cols -= 1;
  m->count = static_cast<std::uint64_t>(m->rows) * m->cols;
}

void M_RemoveColsInList(matrix<double>* m, const matrix<double>* list, int k) {
  if (!m || !list || k <= 0) return;
  std::vector<int> cols;
  for (std::size_t i = 0; i < static_cast<std::size_t>(k) && i < list->count; ++i)
    cols.push_back(static_cast<int>(list->data[i]));
  std::sort(cols.begin(), cols.end());
  cols.erase(std::unique(cols.begin(), cols.end()), cols.end());
  for (auto it = cols.rbegin(); it != cols.rend(); ++it) M_RemoveCol(m, *it);
}

int M_RemoveRowsInList(matrix<double>* m, const matrix<double>* flags) {
  if (!m || !m->data || !flags) return 0;
  const std::size_t r = m->rows;
  std::vector<std::size_t> keep;
  for (std::size_t i = 0; i < r; ++i) {
    const bool drop = i < flags->count && flags->data[i] != 0.0;
    if (!drop) keep.push_back(i);
  }
  const std::size_t nr = keep.size();
  if (nr == r) return 0;
  std::vector<double> tmp(nr * m->cols);
  for (std::size_t j = 0; j < m->cols; ++j)
    for (std::size_t t = 0; t < nr; ++t) tmp[j * nr + t] = m->data[j * r + keep[t]];
  std::copy(tmp.begin(), tmp.end(), m->data);
  m->rows = static_cast<std::uint32_t>(nr);
  m->count = static_cast<std::uint64_t>(m->rows) * m->cols;
  return static_cast<int>(r - nr);
}

int M_GroupBy(const matrix<double>* m, int keyCol, int valCol, matrix<double>* means) {
  if (!m || !means || !m->data || keyCol < 1 || valCol < 1 ||
      static_cast<std::uint32_t>(keyCol) > m->cols || static_cast<std::uint32_t>(valCol) > m->cols)
    return 0;
  const std::size_t k = means->count;
  std::vector<double> sum(k, 0.0), cnt(k, 0.0);
  std::vector<bool> seen(k, false);
  for (std::size_t i = 0; i < m->rows; ++i) {
    const double code = at(m, i, static_cast<std::size_t>(keyCol - 1));
    if (!(code >= 1.0 && code <= static_cast<double>(k))) continue;
    const std::size_t g = static_cast<std::size_t>(code) - 1;
    seen[g] = true;
    const double v = at(m, i, static_cast<std::size_t>(valCol - 1));
    if (velkor::IsMissing(v) || std::isnan(v)) continue;
    sum[g] += v;
    cnt[g] += 1.0;
  }
  int nseen = 0;
  for (std::size_t g = 0; g < k; ++g) {
    means->data[g] = cnt[g] > 0 ? sum[g] / cnt[g] : velkor::kMissing;
    nseen += seen[g] ? 1 : 0;
  }
  return nseen;
}

void M_ExtractMatToMatByColDbl(const matrix<double>* src, int srcCol, matrix<double>* dst,
                               int dstCol) {
  if (!src || !dst || srcCol < 1 || dstCol < 1 || static_cast<std::uint32_t>(srcCol) > src->cols ||
      static_cast<std::uint32_t>(dstCol) > dst->cols)
    return;
  const std::size_t r = std::min(src->rows, dst->rows);
  for (std::size_t i = 0; i < r; ++i)
    at(dst, i, static_cast<std::size_t>(dstCol - 1)) =
        at(src, i, static_cast<std::size_t>(srcCol - 1));
}

void drotg(double& a, double& b, double& c, double& s) {
  const double roe = std::fabs(a) > std::fabs(b) ? a : b;
  const double scale = std::fabs(a) + std::fabs(b);
  double r, z;
  if (scale == 0.0) {
    c = 1.0;
    s = 0.0;
    r = 0.0;
    z = 0.0;
  } else {
    r = scale * std::sqrt((a / scale) * (a / scale) + (b / scale) * (b / scale));
    r = std::copysign(1.0, roe) * r;
    c = a / r;
    s = b / r;
    z = 1.0;
    if (std::fabs(a) > std::fabs(b)) z = s;
    if (std::fabs(b) >= std::fabs(a) && c != 0.0) z = 1.0 / c;
  }
  a = r;
  b = z;
}
