// matrix3D<T>: slices built from OLE Automation arrays, and the exported instantiations.
#include <cstdlib>
#include <string>

#include "core/numeric.h"
#include "velkor/containers.h"

namespace {

// Converts one VARIANT to a double; empty, null, error and non-numeric values are missing.
double variant_to_double(const VARIANT& v) {
  switch (v.vt) {
    case VT_R8:
    case VT_DATE:
      return v.dblVal;
    case VT_R4:
      return v.fltVal;
    case VT_I4:
    case VT_INT:
      return v.lVal;
    case VT_I2:
      return v.iVal;
    case VT_UI1:
      return v.bVal;
    case VT_I8:
      return static_cast<double>(v.llVal);
    case VT_BOOL:
      return v.boolVal ? -1.0 : 0.0;
    case VT_BSTR: {
      if (!v.bstrVal) return velkor::kMissing;
      std::string text;
      for (UINT i = 0, n = SysStringLen(v.bstrVal); i < n; ++i) {
        const char16_t c = v.bstrVal[i];
        if (c > 127) return velkor::kMissing;
        text.push_back(static_cast<char>(c));
      }
      char* end = nullptr;
      const double d = std::strtod(text.c_str(), &end);
      if (text.empty() || end == text.c_str() || *end != '\0') return velkor::kMissing;
      return d;
    }
    default:
      return velkor::kMissing;
  }
}

std::u16string variant_to_string(const VARIANT& v) {
  if (v.vt == VT_BSTR) return velkor::FromBSTR(v.bstrVal);
  VARIANT out;
  VariantInit(&out);
  std::u16string s;
  // Windows declares the source argument non-const; it is only read.
  if (SUCCEEDED(VariantChangeType(&out, const_cast<VARIANT*>(&v), 0, VT_BSTR)) &&
      out.vt == VT_BSTR) {
    s = velkor::FromBSTR(out.bstrVal);
  }
  VariantClear(&out);
  return s;
}

// Value k (0-based, in memory order) of a one-dimensional array, converted to T.
template <class T>
T array_value(const SAFEARRAY* a, VARTYPE vt, std::size_t k) {
  const auto* base = static_cast<const unsigned char*>(a->pvData) + k * a->cbElements;
  VARIANT tmp;
  VariantInit(&tmp);
  switch (vt) {
    case VT_R8:
      tmp.vt = VT_R8;
      tmp.dblVal = *reinterpret_cast<const double*>(base);
      break;
    case VT_R4:
      tmp.vt = VT_R4;
      tmp.fltVal = *reinterpret_cast<const float*>(base);
      break;
    case VT_I4:
      tmp.vt = VT_I4;
      tmp.lVal = *reinterpret_cast<const LONG*>(base);
      break;
    case VT_I2:
      tmp.vt = VT_I2;
      tmp.iVal = *reinterpret_cast<const SHORT*>(base);
      break;
    case VT_BOOL:
      tmp.vt = VT_BOOL;
      tmp.boolVal = *reinterpret_cast<const VARIANT_BOOL*>(base);
      break;
    case VT_BSTR:
      tmp.vt = VT_BSTR;
      tmp.bstrVal = *reinterpret_cast<BSTR const*>(base);  // borrowed, not freed
      break;
    case VT_VARIANT:
      tmp = *reinterpret_cast<const VARIANT*>(base);  // borrowed, not cleared
      break;
    default:
      break;
  }
  if constexpr (std::is_same_v<T, std::u16string>) {
    return variant_to_string(tmp);
  } else if constexpr (std::is_same_v<T, int>) {
    const double d = variant_to_double(tmp);
    if (!(d > -2147483648.0 && d < 2147483648.0)) return 0;
    return static_cast<int>(d);
  } else {
    return variant_to_double(tmp);
  }
}

// Element type of an array held by a VARIANT; VT_EMPTY when it cannot be read.
VARTYPE array_element_type(const SAFEARRAY* a, VARTYPE variant_vt) {
  VARTYPE vt = static_cast<VARTYPE>(variant_vt & ~(VT_ARRAY | VT_BYREF));
  if (a->fFeatures & FADF_BSTR) vt = VT_BSTR;
  if (a->fFeatures & FADF_VARIANT) vt = VT_VARIANT;
  std::size_t expected = 0;
  switch (vt) {
    case VT_R8:
    case VT_BSTR:
      expected = 8;
      break;
    case VT_R4:
    case VT_I4:
      expected = 4;
      break;
    case VT_I2:
    case VT_BOOL:
      expected = 2;
      break;
    case VT_VARIANT:
      expected = sizeof(VARIANT);
      break;
    default:
      return VT_EMPTY;
  }
  return a->cbElements == expected ? vt : static_cast<VARTYPE>(VT_EMPTY);
}

template <class T>
std::shared_ptr<cST_MVect<T>> column_values(const VARIANT& values) {
  auto vec = std::make_shared<cST_MVect<T>>();
  if (!(values.vt & VT_ARRAY)) return vec;
  const SAFEARRAY* a =
      (values.vt & VT_BYREF)
          ? (values.byref ? *static_cast<SAFEARRAY* const*>(values.byref) : nullptr)
          : values.parray;
  if (!a || a->cDims != 1 || !a->pvData) return vec;
  const VARTYPE vt = array_element_type(a, values.vt);
  if (vt == VT_EMPTY) return vec;
  const std::uint32_t n = a->rgsabound[0].cElements;
  vec->resize(n, T());
  for (std::uint32_t k = 0; k < n; ++k) vec->data[k] = array_value<T>(a, vt, k);
  return vec;
}

// Shape of a three-dimensional array of doubles: (slices, rows, cols) along dimensions 1, 2, 3.
bool cube_shape(const SAFEARRAY* a, std::uint32_t& ns, std::uint32_t& nr, std::uint32_t& nc,
                VARTYPE& vt) {
  if (!a || a->cDims != 3 || !a->pvData) return false;
  if (a->fFeatures & FADF_VARIANT) {
    vt = VT_VARIANT;
  } else if (a->cbElements == 8 &&
             !(a->fFeatures & (FADF_BSTR | FADF_RECORD | FADF_UNKNOWN | FADF_DISPATCH))) {
    vt = VT_R8;
  } else {
    return false;
  }
  if (a->cbElements != (vt == VT_VARIANT ? sizeof(VARIANT) : 8)) return false;
  // Bounds are stored last dimension first.
  ns = a->rgsabound[2].cElements;
  nr = a->rgsabound[1].cElements;
  nc = a->rgsabound[0].cElements;
  return true;
}

// Fill slice k from the cube; memory order puts dimension 1 fastest, then 2, then 3.
void fill_from_cube(const SAFEARRAY* a, VARTYPE vt, std::uint32_t k, matrix<double>& slice) {
  const std::uint64_t ns = a->rgsabound[2].cElements;
  const std::uint64_t nr = a->rgsabound[1].cElements;
  for (std::uint32_t j = 0; j < slice.cols; ++j) {
    for (std::uint32_t i = 0; i < slice.rows; ++i) {
      const std::uint64_t off = k + ns * (i + nr * j);
      slice.data[static_cast<std::uint64_t>(j) * slice.rows + i] = array_value<double>(a, vt, off);
    }
  }
}

}  // namespace

template <class T>
matrix3DBase<T>::~matrix3DBase() {
  clear();
}

template <class T>
typename matrix3DBase<T>::Value matrix3DBase<T>::getElement(int k, int i) {
  return read(k, i);
}

template <class T>
typename matrix3DBase<T>::Value matrix3DBase<T>::vbget(int k, int i) {
  return read(k - 1, i - 1);
}

template <class T>
void matrix3DBase<T>::setElement(int k, int i, Value v) {
  write(k, i, v);
}

template <class T>
void matrix3DBase<T>::vbset(int k, int i, Value v) {
  write(k - 1, i - 1, v);
}

template <class T>
typename matrix3DBase<T>::Slice& matrix3DBase<T>::operator()(int k) {
  return *slices[static_cast<std::size_t>(k - 1)];
}

template <class T>
void matrix3DBase<T>::clear() {
  for (Slice* s : slices) delete s;
  slices.clear();
  nSlices = 0;
}

// A slice number outside the object, an empty slot or a slice without entries has no spare
// element of its own: reads give a default value and stores are dropped.
template <class T>
typename matrix3DBase<T>::Slice* matrix3DBase<T>::slice_at(int k) {
  if (k < 0 || static_cast<std::size_t>(k) >= slices.size()) return nullptr;
  Slice* s = slices[static_cast<std::size_t>(k)];
  if constexpr (!std::is_same_v<T, matrix<double>>) {
    if (s && (s->entries.empty() || !s->entries.front())) return nullptr;
  }
  return s;
}

template <class T>
typename matrix3DBase<T>::Value matrix3DBase<T>::read(int k, int i) {
  Slice* s = slice_at(k);
  if (!s) return SpareInit<Value>::value();
  if constexpr (std::is_same_v<T, matrix<double>>) {
    const auto idx = static_cast<std::uint32_t>(i);  // unsigned: negative i is out of range
    return idx < s->count ? s->data[idx] : s->spare;
  } else {
    return (*s->entries.front())[static_cast<std::uint32_t>(i)];
  }
}

template <class T>
void matrix3DBase<T>::write(int k, int i, Value val) {
  Slice* s = slice_at(k);
  if (!s) return;
  if constexpr (std::is_same_v<T, matrix<double>>) {
    const auto idx = static_cast<std::uint32_t>(i);
    if (idx < s->count) s->data[idx] = val;
    s->spare = val;
  } else {
    s->entries.front()->setElement(static_cast<std::uint32_t>(i), val);
  }
}

template <class T>
matrix3D<T>::matrix3D(int n) {
  const int m = n > 0 ? n : 0;
  this->slices.assign(static_cast<std::size_t>(m), nullptr);
  this->nSlices = m;
}

template <class T>
matrix3D<T>::matrix3D(SAFEARRAY* records, int maxSlices) requires VectorSlices<T> {
  if (!records || records->cDims != 1 || records->cbElements != sizeof(cST_ColumnRecord) ||
      !records->pvData) {
    return;
  }
  std::uint32_t n = records->rgsabound[0].cElements;
  if (maxSlices > 0 && static_cast<std::uint32_t>(maxSlices) < n) {
    n = static_cast<std::uint32_t>(maxSlices);
  }
  const auto* recs = static_cast<const cST_ColumnRecord*>(records->pvData);
  try {
    this->slices.reserve(n);
    for (std::uint32_t r = 0; r < n; ++r) {
      auto* col = new Slice();
      this->slices.push_back(col);
      this->nSlices = static_cast<std::int32_t>(this->slices.size());
      col->name = velkor::FromBSTR(recs[r].name);
      col->role = recs[r].role;
      col->entries.push_back(column_values<typename Matrix3DSlice<T>::value>(recs[r].values));
    }
  } catch (...) {
    this->clear();
    throw;
  }
}

template <class T>
matrix3D<T>::matrix3D(SAFEARRAY* cube) requires(!VectorSlices<T>) {
  std::uint32_t ns = 0, nr = 0, nc = 0;
  VARTYPE vt = VT_EMPTY;
  if (!cube_shape(cube, ns, nr, nc, vt)) return;
  try {
    this->slices.reserve(ns);
    for (std::uint32_t k = 0; k < ns; ++k) {
      auto* m = new matrix<double>(nr, nc);
      this->slices.push_back(m);
      this->nSlices = static_cast<std::int32_t>(this->slices.size());
      fill_from_cube(cube, vt, k, *m);
    }
  } catch (...) {
    this->clear();
    throw;
  }
}

template <class T>
matrix3D<T>::matrix3D(int slices, int entries, int length,
                      double init) requires std::is_same_v<T, cST_MVect<double>> {
  const int ns = slices > 0 ? slices : 0;
  const int ne = entries > 1 ? entries : 1;
  const std::uint32_t len = length > 0 ? static_cast<std::uint32_t>(length) : 0;
  try {
    this->slices.reserve(static_cast<std::size_t>(ns));
    for (int k = 0; k < ns; ++k) {
      auto* col = new Slice();
      this->slices.push_back(col);
      this->nSlices = static_cast<std::int32_t>(this->slices.size());
      for (int e = 0; e < ne; ++e)
        col->entries.push_back(std::make_shared<cST_MVect<double>>(len, init));
    }
  } catch (...) {
    this->clear();
    throw;
  }
}

template <class T>
void matrix3D<T>::Update(SAFEARRAY* cube) requires(!VectorSlices<T>) {
  std::uint32_t ns = 0, nr = 0, nc = 0;
  VARTYPE vt = VT_EMPTY;
  if (!cube_shape(cube, ns, nr, nc, vt)) return;
  if (ns != this->slices.size()) return;
  for (Slice* s : this->slices) {
    if (!s || s->rows != nr || s->cols != nc) return;
  }
  for (std::uint32_t k = 0; k < ns; ++k) fill_from_cube(cube, vt, k, *this->slices[k]);
}

template <class T>
matrix3D<T>::~matrix3D() = default;

template <class T>
typename matrix3D<T>::Value& matrix3D<T>::operator()(
    int k, int i, int j) requires std::is_same_v<T, cST_MVect<double>> {
  Slice& s = *this->slices[static_cast<std::size_t>(k - 1)];
  return s.entries[static_cast<std::size_t>(i - 1)]->vb(j);
}

template class matrix3DBase<cST_MVect<double>>;
template class matrix3DBase<cST_MVect<int>>;
template class matrix3DBase<cST_MVect<std::u16string>>;
template class matrix3DBase<matrix<double>>;
template class matrix3D<cST_MVect<double>>;
template class matrix3D<cST_MVect<int>>;
template class matrix3D<cST_MVect<std::u16string>>;
template class matrix3D<matrix<double>>;
