/* OLE Automation boundary types: SAFEARRAY, BSTR, VARIANT.
 *
 * On Windows these are the system's own (<oleauto.h>, oleaut32.dll). Elsewhere the library
 * ships an ABI-compatible implementation (library velkor_oleaut) with the same struct layouts
 * and sizes as on Windows x64:
 *   SAFEARRAYBOUND  8 bytes  { cElements, lLbound }
 *   SAFEARRAY      32 bytes  { cDims@0, fFeatures@2, cbElements@4, cLocks@8, pvData@16,
 *                              rgsabound@24 } (bounds stored last dimension first, as Windows
 *                              does; data column-major: the first index varies fastest)
 *   VARIANT        24 bytes  { vt@0, three reserved WORDs, 16-byte value union@8 }
 *   BSTR           pointer to UTF-16 code units, preceded by a 4-byte byte-length prefix and
 *                  followed by a 2-byte terminator.
 * Only the operations the library and its tests use are provided.
 */
#ifndef VELKOR_OLEAUTO_H
#define VELKOR_OLEAUTO_H

#if defined(_WIN32)
#include <windows.h>
#include <oleauto.h>
#else

#include <stddef.h>
#include <stdint.h>

#if defined(VELKOR_OLEAUT_BUILDING)
#define VELKOR_OLEAUT_API __attribute__((visibility("default")))
#else
#define VELKOR_OLEAUT_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef int32_t HRESULT;
typedef uint16_t VARTYPE;
typedef uint16_t USHORT;
typedef uint16_t WORD;
typedef uint32_t ULONG;
typedef int32_t LONG;
typedef uint32_t UINT;
typedef int16_t SHORT;
typedef int16_t VARIANT_BOOL;
typedef uint32_t LCID;
typedef uint8_t BYTE;
typedef char16_t OLECHAR;
typedef OLECHAR* BSTR;
typedef const OLECHAR* LPCOLESTR;
typedef void* PVOID;

#define S_OK ((HRESULT)0)
#define E_INVALIDARG ((HRESULT)0x80070057L)
#define E_OUTOFMEMORY ((HRESULT)0x8007000EL)
#define E_UNEXPECTED ((HRESULT)0x8000FFFFL)
#define DISP_E_BADINDEX ((HRESULT)0x8002000BL)
#define DISP_E_TYPEMISMATCH ((HRESULT)0x80020005L)
#define DISP_E_ARRAYISLOCKED ((HRESULT)0x8002000DL)
#define DISP_E_BADVARTYPE ((HRESULT)0x80020008L)
#define SUCCEEDED(hr) (((HRESULT)(hr)) >= 0)
#define FAILED(hr) (((HRESULT)(hr)) < 0)

enum VARENUM {
  VT_EMPTY = 0,
  VT_NULL = 1,
  VT_I2 = 2,
  VT_I4 = 3,
  VT_R4 = 4,
  VT_R8 = 5,
  VT_CY = 6,
  VT_DATE = 7,
  VT_BSTR = 8,
  VT_DISPATCH = 9,
  VT_ERROR = 10,
  VT_BOOL = 11,
  VT_VARIANT = 12,
  VT_UNKNOWN = 13,
  VT_DECIMAL = 14,
  VT_I1 = 16,
  VT_UI1 = 17,
  VT_UI2 = 18,
  VT_UI4 = 19,
  VT_I8 = 20,
  VT_UI8 = 21,
  VT_INT = 22,
  VT_UINT = 23,
  VT_RECORD = 36,
  VT_ARRAY = 0x2000,
  VT_BYREF = 0x4000
};

#define FADF_AUTO 0x0001
#define FADF_STATIC 0x0002
#define FADF_EMBEDDED 0x0004
#define FADF_FIXEDSIZE 0x0010
#define FADF_RECORD 0x0020
#define FADF_HAVEIID 0x0040
#define FADF_HAVEVARTYPE 0x0080
#define FADF_BSTR 0x0100
#define FADF_UNKNOWN 0x0200
#define FADF_DISPATCH 0x0400
#define FADF_VARIANT 0x0800

#define VARIANT_TRUE ((VARIANT_BOOL)-1)
#define VARIANT_FALSE ((VARIANT_BOOL)0)

typedef struct tagSAFEARRAYBOUND {
  ULONG cElements;
  LONG lLbound;
} SAFEARRAYBOUND;

typedef struct tagSAFEARRAY {
  USHORT cDims;
  USHORT fFeatures;
  ULONG cbElements;
  ULONG cLocks;
  PVOID pvData;
  SAFEARRAYBOUND rgsabound[1];
} SAFEARRAY;

typedef struct tagVARIANT {
  VARTYPE vt;
  WORD wReserved1;
  WORD wReserved2;
  WORD wReserved3;
  union {
    int64_t llVal;
    LONG lVal;
    BYTE bVal;
    SHORT iVal;
    float fltVal;
    double dblVal;
    VARIANT_BOOL boolVal;
    double date;
    BSTR bstrVal;
    SAFEARRAY* parray;
    double* pdblVal;
    BSTR* pbstrVal;
    struct tagVARIANT* pvarVal;
    void* byref;
    struct {
      void* pvRecord;
      void* pRecInfo;
    } brecVal;
  };
} VARIANT, VARIANTARG;

VELKOR_OLEAUT_API HRESULT SafeArrayAllocDescriptor(UINT cDims, SAFEARRAY** ppsaOut);
VELKOR_OLEAUT_API HRESULT SafeArrayAllocDescriptorEx(VARTYPE vt, UINT cDims, SAFEARRAY** ppsaOut);
VELKOR_OLEAUT_API HRESULT SafeArrayAllocData(SAFEARRAY* psa);
VELKOR_OLEAUT_API SAFEARRAY* SafeArrayCreate(VARTYPE vt, UINT cDims, SAFEARRAYBOUND* rgsabound);
VELKOR_OLEAUT_API SAFEARRAY* SafeArrayCreateVector(VARTYPE vt, LONG lLbound, ULONG cElements);
VELKOR_OLEAUT_API HRESULT SafeArrayDestroy(SAFEARRAY* psa);
VELKOR_OLEAUT_API HRESULT SafeArrayDestroyData(SAFEARRAY* psa);
VELKOR_OLEAUT_API HRESULT SafeArrayDestroyDescriptor(SAFEARRAY* psa);
VELKOR_OLEAUT_API UINT SafeArrayGetDim(SAFEARRAY* psa);
VELKOR_OLEAUT_API UINT SafeArrayGetElemsize(SAFEARRAY* psa);
VELKOR_OLEAUT_API HRESULT SafeArrayGetLBound(SAFEARRAY* psa, UINT nDim, LONG* plLbound);
VELKOR_OLEAUT_API HRESULT SafeArrayGetUBound(SAFEARRAY* psa, UINT nDim, LONG* plUbound);
VELKOR_OLEAUT_API HRESULT SafeArrayGetVartype(SAFEARRAY* psa, VARTYPE* pvt);
VELKOR_OLEAUT_API HRESULT SafeArrayLock(SAFEARRAY* psa);
VELKOR_OLEAUT_API HRESULT SafeArrayUnlock(SAFEARRAY* psa);
VELKOR_OLEAUT_API HRESULT SafeArrayAccessData(SAFEARRAY* psa, void** ppvData);
VELKOR_OLEAUT_API HRESULT SafeArrayUnaccessData(SAFEARRAY* psa);
VELKOR_OLEAUT_API HRESULT SafeArrayPtrOfIndex(SAFEARRAY* psa, LONG* rgIndices, void** ppvData);
VELKOR_OLEAUT_API HRESULT SafeArrayGetElement(SAFEARRAY* psa, LONG* rgIndices, void* pv);
VELKOR_OLEAUT_API HRESULT SafeArrayPutElement(SAFEARRAY* psa, LONG* rgIndices, void* pv);

VELKOR_OLEAUT_API BSTR SysAllocString(const OLECHAR* psz);
VELKOR_OLEAUT_API BSTR SysAllocStringLen(const OLECHAR* strIn, UINT ui);
VELKOR_OLEAUT_API BSTR SysAllocStringByteLen(const char* psz, UINT len);
VELKOR_OLEAUT_API int SysReAllocString(BSTR* pbstr, const OLECHAR* psz);
VELKOR_OLEAUT_API int SysReAllocStringLen(BSTR* pbstr, const OLECHAR* psz, UINT len);
VELKOR_OLEAUT_API UINT SysStringLen(BSTR pbstr);
VELKOR_OLEAUT_API UINT SysStringByteLen(BSTR bstr);
VELKOR_OLEAUT_API void SysFreeString(BSTR bstrString);

VELKOR_OLEAUT_API void VariantInit(VARIANTARG* pvarg);
VELKOR_OLEAUT_API HRESULT VariantClear(VARIANTARG* pvarg);
VELKOR_OLEAUT_API HRESULT VariantCopy(VARIANTARG* pvargDest, const VARIANTARG* pvargSrc);
VELKOR_OLEAUT_API HRESULT VariantChangeType(VARIANTARG* pvargDest, const VARIANTARG* pvarSrc,
                                            WORD wFlags, VARTYPE vt);

#ifdef __cplusplus
}
#endif

#endif /* !_WIN32 */

#ifdef __cplusplus
#include <cstring>
#include <string>

namespace velkor {

/* BSTR text as std::u16string and back. OLECHAR is wchar_t (16 bits) on Windows and char16_t
 * elsewhere: the UTF-16 code units are copied, never reinterpreted through the other type. */

/* The code units of b (SysStringLen of them); a null BSTR is the empty string. */
inline std::u16string FromBSTR(const OLECHAR* b) {
  if (b == nullptr) return std::u16string();
  const UINT n = SysStringLen(const_cast<BSTR>(b));
  std::u16string s(n, u'\0');
  if (n != 0) std::memcpy(s.data(), b, n * sizeof(OLECHAR));
  return s;
}

/* A new BSTR holding the code units of s; the caller frees it with SysFreeString. Null when the
 * allocation fails. */
inline BSTR ToBSTR(const std::u16string& s) {
  static_assert(sizeof(OLECHAR) == sizeof(char16_t), "OLECHAR must be a UTF-16 code unit");
  BSTR b = SysAllocStringLen(nullptr, static_cast<UINT>(s.size()));
  if (b != nullptr && !s.empty()) std::memcpy(b, s.data(), s.size() * sizeof(char16_t));
  return b;
}

}  // namespace velkor
#endif /* __cplusplus */

#endif /* VELKOR_OLEAUTO_H */
