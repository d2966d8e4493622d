// Types of the object (_ST) interface: the data set handed to an analysis, the description of its
// qualitative variables and factors, the run context and the error record.
//
// These are plain structs of cST_MVect columns (held through std::shared_ptr, so a column can be
// shared between a data set and the results that refer to it) and scalars. Analyses add their own
// parameter (e.g. COX_Param) and result (e.g. cCOX_Results) types in their own headers.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "velkor/containers.h"
#include "velkor/export.h"

using VectD = cST_MVect<double>;
using VectI = cST_MVect<int>;
using VectS = cST_MVect<std::u16string>;
using VectDPtr = std::shared_ptr<VectD>;
using VectIPtr = std::shared_ptr<VectI>;
using VectSPtr = std::shared_ptr<VectS>;

// A qualitative (categorical) variable: its values as text, one per row, and its levels.
// Levels are listed in the order the analyses code them; when `levels` is empty they are taken
// as the distinct values sorted in ascending (code unit) order.
struct cST_QualiInfo {
  std::u16string name;
  VectSPtr values;  // one label per row
  std::vector<std::u16string> levels;
};

// The data set of an analysis: named numeric columns of equal length, and qualitative columns.
// Which column plays which role (time, status, weights, groups, covariates) is said by each
// analysis' parameter type through column indices (0-based) into `columns` or `qualitative`.
struct cST_DataSet {
  std::vector<VectDPtr> columns;
  std::vector<std::u16string> names;
  std::vector<cST_QualiInfo> qualitative;

  std::uint32_t rows() const { return columns.empty() || !columns[0] ? 0 : columns[0]->size(); }
  // Index of the numeric column with this name, -1 when absent.
  int find(const std::u16string& name) const {
    for (std::size_t i = 0; i < names.size(); ++i)
      if (names[i] == name) return static_cast<int>(i);
    return -1;
  }
  // Append a numeric column (copy of n values). Columns are built with shared_ptr(new ...)
  // rather than make_shared: MinGW otherwise exports the type_info of make_shared's internal
  // tag from the DLL's object-interface code.
  void add(const std::u16string& name, const double* values, std::uint32_t n) {
    columns.push_back(std::shared_ptr<VectD>(new VectD(values, n)));
    names.push_back(name);
  }
};

// Factors (covariates) of a regression: the numeric columns and qualitative variables that enter
// the design matrix, in the order given, and the names of the design columns built from them.
struct cST_FactorsInfo {
  std::vector<int> quantitative;            // indices into cST_DataSet::columns
  std::vector<int> qualitative;             // indices into cST_DataSet::qualitative
  std::vector<std::u16string> designNames;  // filled by the analysis: one name per design column
  std::vector<int> designVariable;          // filled: variable number (0-based, quantitative
                                            // first, then qualitative) of each design column
};

// Error record filled for the front end when an object entry point fails.
struct ErrorInfo {
  std::u16string key;          // stable message key, e.g. u"NoEvent"
  std::u16string message;      // English text
  std::u16string analysis;     // which analysis raised it
  std::int32_t status = 0;     // the status code returned
  std::int32_t row = -1;       // data row concerned (0-based), -1 when none
  std::int32_t column = -1;    // data column concerned, -1 when none
  std::int16_t isWarning = 0;  // -1: warning after which the outputs are complete
};

// Run context of an object entry point: the caller's progress callback and the error record.
// The progress callback receives (done, total) and returns false to ask the routine to stop
// early; long routines (bootstrap, cross-validation) call it between replicates, from the
// calling thread only.
struct VELKORInfo {
  ErrorInfo error;
  std::function<bool(std::int64_t done, std::int64_t total)> progress;
  std::u16string locale = u"en";
};

// Run context handed to message composition.
struct SystemInfo {
  std::u16string locale = u"en";
  std::u16string decimalSeparator = u".";
};

// Fill an ErrorInfo (the three texts, status, row, column, a reserved int, the analysis name,
// two reserved ints, the warning flag and the key's message), as the object entry points report
// failures. Never throws.
VELKOR_API void LoadErrorInfo_ST(const std::u16string& key, const std::u16string& message,
                                 const std::u16string& analysis, std::int32_t status,
                                 std::int32_t row, std::int32_t column, std::int32_t reserved1,
                                 const std::u16string& detail, std::int32_t reserved2,
                                 std::int32_t reserved3, std::int16_t isWarning,
                                 const std::u16string& extra, ErrorInfo& info) noexcept;
