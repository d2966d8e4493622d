// Aligned plain-text tables for the velkor tool.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace velkor_cli {

class TextTable {
 public:
  explicit TextTable(std::vector<std::string> headers) : headers_(std::move(headers)) {}
  void add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
  // Prints the header, a rule and the rows; every column right-aligned to its widest cell.
  void print(std::FILE* out) const;

 private:
  std::vector<std::string> headers_;
  std::vector<std::vector<std::string>> rows_;
};

// A value with `decimals` digits after the point; "-" for the missing-value marker or NaN.
std::string Num(double value, int decimals);
// A p-value: 4 decimals, or "<0.0001".
std::string PValue(double p);

}  // namespace velkor_cli
