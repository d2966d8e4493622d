// velkor: command-line front end of the VELKORLI1M library.
#include <cstdio>
#include <cstring>
#include <string>

#include "commands.h"
#include "velkor/VELKORLI1M.h"
#include "velkor/containers.h"
#include "velkor/oleauto.h"

namespace {

using namespace velkor_cli;

struct Entry {
  const Command* command;
  int (*run)(const Args&);
  std::vector<std::string> numeric;
};

const Entry kEntries[] = {
    {&kKmCommand, RunKm, {"--alpha", "--event-code", "--na-variance", "--width"}},
    {&kCoxCommand,
     RunCox,
     {"--alpha", "--event-code", "--threshold", "--max-iter", "--tol", "--cv", "--bootstrap",
      "--seed", "--refit-tol"}},
    {&kSurvregCommand,
     RunSurvreg,
     {"--alpha", "--event-code", "--p-enter", "--p-remove", "--max-iter", "--tol"}},
    {&kCumincCommand, RunCuminc, {"--alpha", "--censor-code", "--rho"}},
    {&kRocCommand, RunRoc, {"--alpha", "--side", "--interval", "--prior"}},
    {&kBlandAltmanCommand, RunBlandAltman, {"--alpha", "--alpha-ci"}},
    {&kRepeatabilityCommand, RunRepeatability, {"--alpha"}},
    {&kPassingBablokCommand, RunPassingBablok, {"--alpha"}},
    {&kDemingCommand, RunDeming, {"--alpha", "--lambda", "--max-iter", "--tol"}},
};

void Usage(std::FILE* out) {
  std::fprintf(out,
               "usage: velkor <command> FILE.csv [options]      (velkor <command> --help)\n"
               "commands:\n");
  for (const Entry& e : kEntries) {
    std::string summary = e.command->summary.substr(0, e.command->summary.find_first_of(":,(\n"));
    while (!summary.empty() && summary.back() == ' ') summary.pop_back();
    std::fprintf(out, "  %-15s %s\n", e.command->name.c_str(), summary.c_str());
  }
  std::fprintf(out,
               "  selftest        build containers over OLE Automation arrays through the exports\n"
               "  version         print the version\n"
               "Input: CSV with a header row (RFC 4180); empty cells and NA are missing values.\n"
               "Output: aligned tables on stdout, or --format csv|json; --svg and --xlsx reports.\n"
               "Exit codes: 0 success (data warnings go to stderr); 2 usage error; 3 input error\n"
               "(file, column, cell); 4 a report file cannot be written; 10 + |s| when the\n"
               "library stops on data condition s (11: status out of range, 12: too few\n"
               "observations, 13: no event for cox, 15: fit failed); 20 + s for an internal\n"
               "failure s (21 out of memory, 22 internal error, 23 null array).\n"
               "Long work (cox --cv, --bootstrap) shows its progress on stderr when it is a\n"
               "terminal; --quiet turns it off.\n");
}

// Builds a two-column record array as a spreadsheet macro would and reads it back through the
// exported matrix3D constructor and accessors.
int Selftest() {
  const double times[] = {5, 8, 12, 20};
  SAFEARRAY* values = SafeArrayCreateVector(VT_R8, 1, 4);
  for (LONG i = 0; i < 4; ++i) {
    LONG idx = i + 1;
    double v = times[i];
    SafeArrayPutElement(values, &idx, &v);
  }
  SAFEARRAY* recs = nullptr;
  SafeArrayAllocDescriptor(1, &recs);
  recs->cbElements = sizeof(cST_ColumnRecord);
  recs->rgsabound[0].cElements = 1;
  recs->rgsabound[0].lLbound = 1;
  SafeArrayAllocData(recs);
  auto* rec = static_cast<cST_ColumnRecord*>(recs->pvData);
  VariantInit(&rec->values);
  rec->values.vt = VT_ARRAY | VT_R8;
  rec->values.parray = values;
  rec->name = SysAllocString(u"time");
  int status = 0;
  {
    matrix3D<cST_MVect<double>> cols(recs, 0);
    std::printf("slices: %d\n", cols.nSlices);
    for (int i = 1; i <= 5; ++i) std::printf("vbget(1, %d) = %g\n", i, cols.vbget(1, i));
    cols.vbset(1, 99, 42.0);
    std::printf("after vbset(1, 99, 42): vbget(1, 99) = %g (spare element)\n", cols.vbget(1, 99));
    if (cols.nSlices != 1 || cols.vbget(1, 4) != 20.0) status = 1;
  }
  VariantClear(&rec->values);
  SysFreeString(rec->name);
  SafeArrayDestroy(recs);
  std::puts(status == 0 ? "selftest: ok" : "selftest: FAILED");
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    Usage(stderr);
    return kExitUsage;
  }
  const std::string sub = argv[1];
  if (sub == "--help" || sub == "-h" || sub == "help") {
    Usage(stdout);
    return kExitOk;
  }
  if (sub == "--version" || sub == "version") {
    std::puts(VersionString());
    return kExitOk;
  }
  if (sub == "selftest") return Selftest();
  for (const Entry& e : kEntries) {
    if (sub != e.command->name) continue;
    Args a;
    const int parsed = Parse(*e.command, argc - 2, argv + 2, a, e.numeric);
    if (parsed >= 0) return parsed;
    try {
      return e.run(a);
    } catch (const std::exception& ex) {
      Fail(sub, ex.what());
      return kExitInternalBase + 2;
    }
  }
  std::fprintf(stderr, "velkor: error: unknown command '%s' (velkor --help)\n", sub.c_str());
  return kExitUsage;
}
