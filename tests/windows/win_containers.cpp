// Containers: the exported matrix3D members and LoadErrorInfo_ST, reached by GetProcAddress of
// their mangled names, as a caller without the import library reaches them.
//
// MinGW follows the Itanium C++ ABI: a constructor or destructor is a function whose first
// argument is the object's address; a member function is called through a pointer to member
// whose representation is {function address, this adjustment 0}, which lets the compiler apply
// the member calling convention (including a std::u16string returned by value). The object's
// storage and its data members (nSlices, the slices' names and roles) come from
// velkor/containers.h, the layout the DLL was built with.
#include <cstring>
#include <new>

#include "velkor/containers.h"
#include "velkor/objects.h"
#include "velkor/status.h"
#include "windows/harness.h"
#include "windows/ole.h"

namespace {

using wintest::Library;
using namespace wintest::ole;

using M3D = matrix3D<cST_MVect<double>>;
using M3I = matrix3D<cST_MVect<int>>;
using M3S = matrix3D<cST_MVect<std::u16string>>;
using M3M = matrix3D<matrix<double>>;
using BaseD = matrix3DBase<cST_MVect<double>>;
using BaseI = matrix3DBase<cST_MVect<int>>;
using BaseS = matrix3DBase<cST_MVect<std::u16string>>;
using BaseM = matrix3DBase<matrix<double>>;
using Dtor = void (*)(void*);
using CtorRecords = void (*)(void*, SAFEARRAY*, int);

// Mangled names of the exported members (GCC, Itanium ABI): class prefixes, then the member.
#define M3D_D "_ZN8matrix3DI9cST_MVectIdEE"
#define BASE_D "_ZN12matrix3DBaseI9cST_MVectIdEE"
#define VS "9cST_MVectINSt7__cxx1112basic_stringIDsSt11char_traitsIDsESaIDsEEEEE"

template <class PMF>
PMF member(Library& lib, const char* mangled) {
  struct {
    void* ptr;
    std::ptrdiff_t adj;
  } rep{lib.symbol(mangled), 0};
  static_assert(sizeof(PMF) == sizeof(rep), "Itanium pointer to member");
  PMF pmf;
  std::memcpy(static_cast<void*>(&pmf), &rep, sizeof pmf);
  return pmf;
}

// One object built by an exported constructor and destroyed by the exported destructor.
template <class T>
struct Object {
  alignas(T) unsigned char storage[sizeof(T)];
  Dtor dtor;
  template <class Ctor, class... A>
  Object(Ctor ctor, Dtor d, A... args) : dtor(d) {
    ctor(storage, args...);
  }
  ~Object() { dtor(storage); }
  T* operator->() { return std::launder(reinterpret_cast<T*>(storage)); }
  T& operator*() { return *operator->(); }
};

}  // namespace

VELKOR_WIN_FAMILY(containers) {
  auto vbget = member<double (BaseD::*)(int, int)>(lib, BASE_D "5vbgetEii");
  auto vbset = member<void (BaseD::*)(int, int, double)>(lib, BASE_D "5vbsetEiid");
  auto getElement = member<double (BaseD::*)(int, int)>(lib, BASE_D "10getElementEii");
  auto setElement = member<void (BaseD::*)(int, int, double)>(lib, BASE_D "10setElementEiid");
  auto slice = member<cST_Column<double>& (BaseD::*)(int)>(lib, BASE_D "clEi");
  auto element = member<double& (M3D::*)(int, int, int)>(lib, M3D_D "clEiii");
  auto ctor_records = lib.fn<CtorRecords>(M3D_D "C1EP12tagSAFEARRAYi");
  auto ctor_count = lib.fn<void (*)(void*, int)>(M3D_D "C1Ei");
  auto ctor_sized = lib.fn<void (*)(void*, int, int, int, double)>(M3D_D "C1Eiiid");
  auto dtor = lib.fn<Dtor>(M3D_D "D1Ev");
  if (!vbget || !vbset || !getElement || !setElement || !slice || !element || !ctor_records ||
      !ctor_count || !ctor_sized || !dtor)
    return;

  // A record array of two Double columns: one slice per column, names and roles kept, the
  // spare element absorbs out-of-range access and remembers the last store.
  {
    RecordArray recs(real_columns({{u"time", {5, 8, 12}}, {u"status", {1, 0}}}));
    Object<M3D> m(ctor_records, dtor, recs.psa, 0);
    BaseD& b = *m;
    WCHECK_EQ(m->nSlices, 2);
    WCHECK((b.*slice)(1).name == u"time");
    WCHECK_EQ((b.*slice)(2).role, 10);
    WCHECK_EQ((b.*vbget)(1, 3), 12.0);
    WCHECK_EQ((b.*vbget)(1, 1), (b.*getElement)(0, 0));
    WCHECK_EQ((b.*vbget)(1, 4), -1.0);  // never stored: the initial spare value
    (b.*vbset)(1, 99, 77.0);
    WCHECK_EQ((b.*vbget)(1, 99), 77.0);
    WCHECK_EQ((b.*getElement)(0, 98), 77.0);
    WCHECK_EQ((b.*vbget)(1, 2), 8.0);  // no element changed
    (b.*setElement)(1, 0, 7.0);
    WCHECK_EQ((b.*vbget)(2, 1), 7.0);
    WCHECK_EQ(((*m).*element)(1, 1, 2), 8.0);
    WCHECK_EQ(Object<M3D>(ctor_records, dtor, recs.psa, 1)->nSlices, 1);
  }

  // Null, plain and empty arrays give empty objects; slot-only objects absorb access.
  {
    WCHECK_EQ(Object<M3D>(ctor_records, dtor, nullptr, 0)->nSlices, 0);
    ArrayGuard plain{doubles({1, 2})};  // 8-byte elements, not records
    WCHECK_EQ(Object<M3D>(ctor_records, dtor, plain.psa, 0)->nSlices, 0);
    Object<M3D> slots(ctor_count, dtor, 3);
    WCHECK_EQ(slots->nSlices, 3);
    WCHECK_EQ(((*slots).*vbget)(1, 1), -1.0);
    ((*slots).*vbset)(2, 1, 4.0);
    WCHECK_EQ(((*slots).*vbget)(9, 1), -1.0);
  }

  // Sized constructor: slices of entries of vectors set to the initial value.
  {
    Object<M3D> m(ctor_sized, dtor, 2, 3, 4, 0.25);
    WCHECK_EQ(m->nSlices, 2);
    WCHECK_EQ(((*m).*slice)(2).entries.size(), 3u);
    WCHECK_EQ(((*m).*element)(2, 3, 4), 0.25);
    ((*m).*element)(2, 3, 4) = 1.0;
    WCHECK_EQ(((*m).*element)(2, 3, 4), 1.0);
    WCHECK_EQ(((*m).*element)(1, 1, 5), -1.0);  // the entry's spare element
  }

  // String and integer columns; numeric text read as doubles, other text missing.
  {
    auto ctor_s = lib.fn<CtorRecords>("_ZN8matrix3DI" VS "C1EP12tagSAFEARRAYi");
    auto dtor_s = lib.fn<Dtor>("_ZN8matrix3DI" VS "D1Ev");
    auto vbget_s =
        member<std::u16string (BaseS::*)(int, int)>(lib, "_ZN12matrix3DBaseI" VS "5vbgetEii");
    RecordArray recs({{u"label", {VT_BSTR, strings({u"pos", u"n\u00e9g"})}}});
    if (ctor_s && dtor_s && vbget_s) {
      Object<M3S> s(ctor_s, dtor_s, recs.psa, 0);
      WCHECK_EQ(s->nSlices, 1);
      WCHECK_EQ(((*s).*vbget_s)(1, 1), std::u16string(u"pos"));
      WCHECK_EQ(((*s).*vbget_s)(1, 2), std::u16string(u"n\u00e9g"));  // UTF-16 kept
      WCHECK_EQ(((*s).*vbget_s)(1, 3), std::u16string());
    }
    auto ctor_i = lib.fn<CtorRecords>("_ZN8matrix3DI9cST_MVectIiEEC1EP12tagSAFEARRAYi");
    auto dtor_i = lib.fn<Dtor>("_ZN8matrix3DI9cST_MVectIiEED1Ev");
    auto vbget_i =
        member<int (BaseI::*)(int, int)>(lib, "_ZN12matrix3DBaseI9cST_MVectIiEE5vbgetEii");
    RecordArray nums({{u"n", {VT_R8, doubles({3.0, -2.0, 1e12})}},
                      {u"k", {VT_I2, integers({4, -5})}},
                      {u"l", {VT_I4, longs({70000})}}});
    if (ctor_i && dtor_i && vbget_i) {
      Object<M3I> i(ctor_i, dtor_i, nums.psa, 0);
      WCHECK_EQ(((*i).*vbget_i)(1, 1), 3);
      WCHECK_EQ(((*i).*vbget_i)(1, 2), -2);
      WCHECK_EQ(((*i).*vbget_i)(1, 3), 0);  // not representable as a 32-bit integer
      WCHECK_EQ(((*i).*vbget_i)(2, 2), -5);
      WCHECK_EQ(((*i).*vbget_i)(3, 1), 70000);
    }
    RecordArray txt(
        {{u"x", {VT_BSTR, strings({u"2.5", u"abc"})}},
         {u"v",
          {VT_VARIANT, variants({{false, u""}, {true, u"1.25"}, {true, u"?"}}, {4.5, 0, 0})}}});
    Object<M3D> d(ctor_records, dtor, txt.psa, 0);
    WCHECK_EQ(((*d).*vbget)(1, 1), 2.5);
    WCHECK_EQ(((*d).*vbget)(1, 2), VELKOR_MISSING);
    WCHECK_EQ(((*d).*vbget)(2, 1), 4.5);
    WCHECK_EQ(((*d).*vbget)(2, 2), 1.25);
    WCHECK_EQ(((*d).*vbget)(2, 3), VELKOR_MISSING);
  }

  // A three-dimensional Double array: dimension 1 the slices, 2 the rows, 3 the columns.
  {
    auto ctor_cube =
        lib.fn<void (*)(void*, SAFEARRAY*)>("_ZN8matrix3DI6matrixIdEEC1EP12tagSAFEARRAY");
    auto dtor_cube = lib.fn<Dtor>("_ZN8matrix3DI6matrixIdEED1Ev");
    auto update =
        member<void (M3M::*)(SAFEARRAY*)>(lib, "_ZN8matrix3DI6matrixIdEE6UpdateEP12tagSAFEARRAY");
    auto vbget_m =
        member<double (BaseM::*)(int, int)>(lib, "_ZN12matrix3DBaseI6matrixIdEE5vbgetEii");
    if (ctor_cube && dtor_cube && update && vbget_m) {
      ArrayGuard cube1{
          cube(2, 3, 4, [](LONG k, LONG i, LONG j) { return 100.0 * k + 10.0 * i + j; })};
      Object<M3M> m(ctor_cube, dtor_cube, cube1.psa);
      WCHECK_EQ(m->nSlices, 2);
      matrix<double>& s2 = *m->slices[1];
      WCHECK_EQ(s2.rows, 3u);
      WCHECK_EQ(s2.cols, 4u);
      WCHECK_EQ(s2.data[3 * 3 + 2], 234.0);  // row 3, column 4 of slice 2
      WCHECK_EQ(((*m).*vbget_m)(1, 2), 121.0);
      WCHECK_EQ(((*m).*vbget_m)(1, 13), -1.0);
      ArrayGuard cube2{cube(2, 3, 4, [](LONG, LONG, LONG) { return 1.5; })};
      ((*m).*update)(cube2.psa);
      WCHECK_EQ(s2.data[11], 1.5);
      ArrayGuard other{cube(1, 3, 4, [](LONG, LONG, LONG) { return 9.0; })};
      ((*m).*update)(other.psa);  // another shape: nothing changes
      WCHECK_EQ(m->slices[0]->data[0], 1.5);
    }
  }

  // The error record of the object interface, found by its demangled name.
  if (auto load = VELKOR_CPP_PROC(lib, LoadErrorInfo_ST)) {
    ErrorInfo info;
    load(u"NoEvent", u"No event in the data", u"Kaplan-Meier", VELKOR_W_NO_EVENT, 3, 1, 0,
         u"group 2", 0, 0, -1, u"", info);
    WCHECK(info.key == u"NoEvent");
    WCHECK(info.message == u"No event in the data: group 2");
    WCHECK_EQ(info.status, VELKOR_W_NO_EVENT);
    WCHECK_EQ(info.row, 3);
    WCHECK_EQ(info.isWarning, -1);
  }
}
