// OLE Automation arguments as a 64-bit spreadsheet macro passes them: the system's oleaut32 on
// Windows (the Windows test program), the library's ABI-compatible implementation elsewhere (the
// API tests). Record arrays are laid out by hand at the macro type's offsets, so both builds check
// the layout the library reads.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "velkor/oleauto.h"

namespace testing_ole {

// One-dimensional array of type vt, lower bound 1 (a macro's `Dim x(1 To n) As Double`).
template <class T>
SAFEARRAY* vector_of(VARTYPE vt, const std::vector<T>& v) {
  SAFEARRAY* a = SafeArrayCreateVector(vt, 1, static_cast<ULONG>(v.size()));
  for (std::size_t i = 0; i < v.size(); ++i) {
    LONG idx = static_cast<LONG>(i) + 1;
    T x = v[i];
    SafeArrayPutElement(a, &idx, &x);
  }
  return a;
}
inline SAFEARRAY* doubles(const std::vector<double>& v) {
  return vector_of(VT_R8, v);
}
inline SAFEARRAY* doubles(const double* p, int n) {
  return doubles(std::vector<double>(p, p + n));
}
inline SAFEARRAY* longs(const std::vector<std::int32_t>& v) {
  return vector_of(VT_I4, v);
}
inline SAFEARRAY* integers(const std::vector<std::int16_t>& v) {
  return vector_of(VT_I2, v);
}

// A BSTR owned for the scope of a test.
struct Bstr {
  BSTR b = nullptr;
  explicit Bstr(const std::u16string& s) : b(velkor::ToBSTR(s)) {}
  ~Bstr() { SysFreeString(b); }
  Bstr(const Bstr&) = delete;
  Bstr& operator=(const Bstr&) = delete;
};

// A VARIANT owned for the scope of a test.
struct Variant {
  VARIANT v;
  Variant() { VariantInit(&v); }
  explicit Variant(double d) : Variant() {
    v.vt = VT_R8;
    v.dblVal = d;
  }
  explicit Variant(const std::u16string& s) : Variant() {
    v.vt = VT_BSTR;
    v.bstrVal = velkor::ToBSTR(s);
  }
  ~Variant() { VariantClear(&v); }
  Variant(const Variant&) = delete;
  Variant& operator=(const Variant&) = delete;
};

// One-dimensional VT_BSTR array, lower bound 0; the array holds copies of the strings.
inline SAFEARRAY* strings(const std::vector<std::u16string>& v) {
  SAFEARRAY* a = SafeArrayCreateVector(VT_BSTR, 0, static_cast<ULONG>(v.size()));
  for (std::size_t i = 0; i < v.size(); ++i) {
    LONG idx = static_cast<LONG>(i);
    Bstr b(v[i]);
    SafeArrayPutElement(a, &idx, b.b);
  }
  return a;
}

// One-dimensional VT_VARIANT array, lower bound 1 (a worksheet range read into a Variant):
// element i the text text_or_number[i].second when text_or_number[i].first, else numbers[i].
inline SAFEARRAY* variants(const std::vector<std::pair<bool, std::u16string>>& text_or_number,
                           const std::vector<double>& numbers) {
  SAFEARRAY* a = SafeArrayCreateVector(VT_VARIANT, 1, static_cast<ULONG>(numbers.size()));
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    LONG idx = static_cast<LONG>(i) + 1;
    if (i < text_or_number.size() && text_or_number[i].first) {
      Variant t(text_or_number[i].second);
      SafeArrayPutElement(a, &idx, &t.v);
    } else {
      Variant d(numbers[i]);
      SafeArrayPutElement(a, &idx, &d.v);
    }
  }
  return a;
}

// Three-dimensional VT_R8 array (slices x rows x cols), lower bounds 1, element (k, i, j) =
// f(k, i, j).
template <class F>
SAFEARRAY* cube(ULONG ns, ULONG nr, ULONG nc, F f) {
  SAFEARRAYBOUND b[3] = {{ns, 1}, {nr, 1}, {nc, 1}};
  SAFEARRAY* a = SafeArrayCreate(VT_R8, 3, b);
  for (LONG k = 1; k <= static_cast<LONG>(ns); ++k)
    for (LONG i = 1; i <= static_cast<LONG>(nr); ++i)
      for (LONG j = 1; j <= static_cast<LONG>(nc); ++j) {
        LONG idx[3] = {k, i, j};
        double v = f(k, i, j);
        SafeArrayPutElement(a, idx, &v);
      }
  return a;
}

// (name, (element type, values)) of each column of a record array.
using Columns = std::vector<std::pair<std::u16string, std::pair<VARTYPE, SAFEARRAY*>>>;
inline Columns real_columns(
    const std::vector<std::pair<std::u16string, std::vector<double>>>& cols) {
  Columns out;
  for (const auto& [name, values] : cols) out.push_back({name, {VT_R8, doubles(values)}});
  return out;
}

// Array of 40-byte column records (the macro type VelkorColumn: Values As Variant, Name As
// String, Role As Long, Reserved As Long), lower bound 1, laid out by hand at the macro type's
// offsets (0, 24, 32, 36). Takes ownership of the value arrays; record i gets role 10 * i.
struct RecordArray {
  SAFEARRAY* psa = nullptr;
  explicit RecordArray(const Columns& cols) {
    // A descriptor whose element width is set by hand, as oleaut32 documents for arrays of
    // user-defined types without record information.
    SafeArrayAllocDescriptor(1, &psa);
    psa->cbElements = 40;
    psa->rgsabound[0].cElements = static_cast<ULONG>(cols.size());
    psa->rgsabound[0].lLbound = 1;
    SafeArrayAllocData(psa);
    auto* base = static_cast<unsigned char*>(psa->pvData);
    for (std::size_t i = 0; i < cols.size(); ++i) {
      auto* values = reinterpret_cast<VARIANT*>(base + 40 * i);
      VariantInit(values);
      values->vt = static_cast<VARTYPE>(VT_ARRAY | cols[i].second.first);
      values->parray = cols[i].second.second;
      *reinterpret_cast<BSTR*>(base + 40 * i + 24) = velkor::ToBSTR(cols[i].first);
      *reinterpret_cast<std::int32_t*>(base + 40 * i + 32) = static_cast<std::int32_t>(i) * 10;
      *reinterpret_cast<std::int32_t*>(base + 40 * i + 36) = 0;
    }
  }
  ~RecordArray() {
    auto* base = static_cast<unsigned char*>(psa->pvData);
    for (ULONG i = 0; i < psa->rgsabound[0].cElements; ++i) {
      VariantClear(reinterpret_cast<VARIANT*>(base + 40 * i));
      SysFreeString(*reinterpret_cast<BSTR*>(base + 40 * i + 24));
    }
    SafeArrayDestroy(psa);
  }
  RecordArray(const RecordArray&) = delete;
  RecordArray& operator=(const RecordArray&) = delete;
};

// Frees an array at the end of a scope.
struct ArrayGuard {
  SAFEARRAY* psa;
  ~ArrayGuard() { SafeArrayDestroy(psa); }
};

}  // namespace testing_ole
