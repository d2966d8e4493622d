// velkor: command-line front end of the VELKORLI1M library.
#include <cstdio>
#include <cstring>
#include <string>

#include "km_command.h"
#include "velkor/VELKORLI1M.h"
#include "velkor/containers.h"
#include "velkor/oleauto.h"

namespace {

int usage() {
  std::puts(
      "usage: velkor <command> [options]\n"
      "commands:\n"
      "  km         Kaplan-Meier analysis of a CSV file (velkor km --help)\n"
      "  selftest   build containers over OLE Automation arrays through the library's exports");
  return 2;
}

// Builds a two-column record array as a spreadsheet macro would and reads it back through the
// exported matrix3D constructor and accessors.
int selftest() {
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
  if (argc < 2) return usage();
  if (std::strcmp(argv[1], "selftest") == 0) return selftest();
  if (std::strcmp(argv[1], "km") == 0) {
    if (argc == 2 || std::strcmp(argv[2], "--help") == 0) {
      std::puts(velkor_cli::KmUsage());
      return argc == 2 ? 2 : 0;
    }
    return velkor_cli::RunKmCommand(argc - 2, argv + 2);
  }
  return usage();
}
