// The check harness of the Windows test program (velkor_windows_tests.exe).
//
// The program loads VELKORLI1M.dll as the spreadsheet front end does (LoadLibrary, then
// GetProcAddress for every function it calls) and builds its OLE Automation arguments with the
// system's oleaut32. One file per analysis family (win_<family>.cpp) registers its checks with
// VELKOR_WIN_FAMILY(family) { auto f = VELKOR_PROC(lib, Cpp_ComputeROC); ... WCHECK_EQ(...); };
// main() runs the families in name order and prints "N passed, N failed".
#pragma once

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "velkor/status.h"

namespace wintest {

// ---- checks -----------------------------------------------------------------------------------
bool check(bool ok, const std::string& what, const char* file, int line);
// |got - want| <= rel * max(1, |want|); both missing markers (or both NaN) also pass.
bool check_near(double got, double want, double rel, const std::string& what, const char* file,
                int line);
int passed();
int failed();

#define WCHECK(cond) ::wintest::check(static_cast<bool>(cond), #cond, __FILE__, __LINE__)
#define WCHECK_EQ(got, want) \
  ::wintest::check_eq((got), (want), #got " == " #want, __FILE__, __LINE__)
#define WCHECK_NEAR(got, want, rel) \
  ::wintest::check_near((got), (want), (rel), #got, __FILE__, __LINE__)

std::string show(double v);
std::string show(long long v);
template <class I>
requires std::is_integral_v<I> std::string show(I v) {
  return show(static_cast<long long>(v));
}
std::string show(const std::u16string& s);
std::string show(const char* s);

// Each argument is evaluated once (a call under test runs once).
template <class A, class B>
bool check_eq(const A& got, const B& want, const char* what, const char* file, int line) {
  return check(got == want, std::string(what) + " (got " + show(got) + ")", file, line);
}

// check_near on each of n cells (one check a cell); rel 0 asks for equality. The vector form
// first checks that the sizes agree (one more check) and compares nothing when they do not.
void check_all(const double* got, const double* want, std::size_t n, double rel,
               const std::string& what, const char* file, int line);
bool check_all(const std::vector<double>& got, const std::vector<double>& want, double rel,
               const std::string& what, const char* file, int line);
#define WCHECK_ALL(got, want, n, rel) \
  ::wintest::check_all((got), (want), (n), (rel), #got, __FILE__, __LINE__)
#define WCHECK_VEC(got, want, rel) \
  ::wintest::check_all((got), (want), (rel), #got, __FILE__, __LINE__)

// ---- guarded output buffers --------------------------------------------------------------------
// An output array of n cells with kPad guard cells on each side holding a canary value, so that a
// write before or after the caller's cells is seen (no address sanitizer runs under Wine, and a
// stray write inside one allocation escapes one anyway).
template <class T>
struct Guarded {
  static constexpr std::size_t kPad = 4;
  std::vector<T> v;
  std::size_t n;
  T init, canary;
  explicit Guarded(std::size_t size, T init_value = T(0), T canary_value = T(-12345))
      : v(size + 2 * kPad, canary_value), n(size), init(init_value), canary(canary_value) {
    std::fill(v.begin() + kPad, v.begin() + static_cast<std::ptrdiff_t>(kPad + size), init);
  }
  T* data() { return v.data() + kPad; }
  const T* data() const { return v.data() + kPad; }
  T& operator[](std::size_t i) { return v[kPad + i]; }
  const T& operator[](std::size_t i) const { return v[kPad + i]; }
  // The guard cells hold the canary.
  bool intact() const {
    for (std::size_t i = 0; i < v.size(); ++i)
      if ((i < kPad || i >= kPad + n) && v[i] != canary) return false;
    return true;
  }
  // Guards intact and every cell still holds its initial value: nothing was written.
  bool untouched() const {
    for (std::size_t i = 0; i < n; ++i)
      if (v[kPad + i] != init) return false;
    return intact();
  }
};
using GuardedD = Guarded<double>;
using GuardedI = Guarded<int>;
template <class... G>
bool intact(const G&... g) {
  return (g.intact() && ...);
}
template <class... G>
bool untouched(const G&... g) {
  return (g.untouched() && ...);
}
// A call refused for a null array with a positive length: the status VELKOR_E_NULL_ARRAY, and
// nothing written to the guarded outputs given after it (two checks).
#define WCHECK_REFUSED(call, ...) \
  (WCHECK_EQ((call), VELKOR_E_NULL_ARRAY), WCHECK(::wintest::untouched(__VA_ARGS__)))

// ---- the DLL ----------------------------------------------------------------------------------
class Library {
 public:
  explicit Library(const std::wstring& path);
  ~Library();
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  bool loaded() const { return module_ != nullptr; }
  // GetProcAddress; a missing name is a failed check and gives null.
  void* symbol(const char* name);
  // A function by its exported name, typed; the name is recorded as requested by a family.
  template <class F>
  F fn(const char* name) {
    requested_.insert(name);
    return reinterpret_cast<F>(reinterpret_cast<void (*)()>(symbol(name)));
  }
  // Exported names fetched through fn() so far.
  const std::set<std::string>& requested() const { return requested_; }
  // A C++ export by its qualified name: the one entry of the DLL's export table whose demangled
  // name is `qualified(...)`; a failed check and null when there is none or more than one. The
  // mangled name found is then fetched with GetProcAddress.
  void* cpp_symbol(const std::string& qualified);
  template <class F>
  F cpp_fn(const std::string& qualified) {
    return reinterpret_cast<F>(reinterpret_cast<void (*)()>(cpp_symbol(qualified)));
  }

 private:
  // Names in the DLL's export table, in table order.
  std::vector<std::string> export_names() const;

  HMODULE module_ = nullptr;
  std::set<std::string> requested_;
};

// A flat entry point by its plain exported name, typed by its declaration in the public header:
//   auto f = VELKOR_PROC(lib, Cpp_BlandAltman);
#define VELKOR_PROC(lib, name) (lib).fn<decltype(&name)>(#name)
// A C++ entry point (object interface, exported worker) typed by its declaration, found by its
// demangled name: auto f = VELKOR_CPP_PROC(lib, COX_Compute_ST);
#define VELKOR_CPP_PROC(lib, name) (lib).cpp_fn<decltype(&name)>(#name)

// ---- families ---------------------------------------------------------------------------------
using FamilyRun = void (*)(Library&);
int register_family(const char* name, FamilyRun run);

#define VELKOR_WIN_FAMILY(family)                         \
  static void run_##family(::wintest::Library& lib);      \
  [[maybe_unused]] static const int registered_##family = \
      ::wintest::register_family(#family, run_##family);  \
  static void run_##family([[maybe_unused]] ::wintest::Library& lib)

// ---- fixtures ---------------------------------------------------------------------------------
// A CSV fixture under tests/reference (the reference folder given on the command line) with a
// header row: columns by name, numbers (empty, NA and NaN cells are NaN).
struct Csv {
  std::vector<std::string> names;
  std::vector<std::vector<double>> columns;     // numbers (NaN for text)
  std::vector<std::vector<std::string>> cells;  // the same cells as text
  // Column by name; a failed check and an empty column when absent.
  const std::vector<double>& operator[](const std::string& name) const;
  const std::vector<std::string>& text(const std::string& name) const;
  std::size_t rows() const { return columns.empty() ? 0 : columns[0].size(); }
};
// A failed check and an empty table when the file cannot be read.
Csv read_csv(const std::string& relative);

}  // namespace wintest
