// Minimal CSV reading for the velkor tool: a header row of column names, then one record per
// line. Fields are separated by commas; a field may be enclosed in double quotes (a doubled quote
// inside stands for one quote). Empty fields and "NA" are missing values.
#pragma once

#include <string>
#include <vector>

namespace velkor_cli {

struct CsvTable {
  std::vector<std::string> names;
  std::vector<std::vector<std::string>> rows;  // rows[i][j]: field j of record i ("" if absent)

  // Index of the column with this name, -1 when absent.
  int column(const std::string& name) const;
};

// Reads `path`; returns false and sets `error` when the file cannot be read or has no header.
bool ReadCsv(const std::string& path, CsvTable& table, std::string& error);

// A field as a number: true with the value when it parses completely as a finite or infinite
// double; false for empty, "NA" or non-numeric text.
bool ParseNumber(const std::string& field, double& value);

}  // namespace velkor_cli
