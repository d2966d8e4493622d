// Object-interface data sets built as a C++ caller of VELKORLI1M.dll builds them: the columns come
// from a record array made with oleaut32 (ole::RecordArray), read by the DLL's exported
// matrix3D<cST_MVect<double>> constructor (found by its mangled name), and the column vectors it
// made are shared into a cST_DataSet. The matrix3D is destroyed through the DLL's exported
// destructor; the columns live on through their shared pointers.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "velkor/objects.h"
#include "windows/harness.h"
#include "windows/ole.h"

namespace wintest {

using NamedColumn = std::pair<std::u16string, std::vector<double>>;

// A data set of Double columns; an empty data set and a failed check when the DLL's members
// cannot be resolved or the column count read back differs.
cST_DataSet dataset_from_records(Library& lib, const std::vector<NamedColumn>& columns);

}  // namespace wintest
