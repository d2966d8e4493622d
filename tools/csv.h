// CSV input of the velkor tool (RFC 4180): a header row of column names, then one record per
// line. Fields are separated by commas; a field may be enclosed in double quotes, inside which
// commas and line breaks are data and a doubled quote stands for one quote. Lines end in LF or
// CRLF; a final line break is optional; blank lines are skipped. Empty fields and "NA" are
// missing values.
//
// The reader makes a single pass over the file held in memory and records where each field
// lies; numbers are parsed on demand, per column, with std::from_chars.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace velkor_cli {

class CsvTable {
 public:
  // Parses `text` (the whole file). Returns false and sets `error` (one line, naming the line
  // and column) on an empty input, a header without data rows, a record whose field count
  // differs from the header's, or an unterminated quote. `source` names the input in messages.
  bool parse(std::string text, const std::string& source, std::string& error);

  const std::vector<std::string>& names() const { return names_; }
  std::size_t rows() const { return rows_; }
  std::size_t columns() const { return names_.size(); }

  // Index of the column with this name, -1 when absent.
  int column(std::string_view name) const;
  // Field (row, col), quotes removed; row 0 is the first data row.
  std::string_view field(std::size_t row, std::size_t col) const;
  // Line of the file where a data row starts (1-based; the header is on line 1 or later).
  std::size_t line_of(std::size_t row) const { return lines_[row]; }

  // The column as numbers: missing cells (empty or NA) become NaN. Returns false and sets
  // `error` naming the line, the column and the text of the first cell that is not a number.
  bool numeric(std::size_t col, std::vector<double>& out, std::string& error) const;

 private:
  std::string text_;
  // A field packed in 8 bytes: offset (40 bits), length (23 bits), and a flag (1 bit) saying the
  // field held doubled quotes and its text lies in unescaped_. Files up to 1 TB, fields up to
  // 8 MB.
  struct Span {
    std::uint64_t bits;
    Span(std::size_t offset, std::size_t length, bool unescaped)
        : bits(static_cast<std::uint64_t>(offset) << 24 | static_cast<std::uint64_t>(length) << 1 |
               (unescaped ? 1u : 0u)) {}
    std::size_t offset() const { return static_cast<std::size_t>(bits >> 24); }
    std::size_t length() const { return static_cast<std::size_t>(bits >> 1 & 0x7FFFFF); }
    bool unescaped() const { return bits & 1u; }
  };
  std::string unescaped_;
  std::vector<std::string> names_;
  std::vector<Span> fields_;  // rows_ x columns(), row-major
  std::vector<std::size_t> lines_;
  std::size_t rows_ = 0;
};

// Reads `path` whole and parses it.
bool ReadCsv(const std::string& path, CsvTable& table, std::string& error);

// True for a missing cell: empty or "NA" (surrounding spaces ignored).
bool IsMissingCell(std::string_view field);

// A field as a number (surrounding spaces allowed): true with the value when the whole field is a
// decimal number, "inf"/"-inf" or "nan"; false for missing or non-numeric text.
bool ParseNumber(std::string_view field, double& value);

}  // namespace velkor_cli
