// Building OLE Automation arrays as a spreadsheet front end passes them.
#pragma once

#include <string>
#include <vector>

#include "velkor/containers.h"
#include "velkor/oleauto.h"

namespace testing_ole {

// One-dimensional VT_R8 array with lower bound 1, as a macro's Double array.
inline SAFEARRAY* doubles(const std::vector<double>& v) {
  SAFEARRAY* a = SafeArrayCreateVector(VT_R8, 1, static_cast<ULONG>(v.size()));
  for (std::size_t i = 0; i < v.size(); ++i) {
    LONG idx = static_cast<LONG>(i) + 1;
    double x = v[i];
    SafeArrayPutElement(a, &idx, &x);
  }
  return a;
}

// One-dimensional VT_BSTR array.
inline SAFEARRAY* strings(const std::vector<std::u16string>& v) {
  SAFEARRAY* a = SafeArrayCreateVector(VT_BSTR, 0, static_cast<ULONG>(v.size()));
  for (std::size_t i = 0; i < v.size(); ++i) {
    LONG idx = static_cast<LONG>(i);
    BSTR b = SysAllocStringLen(v[i].data(), static_cast<UINT>(v[i].size()));
    SafeArrayPutElement(a, &idx, b);
    SysFreeString(b);
  }
  return a;
}

// Record array of 40-byte column records; takes ownership of the value arrays.
struct RecordArray {
  SAFEARRAY* psa = nullptr;
  RecordArray(const std::vector<std::pair<std::u16string, std::pair<VARTYPE, SAFEARRAY*>>>& cols) {
    SafeArrayAllocDescriptor(1, &psa);
    psa->cbElements = sizeof(cST_ColumnRecord);
    psa->rgsabound[0].cElements = static_cast<ULONG>(cols.size());
    psa->rgsabound[0].lLbound = 1;
    SafeArrayAllocData(psa);
    auto* rec = static_cast<cST_ColumnRecord*>(psa->pvData);
    for (std::size_t i = 0; i < cols.size(); ++i) {
      VariantInit(&rec[i].values);
      rec[i].values.vt = static_cast<VARTYPE>(VT_ARRAY | cols[i].second.first);
      rec[i].values.parray = cols[i].second.second;
      rec[i].name =
          SysAllocStringLen(cols[i].first.data(), static_cast<UINT>(cols[i].first.size()));
      rec[i].role = static_cast<int>(i) * 10;
    }
  }
  ~RecordArray() {
    auto* rec = static_cast<cST_ColumnRecord*>(psa->pvData);
    for (ULONG i = 0; i < psa->rgsabound[0].cElements; ++i) {
      VariantClear(&rec[i].values);
      SysFreeString(rec[i].name);
    }
    SafeArrayDestroy(psa);
  }
  RecordArray(const RecordArray&) = delete;
  RecordArray& operator=(const RecordArray&) = delete;
};

// Three-dimensional VT_R8 array (slices x rows x cols), element (k, i, j) = f(k, i, j), lower
// bounds 1.
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

}  // namespace testing_ole
