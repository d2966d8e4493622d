// The OLE Automation stand-in: layouts as on Windows x64 and the semantics the library relies on.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

#include "velkor/oleauto.h"

TEST(OleLayout, StructSizesMatchWindowsX64) {
  EXPECT_EQ(sizeof(SAFEARRAY), 32u);
  EXPECT_EQ(offsetof(SAFEARRAY, pvData), 16u);
  EXPECT_EQ(offsetof(SAFEARRAY, rgsabound), 24u);
  EXPECT_EQ(sizeof(SAFEARRAYBOUND), 8u);
  EXPECT_EQ(sizeof(VARIANT), 24u);
  EXPECT_EQ(offsetof(VARIANT, bstrVal), 8u);
  EXPECT_EQ(sizeof(OLECHAR), 2u);
}

TEST(Bstr, LengthPrefixAndEmbeddedZeros) {
  const char16_t text[] = {u'a', 0, u'b'};
  BSTR b = SysAllocStringLen(text, 3);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(SysStringLen(b), 3u);
  EXPECT_EQ(SysStringByteLen(b), 6u);
  std::uint32_t prefix = 0;
  std::memcpy(&prefix, reinterpret_cast<char*>(b) - 4, 4);
  EXPECT_EQ(prefix, 6u);  // byte length, not character count
  EXPECT_EQ(b[3], 0);     // terminated
  EXPECT_EQ(SysReAllocString(&b, u"longer text"), 1);
  EXPECT_EQ(SysStringLen(b), 11u);
  SysFreeString(b);
  BSTR odd = SysAllocStringByteLen("abc", 3);  // odd byte length is allowed
  EXPECT_EQ(SysStringByteLen(odd), 3u);
  EXPECT_EQ(SysStringLen(odd), 1u);
  SysFreeString(odd);
  EXPECT_EQ(SysStringLen(nullptr), 0u);
  SysFreeString(nullptr);
}

TEST(SafeArray, BoundsAreStoredLastDimensionFirstAndFirstIndexVariesFastest) {
  SAFEARRAYBOUND b[2] = {{2, 1}, {3, 0}};  // 2 rows (from 1) x 3 cols (from 0)
  SAFEARRAY* a = SafeArrayCreate(VT_R8, 2, b);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(a->rgsabound[0].cElements, 3u);  // last dimension first
  LONG lo = 0, hi = 0;
  SafeArrayGetLBound(a, 1, &lo);
  SafeArrayGetUBound(a, 2, &hi);
  EXPECT_EQ(lo, 1);
  EXPECT_EQ(hi, 2);
  LONG idx[2] = {2, 0};
  double v = 5;
  EXPECT_EQ(SafeArrayPutElement(a, idx, &v), S_OK);
  EXPECT_EQ(static_cast<double*>(a->pvData)[1], 5.0);  // (2, 0) is the second element
  LONG bad[2] = {3, 0};
  EXPECT_EQ(SafeArrayPutElement(a, bad, &v), DISP_E_BADINDEX);
  VARTYPE vt = 0;
  SafeArrayGetVartype(a, &vt);
  EXPECT_EQ(vt, VT_R8);
  EXPECT_EQ(SafeArrayDestroy(a), S_OK);
}

TEST(SafeArray, LockedArraysCannotBeDestroyed) {
  SAFEARRAY* a = SafeArrayCreateVector(VT_I4, 0, 4);
  void* p = nullptr;
  ASSERT_EQ(SafeArrayAccessData(a, &p), S_OK);
  EXPECT_EQ(SafeArrayDestroy(a), DISP_E_ARRAYISLOCKED);
  SafeArrayUnaccessData(a);
  EXPECT_EQ(SafeArrayDestroy(a), S_OK);
}

TEST(SafeArray, StringArraysOwnCopies) {
  SAFEARRAY* a = SafeArrayCreateVector(VT_BSTR, 0, 2);
  BSTR s = SysAllocString(u"pos");
  LONG i = 1;
  SafeArrayPutElement(a, &i, s);
  SysFreeString(s);  // the array holds its own copy
  BSTR back = nullptr;
  SafeArrayGetElement(a, &i, &back);
  EXPECT_EQ(std::u16string(back, SysStringLen(back)), u"pos");
  SysFreeString(back);
  SafeArrayDestroy(a);  // frees the stored strings (checked by the sanitizer build)
}

TEST(Variant, NumbersConvertToTheirTextForm) {
  auto text = [](VARIANT v) {
    VARIANT out;
    VariantInit(&out);
    EXPECT_EQ(VariantChangeType(&out, &v, 0, VT_BSTR), S_OK);
    std::u16string s(out.bstrVal, SysStringLen(out.bstrVal));
    VariantClear(&out);
    return s;
  };
  VARIANT v;
  VariantInit(&v);
  v.vt = VT_R8;
  v.dblVal = 1.0;
  EXPECT_EQ(text(v), u"1");
  v.dblVal = 2.5;
  EXPECT_EQ(text(v), u"2.5");
  v.dblVal = 0.1;
  EXPECT_EQ(text(v), u"0.1");
  v.vt = VT_I4;
  v.lVal = -12;
  EXPECT_EQ(text(v), u"-12");
  v.vt = VT_BOOL;
  v.boolVal = VARIANT_TRUE;
  EXPECT_EQ(text(v), u"True");
  VARIANT s;
  VariantInit(&s);
  s.vt = VT_BSTR;
  s.bstrVal = SysAllocString(u"yes");
  EXPECT_EQ(text(s), u"yes");
  VARIANT copy;
  VariantInit(&copy);
  VariantCopy(&copy, &s);
  EXPECT_NE(copy.bstrVal, s.bstrVal);
  VariantClear(&copy);
  VariantClear(&s);
  EXPECT_EQ(s.vt, VT_EMPTY);
}
