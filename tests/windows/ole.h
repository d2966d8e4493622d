// OLE Automation arguments as a 64-bit spreadsheet macro passes them, built with the system's
// oleaut32 (SafeArrayCreate*, SysAllocString*, VariantInit/VariantClear).
#pragma once

#include <windows.h>

#include <oleauto.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace wintest::ole {

// One-dimensional VT_R8 array, lower bound 1 (a macro's `Dim x(1 To n) As Double`).
SAFEARRAY* doubles(const std::vector<double>& v);
inline SAFEARRAY* doubles(const double* p, int n) {
  return doubles(std::vector<double>(p, p + n));
}
// One-dimensional VT_I4 / VT_I2 arrays, lower bound 1.
SAFEARRAY* longs(const std::vector<std::int32_t>& v);
SAFEARRAY* integers(const std::vector<std::int16_t>& v);
// One-dimensional VT_BSTR array, lower bound 0.
SAFEARRAY* strings(const std::vector<std::u16string>& v);
// One-dimensional VT_VARIANT array of doubles and texts (a worksheet range read into a Variant).
SAFEARRAY* variants(const std::vector<std::pair<bool, std::u16string>>& text_or_number,
                    const std::vector<double>& numbers);
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

// A BSTR owned for the scope of a test.
struct Bstr {
  BSTR b = nullptr;
  explicit Bstr(const std::u16string& s);
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
  explicit Variant(const std::u16string& s);
  ~Variant() { VariantClear(&v); }
  Variant(const Variant&) = delete;
  Variant& operator=(const Variant&) = delete;
};

// A record array of Double columns (name, values).
using Columns = std::vector<std::pair<std::u16string, std::pair<VARTYPE, SAFEARRAY*>>>;
inline Columns real_columns(
    const std::vector<std::pair<std::u16string, std::vector<double>>>& cols) {
  Columns out;
  for (const auto& [name, values] : cols) out.push_back({name, {VT_R8, doubles(values)}});
  return out;
}

// Array of 40-byte column records (the macro type VelkorColumn: Values As Variant, Name As
// String, Role As Long, Reserved As Long), lower bound 1. Takes ownership of the value arrays;
// record i gets role 10 * i.
struct RecordArray {
  SAFEARRAY* psa = nullptr;
  explicit RecordArray(const Columns& cols);
  ~RecordArray();
  RecordArray(const RecordArray&) = delete;
  RecordArray& operator=(const RecordArray&) = delete;
};

// Frees an array at the end of a scope.
struct ArrayGuard {
  SAFEARRAY* psa;
  ~ArrayGuard() { SafeArrayDestroy(psa); }
};

}  // namespace wintest::ole
