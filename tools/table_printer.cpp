#include "table_printer.h"

#include <algorithm>
#include <cmath>

#include "velkor/status.h"

namespace velkor_cli {

void TextTable::print(std::FILE* out) const {
  std::vector<std::size_t> width(headers_.size(), 0);
  for (std::size_t j = 0; j < headers_.size(); ++j) width[j] = headers_[j].size();
  for (const auto& row : rows_)
    for (std::size_t j = 0; j < row.size() && j < width.size(); ++j)
      width[j] = std::max(width[j], row[j].size());
  auto line = [&](const std::vector<std::string>& cells) {
    for (std::size_t j = 0; j < width.size(); ++j) {
      const std::string& c = j < cells.size() ? cells[j] : std::string();
      std::fprintf(out, "%s%*s", j == 0 ? "  " : "  ", static_cast<int>(width[j]), c.c_str());
    }
    std::fputc('\n', out);
  };
  line(headers_);
  std::size_t total = 0;
  for (std::size_t w : width) total += w + 2;
  std::fprintf(out, "  %s\n", std::string(total > 2 ? total - 2 : 0, '-').c_str());
  for (const auto& row : rows_) line(row);
}

std::string Num(double value, int decimals) {
  if (value <= VELKOR_MISSING || std::isnan(value)) return "-";
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.*f", decimals, value);
  return buf;
}

std::string PValue(double p) {
  if (p <= VELKOR_MISSING || std::isnan(p)) return "-";
  if (p < 1e-4) return "<0.0001";
  return Num(p, 4);
}

}  // namespace velkor_cli
