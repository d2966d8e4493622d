// ABI-compatible implementation of the OLE Automation operations the library uses, for
// platforms other than Windows (where oleaut32.dll provides the real ones).
//
// Layouts follow Windows x64 exactly (see include/velkor/oleauto.h). A BSTR is allocated as
// [4-byte byte length][UTF-16 units][2-byte terminator] and the pointer handed out points just
// past the length prefix, so SysStringLen is O(1) and embedded zeros are allowed.
#include "velkor/oleauto.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

static_assert(sizeof(SAFEARRAYBOUND) == 8);
static_assert(sizeof(SAFEARRAY) == 32);
static_assert(offsetof(SAFEARRAY, pvData) == 16);
static_assert(offsetof(SAFEARRAY, rgsabound) == 24);
static_assert(sizeof(VARIANT) == 24);
static_assert(offsetof(VARIANT, dblVal) == 8);

namespace {

// The descriptor is allocated with 16 bytes in front of it, like oleaut32 does, holding the
// element VARTYPE when the array was created with SafeArrayAllocDescriptorEx/SafeArrayCreate.
constexpr size_t kPrefix = 16;

SAFEARRAY* alloc_descriptor(UINT cDims) {
  if (cDims == 0 || cDims > 0xFFFF) return nullptr;
  const size_t bytes = kPrefix + sizeof(SAFEARRAY) + (cDims - 1) * sizeof(SAFEARRAYBOUND);
  auto* raw = static_cast<unsigned char*>(std::calloc(1, bytes));
  if (!raw) return nullptr;
  auto* psa = reinterpret_cast<SAFEARRAY*>(raw + kPrefix);
  psa->cDims = static_cast<USHORT>(cDims);
  return psa;
}

VARTYPE& stored_vartype(SAFEARRAY* psa) {
  return *reinterpret_cast<VARTYPE*>(reinterpret_cast<unsigned char*>(psa) - 4);
}

ULONG element_size(VARTYPE vt) {
  switch (vt) {
    case VT_I1:
    case VT_UI1:
      return 1;
    case VT_I2:
    case VT_UI2:
    case VT_BOOL:
      return 2;
    case VT_I4:
    case VT_UI4:
    case VT_R4:
    case VT_INT:
    case VT_UINT:
    case VT_ERROR:
      return 4;
    case VT_R8:
    case VT_CY:
    case VT_DATE:
    case VT_I8:
    case VT_UI8:
    case VT_BSTR:
    case VT_DISPATCH:
    case VT_UNKNOWN:
      return 8;
    case VT_VARIANT:
      return sizeof(VARIANT);
    case VT_DECIMAL:
      return 16;
    default:
      return 0;
  }
}

USHORT features_for(VARTYPE vt) {
  switch (vt) {
    case VT_BSTR:
      return FADF_BSTR | FADF_HAVEVARTYPE;
    case VT_VARIANT:
      return FADF_VARIANT | FADF_HAVEVARTYPE;
    case VT_UNKNOWN:
      return FADF_UNKNOWN | FADF_HAVEVARTYPE;
    case VT_DISPATCH:
      return FADF_DISPATCH | FADF_HAVEVARTYPE;
    case VT_RECORD:
      return FADF_RECORD;
    default:
      return FADF_HAVEVARTYPE;
  }
}

// Total element count; 0 for any zero-length dimension. Returns false on overflow.
bool total_elements(const SAFEARRAY* psa, size_t* out) {
  size_t total = 1;
  for (USHORT d = 0; d < psa->cDims; ++d) {
    const size_t c = psa->rgsabound[d].cElements;
    if (c != 0 && total > SIZE_MAX / c) return false;
    total *= c;
  }
  *out = total;
  return true;
}

// Bounds are stored last dimension first: the leftmost (first) dimension is rgsabound[cDims-1].
const SAFEARRAYBOUND& bound_of_dim(const SAFEARRAY* psa, UINT nDim) {
  return psa->rgsabound[psa->cDims - nDim];
}

unsigned char* bstr_block(BSTR b) {
  return reinterpret_cast<unsigned char*>(b) - 4;
}

BSTR alloc_bstr_bytes(const void* src, UINT bytes) {
  auto* block = static_cast<unsigned char*>(std::malloc(size_t{4} + bytes + 2));
  if (!block) return nullptr;
  std::uint32_t len = bytes;
  std::memcpy(block, &len, 4);
  if (src) {
    std::memcpy(block + 4, src, bytes);
  } else {
    std::memset(block + 4, 0, bytes);
  }
  block[4 + bytes] = 0;
  block[4 + bytes + 1] = 0;
  return reinterpret_cast<BSTR>(block + 4);
}

size_t olestr_len(const OLECHAR* s) {
  size_t n = 0;
  while (s[n] != 0) ++n;
  return n;
}

void clear_element(VARTYPE vt, void* p) {
  if (vt == VT_BSTR) {
    SysFreeString(*static_cast<BSTR*>(p));
    *static_cast<BSTR*>(p) = nullptr;
  } else if (vt == VT_VARIANT) {
    VariantClear(static_cast<VARIANT*>(p));
  }
}

HRESULT element_vartype(SAFEARRAY* psa, VARTYPE* vt) {
  if (psa->fFeatures & FADF_BSTR) {
    *vt = VT_BSTR;
  } else if (psa->fFeatures & FADF_VARIANT) {
    *vt = VT_VARIANT;
  } else if (psa->fFeatures & FADF_HAVEVARTYPE) {
    *vt = stored_vartype(psa);
  } else {
    *vt = VT_EMPTY;
    return E_INVALIDARG;
  }
  return S_OK;
}

}  // namespace

extern "C" {

HRESULT SafeArrayAllocDescriptor(UINT cDims, SAFEARRAY** ppsaOut) {
  if (!ppsaOut) return E_INVALIDARG;
  *ppsaOut = alloc_descriptor(cDims);
  if (cDims == 0) return E_INVALIDARG;
  return *ppsaOut ? S_OK : E_OUTOFMEMORY;
}

HRESULT SafeArrayAllocDescriptorEx(VARTYPE vt, UINT cDims, SAFEARRAY** ppsaOut) {
  HRESULT hr = SafeArrayAllocDescriptor(cDims, ppsaOut);
  if (FAILED(hr)) return hr;
  SAFEARRAY* psa = *ppsaOut;
  psa->fFeatures = features_for(vt);
  psa->cbElements = element_size(vt);
  stored_vartype(psa) = vt;
  return S_OK;
}

HRESULT SafeArrayAllocData(SAFEARRAY* psa) {
  if (!psa || psa->cbElements == 0) return E_INVALIDARG;
  size_t n = 0;
  if (!total_elements(psa, &n) || (n != 0 && n > SIZE_MAX / psa->cbElements)) return E_OUTOFMEMORY;
  void* data = std::calloc(n == 0 ? 1 : n, psa->cbElements);
  if (!data) return E_OUTOFMEMORY;
  psa->pvData = data;
  return S_OK;
}

SAFEARRAY* SafeArrayCreate(VARTYPE vt, UINT cDims, SAFEARRAYBOUND* rgsabound) {
  if (!rgsabound || element_size(vt) == 0) return nullptr;
  SAFEARRAY* psa = nullptr;
  if (FAILED(SafeArrayAllocDescriptorEx(vt, cDims, &psa))) return nullptr;
  for (UINT d = 0; d < cDims; ++d) psa->rgsabound[cDims - 1 - d] = rgsabound[d];
  if (FAILED(SafeArrayAllocData(psa))) {
    SafeArrayDestroyDescriptor(psa);
    return nullptr;
  }
  return psa;
}

SAFEARRAY* SafeArrayCreateVector(VARTYPE vt, LONG lLbound, ULONG cElements) {
  SAFEARRAYBOUND b{cElements, lLbound};
  return SafeArrayCreate(vt, 1, &b);
}

HRESULT SafeArrayDestroyData(SAFEARRAY* psa) {
  if (!psa) return E_INVALIDARG;
  if (psa->cLocks > 0) return DISP_E_ARRAYISLOCKED;
  if (psa->pvData) {
    VARTYPE vt = VT_EMPTY;
    if (SUCCEEDED(element_vartype(psa, &vt)) && (vt == VT_BSTR || vt == VT_VARIANT)) {
      size_t n = 0;
      total_elements(psa, &n);
      auto* base = static_cast<unsigned char*>(psa->pvData);
      for (size_t i = 0; i < n; ++i) clear_element(vt, base + i * psa->cbElements);
    }
    if (!(psa->fFeatures & (FADF_STATIC | FADF_EMBEDDED))) std::free(psa->pvData);
    psa->pvData = nullptr;
  }
  return S_OK;
}

HRESULT SafeArrayDestroyDescriptor(SAFEARRAY* psa) {
  if (!psa) return E_INVALIDARG;
  if (psa->cLocks > 0) return DISP_E_ARRAYISLOCKED;
  std::free(reinterpret_cast<unsigned char*>(psa) - kPrefix);
  return S_OK;
}

HRESULT SafeArrayDestroy(SAFEARRAY* psa) {
  if (!psa) return S_OK;
  HRESULT hr = SafeArrayDestroyData(psa);
  if (FAILED(hr)) return hr;
  return SafeArrayDestroyDescriptor(psa);
}

UINT SafeArrayGetDim(SAFEARRAY* psa) {
  return psa ? psa->cDims : 0;
}

UINT SafeArrayGetElemsize(SAFEARRAY* psa) {
  return psa ? psa->cbElements : 0;
}

HRESULT SafeArrayGetLBound(SAFEARRAY* psa, UINT nDim, LONG* plLbound) {
  if (!psa || !plLbound) return E_INVALIDARG;
  if (nDim < 1 || nDim > psa->cDims) return DISP_E_BADINDEX;
  *plLbound = bound_of_dim(psa, nDim).lLbound;
  return S_OK;
}

HRESULT SafeArrayGetUBound(SAFEARRAY* psa, UINT nDim, LONG* plUbound) {
  if (!psa || !plUbound) return E_INVALIDARG;
  if (nDim < 1 || nDim > psa->cDims) return DISP_E_BADINDEX;
  const SAFEARRAYBOUND& b = bound_of_dim(psa, nDim);
  *plUbound = static_cast<LONG>(static_cast<int64_t>(b.lLbound) + b.cElements - 1);
  return S_OK;
}

HRESULT SafeArrayGetVartype(SAFEARRAY* psa, VARTYPE* pvt) {
  if (!psa || !pvt) return E_INVALIDARG;
  return element_vartype(psa, pvt);
}

HRESULT SafeArrayLock(SAFEARRAY* psa) {
  if (!psa) return E_INVALIDARG;
  if (psa->cLocks == 0xFFFF) return E_UNEXPECTED;
  ++psa->cLocks;
  return S_OK;
}

HRESULT SafeArrayUnlock(SAFEARRAY* psa) {
  if (!psa) return E_INVALIDARG;
  if (psa->cLocks == 0) return E_UNEXPECTED;
  --psa->cLocks;
  return S_OK;
}

HRESULT SafeArrayAccessData(SAFEARRAY* psa, void** ppvData) {
  if (!psa || !ppvData) return E_INVALIDARG;
  HRESULT hr = SafeArrayLock(psa);
  if (FAILED(hr)) return hr;
  *ppvData = psa->pvData;
  return S_OK;
}

HRESULT SafeArrayUnaccessData(SAFEARRAY* psa) {
  return SafeArrayUnlock(psa);
}

HRESULT SafeArrayPtrOfIndex(SAFEARRAY* psa, LONG* rgIndices, void** ppvData) {
  if (!psa || !rgIndices || !ppvData || !psa->pvData) return E_INVALIDARG;
  // rgIndices lists the first (fastest-varying) dimension first.
  size_t offset = 0;
  size_t stride = 1;
  for (UINT d = 1; d <= psa->cDims; ++d) {
    const SAFEARRAYBOUND& b = bound_of_dim(psa, d);
    const int64_t rel = static_cast<int64_t>(rgIndices[d - 1]) - b.lLbound;
    if (rel < 0 || rel >= static_cast<int64_t>(b.cElements)) return DISP_E_BADINDEX;
    offset += static_cast<size_t>(rel) * stride;
    stride *= b.cElements;
  }
  *ppvData = static_cast<unsigned char*>(psa->pvData) + offset * psa->cbElements;
  return S_OK;
}

HRESULT SafeArrayGetElement(SAFEARRAY* psa, LONG* rgIndices, void* pv) {
  void* p = nullptr;
  if (!pv) return E_INVALIDARG;
  HRESULT hr = SafeArrayPtrOfIndex(psa, rgIndices, &p);
  if (FAILED(hr)) return hr;
  VARTYPE vt = VT_EMPTY;
  element_vartype(psa, &vt);
  if (vt == VT_BSTR) {
    BSTR src = *static_cast<BSTR*>(p);
    *static_cast<BSTR*>(pv) =
        src ? SysAllocStringByteLen(reinterpret_cast<const char*>(src), SysStringByteLen(src))
            : nullptr;
    return S_OK;
  }
  if (vt == VT_VARIANT) {
    VariantInit(static_cast<VARIANT*>(pv));
    return VariantCopy(static_cast<VARIANT*>(pv), static_cast<VARIANT*>(p));
  }
  std::memcpy(pv, p, psa->cbElements);
  return S_OK;
}

HRESULT SafeArrayPutElement(SAFEARRAY* psa, LONG* rgIndices, void* pv) {
  void* p = nullptr;
  HRESULT hr = SafeArrayPtrOfIndex(psa, rgIndices, &p);
  if (FAILED(hr)) return hr;
  VARTYPE vt = VT_EMPTY;
  element_vartype(psa, &vt);
  if (vt == VT_BSTR) {
    // As oleaut32: pv is the BSTR itself (not its address), and a copy is stored.
    BSTR src = static_cast<BSTR>(pv);
    BSTR copy =
        src ? SysAllocStringByteLen(reinterpret_cast<const char*>(src), SysStringByteLen(src))
            : nullptr;
    if (src && !copy) return E_OUTOFMEMORY;
    SysFreeString(*static_cast<BSTR*>(p));
    *static_cast<BSTR*>(p) = copy;
    return S_OK;
  }
  if (!pv) return E_INVALIDARG;
  if (vt == VT_VARIANT) {
    VariantClear(static_cast<VARIANT*>(p));
    return VariantCopy(static_cast<VARIANT*>(p), static_cast<VARIANT*>(pv));
  }
  std::memcpy(p, pv, psa->cbElements);
  return S_OK;
}

BSTR SysAllocString(const OLECHAR* psz) {
  if (!psz) return nullptr;
  return SysAllocStringLen(psz, static_cast<UINT>(olestr_len(psz)));
}

BSTR SysAllocStringLen(const OLECHAR* strIn, UINT ui) {
  if (ui > 0x7FFFFFFFu / 2) return nullptr;
  return alloc_bstr_bytes(strIn, ui * 2);
}

BSTR SysAllocStringByteLen(const char* psz, UINT len) {
  if (len > 0x7FFFFFF0u) return nullptr;
  return alloc_bstr_bytes(psz, len);
}

int SysReAllocStringLen(BSTR* pbstr, const OLECHAR* psz, UINT len) {
  if (!pbstr) return 0;
  BSTR fresh = SysAllocStringLen(psz, len);
  if (!fresh) return 0;
  SysFreeString(*pbstr);
  *pbstr = fresh;
  return 1;
}

int SysReAllocString(BSTR* pbstr, const OLECHAR* psz) {
  if (!pbstr) return 0;
  if (!psz) return SysReAllocStringLen(pbstr, nullptr, 0);
  return SysReAllocStringLen(pbstr, psz, static_cast<UINT>(olestr_len(psz)));
}

UINT SysStringByteLen(BSTR bstr) {
  if (!bstr) return 0;
  std::uint32_t len = 0;
  std::memcpy(&len, bstr_block(bstr), 4);
  return len;
}

UINT SysStringLen(BSTR pbstr) {
  return SysStringByteLen(pbstr) / 2;
}

void SysFreeString(BSTR bstrString) {
  if (bstrString) std::free(bstr_block(bstrString));
}

void VariantInit(VARIANTARG* pvarg) {
  if (!pvarg) return;
  std::memset(pvarg, 0, sizeof(VARIANT));
  pvarg->vt = VT_EMPTY;
}

HRESULT VariantClear(VARIANTARG* pvarg) {
  if (!pvarg) return E_INVALIDARG;
  if (!(pvarg->vt & VT_BYREF)) {
    if (pvarg->vt & VT_ARRAY) {
      HRESULT hr = SafeArrayDestroy(pvarg->parray);
      if (FAILED(hr)) return hr;
    } else if (pvarg->vt == VT_BSTR) {
      SysFreeString(pvarg->bstrVal);
    }
  }
  VariantInit(pvarg);
  return S_OK;
}

HRESULT VariantCopy(VARIANTARG* pvargDest, const VARIANTARG* pvargSrc) {
  if (!pvargDest || !pvargSrc) return E_INVALIDARG;
  if (pvargDest == pvargSrc) return S_OK;
  HRESULT hr = VariantClear(pvargDest);
  if (FAILED(hr)) return hr;
  if (pvargSrc->vt & VT_ARRAY && !(pvargSrc->vt & VT_BYREF)) {
    // Deep copy of a one- or more-dimensional array of plain values, BSTRs or VARIANTs.
    SAFEARRAY* src = pvargSrc->parray;
    if (src) {
      VARTYPE vt = VT_EMPTY;
      if (FAILED(element_vartype(src, &vt))) return DISP_E_BADVARTYPE;
      SAFEARRAY* dst = nullptr;
      if (FAILED(SafeArrayAllocDescriptorEx(vt, src->cDims, &dst))) return E_OUTOFMEMORY;
      for (USHORT d = 0; d < src->cDims; ++d) dst->rgsabound[d] = src->rgsabound[d];
      if (FAILED(SafeArrayAllocData(dst))) {
        SafeArrayDestroyDescriptor(dst);
        return E_OUTOFMEMORY;
      }
      size_t n = 0;
      total_elements(src, &n);
      auto* s = static_cast<unsigned char*>(src->pvData);
      auto* t = static_cast<unsigned char*>(dst->pvData);
      for (size_t i = 0; i < n; ++i) {
        if (vt == VT_BSTR) {
          BSTR b = *reinterpret_cast<BSTR*>(s + i * 8);
          *reinterpret_cast<BSTR*>(t + i * 8) =
              b ? SysAllocStringByteLen(reinterpret_cast<const char*>(b), SysStringByteLen(b))
                : nullptr;
        } else if (vt == VT_VARIANT) {
          VariantInit(reinterpret_cast<VARIANT*>(t + i * sizeof(VARIANT)));
          VariantCopy(reinterpret_cast<VARIANT*>(t + i * sizeof(VARIANT)),
                      reinterpret_cast<VARIANT*>(s + i * sizeof(VARIANT)));
        } else {
          std::memcpy(t + i * src->cbElements, s + i * src->cbElements, src->cbElements);
        }
      }
      *pvargDest = *pvargSrc;
      pvargDest->parray = dst;
    } else {
      *pvargDest = *pvargSrc;
    }
    return S_OK;
  }
  *pvargDest = *pvargSrc;
  if (pvargSrc->vt == VT_BSTR && pvargSrc->bstrVal) {
    pvargDest->bstrVal = SysAllocStringByteLen(reinterpret_cast<const char*>(pvargSrc->bstrVal),
                                               SysStringByteLen(pvargSrc->bstrVal));
    if (!pvargDest->bstrVal) {
      VariantInit(pvargDest);
      return E_OUTOFMEMORY;
    }
  }
  return S_OK;
}

// Conversion to VT_BSTR (the only target the library needs) and to VT_R8.
// Numbers become their shortest text with up to 15 significant digits, as the Windows
// conversion does in an invariant locale: 1 -> "1", 2.5 -> "2.5", 1e20 -> "1E+20".
HRESULT VariantChangeType(VARIANTARG* pvargDest, const VARIANTARG* pvarSrc, WORD /*wFlags*/,
                          VARTYPE vt) {
  if (!pvargDest || !pvarSrc) return E_INVALIDARG;
  VARIANT src;
  VariantInit(&src);
  HRESULT hr = VariantCopy(&src, pvarSrc);
  if (FAILED(hr)) return hr;
  if (src.vt == vt) {
    VariantClear(pvargDest);
    *pvargDest = src;
    return S_OK;
  }
  double num = 0.0;
  bool integral = false;
  bool have_num = true;
  switch (src.vt) {
    case VT_EMPTY:
      num = 0;
      integral = true;
      break;
    case VT_I2:
      num = src.iVal;
      integral = true;
      break;
    case VT_I4:
    case VT_INT:
      num = src.lVal;
      integral = true;
      break;
    case VT_I8:
      num = static_cast<double>(src.llVal);
      integral = true;
      break;
    case VT_UI1:
      num = src.bVal;
      integral = true;
      break;
    case VT_R4:
      num = src.fltVal;
      break;
    case VT_R8:
      num = src.dblVal;
      break;
    case VT_BOOL:
      num = src.boolVal ? -1 : 0;
      integral = true;
      break;
    default:
      have_num = false;
  }
  if (vt == VT_BSTR) {
    std::string text;
    if (src.vt == VT_BOOL) {
      text = src.boolVal ? "True" : "False";
    } else if (src.vt == VT_EMPTY) {
      text.clear();
    } else if (have_num) {
      char buf[64];
      if (integral && src.vt == VT_I8) {
        std::snprintf(buf, sizeof buf, "%lld", static_cast<long long>(src.llVal));
      } else {
        std::snprintf(buf, sizeof buf, "%.15G", num);
      }
      text = buf;
    } else {
      VariantClear(&src);
      return DISP_E_TYPEMISMATCH;
    }
    std::u16string wide(text.begin(), text.end());
    BSTR b = SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
    VariantClear(&src);
    if (!b) return E_OUTOFMEMORY;
    VariantClear(pvargDest);
    pvargDest->vt = VT_BSTR;
    pvargDest->bstrVal = b;
    return S_OK;
  }
  if (vt == VT_R8 && have_num) {
    VariantClear(&src);
    VariantClear(pvargDest);
    pvargDest->vt = VT_R8;
    pvargDest->dblVal = num;
    return S_OK;
  }
  VariantClear(&src);
  return DISP_E_TYPEMISMATCH;
}

}  // extern "C"
