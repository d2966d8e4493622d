// The check harness and main() of the Windows test program.
//
//   velkor_windows_tests.exe REFERENCE_DIR [EXPORTS_FILE]
//
// REFERENCE_DIR is tests/reference (a Unix path works under Wine); EXPORTS_FILE lists the flat
// entry points of the headers one a line (scripts/gen-vba --list): each must resolve through
// GetProcAddress, and each must be fetched (so called) by some family. VELKORLI1M.dll is loaded
// from the program's own folder. Exit status 0 when every check passed.
#include "windows/harness.h"

#include <cxxabi.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace wintest {
namespace {

int g_passed = 0;
int g_failed = 0;
std::string g_reference;
const char* g_family = "";

struct Registered {
  std::string name;
  FamilyRun run;
};
std::vector<Registered>& registry() {
  static std::vector<Registered> families;
  return families;
}

bool is_missing(double v) {
  return v <= -1.79769313486231e+308;
}

std::string narrow(const std::wstring& w) {
  std::string s;
  for (wchar_t c : w) s.push_back(c < 128 ? static_cast<char>(c) : '?');
  return s;
}

}  // namespace

bool check(bool ok, const std::string& what, const char* file, int line) {
  if (ok) {
    ++g_passed;
  } else {
    ++g_failed;
    const char* base = std::strrchr(file, '/');
    std::printf("FAILED [%s] %s:%d: %s\n", g_family, base ? base + 1 : file, line, what.c_str());
  }
  return ok;
}

bool check_near(double got, double want, double rel, const std::string& what, const char* file,
                int line) {
  bool ok;
  if (is_missing(want) || is_missing(got)) {
    ok = is_missing(want) && is_missing(got);
  } else if (std::isnan(want) || std::isnan(got)) {
    ok = std::isnan(want) && std::isnan(got);
  } else {
    ok = std::fabs(got - want) <= rel * std::max(1.0, std::fabs(want));
  }
  return check(ok, what + " = " + show(got) + ", expected " + show(want), file, line);
}

void check_all(const double* got, const double* want, std::size_t n, double rel,
               const std::string& what, const char* file, int line) {
  for (std::size_t i = 0; i < n; ++i)
    check_near(got[i], want[i], rel, what + "[" + std::to_string(i) + "]", file, line);
}

bool check_all(const std::vector<double>& got, const std::vector<double>& want, double rel,
               const std::string& what, const char* file, int line) {
  if (!check(got.size() == want.size(), what + ": sizes", file, line)) return false;
  check_all(got.data(), want.data(), got.size(), rel, what, file, line);
  return true;
}

int passed() {
  return g_passed;
}
int failed() {
  return g_failed;
}

std::string show(double v) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.17g", v);
  return buf;
}
std::string show(long long v) {
  return std::to_string(v);
}
std::string show(const std::u16string& s) {
  std::string out = "\"";
  for (char16_t c : s) out.push_back(c < 128 ? static_cast<char>(c) : '?');
  return out + "\"";
}
std::string show(const char* s) {
  return s ? s : "(null)";
}

Library::Library(const std::wstring& path) {
  module_ = LoadLibraryW(path.c_str());
  check(module_ != nullptr,
        "LoadLibrary(" + narrow(path) + ") failed, error " + std::to_string(GetLastError()),
        __FILE__, __LINE__);
}

Library::~Library() {
  if (module_) FreeLibrary(module_);
}

void* Library::symbol(const char* name) {
  FARPROC p = module_ ? GetProcAddress(module_, name) : nullptr;
  check(p != nullptr, std::string("GetProcAddress(") + name + ")", __FILE__, __LINE__);
  return reinterpret_cast<void*>(p);
}

std::vector<std::string> Library::export_names() const {
  std::vector<std::string> names;
  if (!module_) return names;
  // The export directory of the loaded image (PE32+): name pointer table of RVAs.
  const auto* base = reinterpret_cast<const unsigned char*>(module_);
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY& dir = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
  if (dir.VirtualAddress == 0) return names;
  const auto* exp = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(base + dir.VirtualAddress);
  const auto* rvas = reinterpret_cast<const DWORD*>(base + exp->AddressOfNames);
  for (DWORD i = 0; i < exp->NumberOfNames; ++i)
    names.emplace_back(reinterpret_cast<const char*>(base + rvas[i]));
  return names;
}

void* Library::cpp_symbol(const std::string& qualified) {
  std::vector<std::string> found;
  for (const std::string& mangled : export_names()) {
    if (mangled.rfind("_Z", 0) != 0) continue;
    int status = 0;
    char* plain = abi::__cxa_demangle(mangled.c_str(), nullptr, nullptr, &status);
    if (status == 0 && plain && std::strncmp(plain, qualified.c_str(), qualified.size()) == 0 &&
        plain[qualified.size()] == '(')
      found.push_back(mangled);
    std::free(plain);
  }
  if (!check(found.size() == 1,
             "C++ export " + qualified + ": " + std::to_string(found.size()) + " matches", __FILE__,
             __LINE__))
    return nullptr;
  return symbol(found[0].c_str());
}

int register_family(const char* name, FamilyRun run) {
  registry().push_back({name, run});
  return static_cast<int>(registry().size());
}

namespace {
std::string read_fixture(const std::string& relative) {
  const std::string path = g_reference + "/" + relative;
  std::ifstream in(path, std::ios::binary);
  if (!check(static_cast<bool>(in), "cannot read fixture " + path, __FILE__, __LINE__)) return {};
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

template <class Column>
const Column& column(const Csv& csv, const std::vector<Column>& columns, const std::string& name) {
  static const Column none;
  for (std::size_t j = 0; j < csv.names.size(); ++j)
    if (csv.names[j] == name) return columns[j];
  check(false, "fixture column " + name + " absent", __FILE__, __LINE__);
  return none;
}
}  // namespace

const std::vector<double>& Csv::operator[](const std::string& name) const {
  return column(*this, columns, name);
}
const std::vector<std::string>& Csv::text(const std::string& name) const {
  return column(*this, cells, name);
}

Csv read_csv(const std::string& relative) {
  Csv csv;
  std::istringstream in(read_fixture(relative));
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;  // provenance comments
    std::vector<std::string> cells(1);
    for (char c : line) {
      if (c == ',')
        cells.emplace_back();
      else if (c != '\r' && c != '"')
        cells.back().push_back(c);
    }
    if (csv.names.empty()) {
      csv.names = cells;
      csv.columns.resize(cells.size());
      csv.cells.resize(cells.size());
      continue;
    }
    for (std::size_t j = 0; j < csv.columns.size(); ++j) {
      const std::string c = j < cells.size() ? cells[j] : "";
      char* end = nullptr;
      const double v = std::strtod(c.c_str(), &end);
      csv.columns[j].push_back(c.empty() || end == c.c_str() || *end != '\0' ? std::nan("") : v);
      csv.cells[j].push_back(c);
    }
  }
  return csv;
}

// The flat entry points of the headers (one name a line); a failed check when unreadable.
std::vector<std::string> read_export_list(const char* list_path) {
  std::vector<std::string> names;
  std::ifstream in(list_path);
  if (!check(static_cast<bool>(in), std::string("cannot read ") + list_path, __FILE__, __LINE__))
    return names;
  std::string name;
  while (in >> name) names.push_back(name);
  return names;
}

}  // namespace wintest

int wmain(int argc, wchar_t** argv) {
  using namespace wintest;
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  if (argc < 2) {
    std::printf("usage: velkor_windows_tests REFERENCE_DIR [EXPORTS_FILE]\n");
    return 2;
  }
  g_reference = narrow(argv[1]);

  // VELKORLI1M.dll from this program's folder, by full path.
  wchar_t self[MAX_PATH];
  const DWORD len = GetModuleFileNameW(nullptr, self, MAX_PATH);
  std::wstring dir(self, len);
  dir = dir.substr(0, dir.find_last_of(L"\\/") + 1);
  Library lib(dir + L"VELKORLI1M.dll");
  if (!lib.loaded()) {
    std::printf("%d passed, %d failed\n", passed(), failed());
    return 1;
  }

  // Every flat entry point of the headers resolves under its plain name.
  g_family = "exports";
  const std::vector<std::string> flat =
      argc >= 3 ? read_export_list(narrow(argv[2]).c_str()) : std::vector<std::string>{};
  for (const std::string& name : flat) lib.symbol(name.c_str());
  if (argc >= 3)
    std::printf("[exports] %zu flat entry points resolved by GetProcAddress\n", flat.size());

  auto families = registry();
  std::sort(families.begin(), families.end(),
            [](const Registered& a, const Registered& b) { return a.name < b.name; });
  for (const Registered& f : families) {
    g_family = f.name.c_str();
    const int before_p = passed(), before_f = failed();
    f.run(lib);
    std::printf("[%s] %d passed, %d failed\n", f.name.c_str(), passed() - before_p,
                failed() - before_f);
  }
  // ... and every one of them is called by some family (a family fetches only what it calls).
  g_family = "exports";
  int uncalled = 0;
  for (const std::string& name : flat)
    if (!check(lib.requested().count(name) == 1,
               "flat entry point " + name + " is called by no family", __FILE__, __LINE__))
      ++uncalled;
  if (argc >= 3)
    std::printf("[exports] %zu of %zu flat entry points called\n", flat.size() - uncalled,
                flat.size());
  std::printf("%d passed, %d failed\n", passed(), failed());
  return failed() == 0 ? 0 : 1;
}
