#include "windows/ole.h"

#include "velkor/oleauto.h"

namespace wintest::ole {
namespace {

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

}  // namespace

SAFEARRAY* doubles(const std::vector<double>& v) {
  return vector_of(VT_R8, v);
}
SAFEARRAY* longs(const std::vector<std::int32_t>& v) {
  return vector_of(VT_I4, v);
}
SAFEARRAY* integers(const std::vector<std::int16_t>& v) {
  return vector_of(VT_I2, v);
}

SAFEARRAY* strings(const std::vector<std::u16string>& v) {
  SAFEARRAY* a = SafeArrayCreateVector(VT_BSTR, 0, static_cast<ULONG>(v.size()));
  for (std::size_t i = 0; i < v.size(); ++i) {
    LONG idx = static_cast<LONG>(i);
    Bstr b(v[i]);
    SafeArrayPutElement(a, &idx, b.b);  // copies the string
  }
  return a;
}

SAFEARRAY* variants(const std::vector<std::pair<bool, std::u16string>>& text_or_number,
                    const std::vector<double>& numbers) {
  SAFEARRAY* a = SafeArrayCreateVector(VT_VARIANT, 1, static_cast<ULONG>(numbers.size()));
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    LONG idx = static_cast<LONG>(i) + 1;
    const bool is_text = i < text_or_number.size() && text_or_number[i].first;
    if (is_text) {
      Variant t(text_or_number[i].second);
      SafeArrayPutElement(a, &idx, &t.v);
    } else {
      Variant d(numbers[i]);
      SafeArrayPutElement(a, &idx, &d.v);
    }
  }
  return a;
}

Bstr::Bstr(const std::u16string& s) : b(velkor::ToBSTR(s)) {}

Variant::Variant(const std::u16string& s) : Variant() {
  v.vt = VT_BSTR;
  v.bstrVal = velkor::ToBSTR(s);
}

RecordArray::RecordArray(const Columns& cols) {
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

RecordArray::~RecordArray() {
  auto* base = static_cast<unsigned char*>(psa->pvData);
  for (ULONG i = 0; i < psa->rgsabound[0].cElements; ++i) {
    VariantClear(reinterpret_cast<VARIANT*>(base + 40 * i));
    SysFreeString(*reinterpret_cast<BSTR*>(base + 40 * i + 24));
  }
  SafeArrayDestroy(psa);
}

}  // namespace wintest::ole
