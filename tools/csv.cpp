#include "csv.h"

#include <array>
#include <charconv>
#include <cmath>
#include <algorithm>
#include <cstdio>
#include <limits>

namespace velkor_cli {

namespace {

// Characters that end an unquoted field.
constexpr auto kDelimiter = [] {
  std::array<bool, 256> t{};
  t[static_cast<unsigned char>(',')] = t[static_cast<unsigned char>('\n')] =
      t[static_cast<unsigned char>('\r')] = true;
  return t;
}();

std::string_view Trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  return s;
}

std::string Shown(std::string_view s) {
  std::string out(s.substr(0, 40));
  if (s.size() > 40) out += "...";
  return out;
}

}  // namespace

bool IsMissingCell(std::string_view field) {
  field = Trim(field);
  return field.empty() || field == "NA";
}

bool ParseNumber(std::string_view field, double& value) {
  field = Trim(field);
  if (field.empty() || field == "NA") return false;
  const char* first = field.data();
  const char* last = first + field.size();
  if (*first == '+') ++first;  // from_chars takes no leading '+'
  const auto r = std::from_chars(first, last, value);
  return r.ec == std::errc() && r.ptr == last;
}

int CsvTable::column(std::string_view name) const {
  for (std::size_t j = 0; j < names_.size(); ++j)
    if (names_[j] == name) return static_cast<int>(j);
  return -1;
}

std::string_view CsvTable::field(std::size_t row, std::size_t col) const {
  const Span& s = fields_[row * names_.size() + col];
  return std::string_view(s.unescaped() ? unescaped_ : text_).substr(s.offset(), s.length());
}

bool CsvTable::parse(std::string text, const std::string& source, std::string& error) {
  text_ = std::move(text);
  // A final line break as sentinel: every unquoted field then ends at a delimiter, so the scan
  // of a field needs no bounds test.
  if (text_.empty() || text_.back() != '\n') text_.push_back('\n');
  names_.clear();
  fields_.clear();
  lines_.clear();
  unescaped_.clear();
  rows_ = 0;
  const char* const base = text_.data();
  const std::size_t size = text_.size();
  // A UTF-8 byte order mark before the header is not part of the first name.
  std::size_t pos = size >= 3 && text_.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
  constexpr std::size_t kMaxField = 0x7FFFFF;
  if (size >> 40) {
    error = source + " is larger than 1 TB";
    return false;
  }
  auto tooLong = [&](std::size_t at) {
    error = source + ": line " + std::to_string(at) + ": a field is longer than 8 MB";
    return false;
  };
  std::size_t line = 1;
  bool header = true;
  std::size_t expected = 0;

  while (pos < size) {
    // Skip blank lines between records.
    if (base[pos] == '\n' || base[pos] == '\r') {
      if (base[pos] == '\n') ++line;
      ++pos;
      continue;
    }
    const std::size_t recordLine = line;
    const std::size_t first = fields_.size();
    for (;;) {  // one field per iteration
      if (base[pos] != '"') {
        const std::size_t start = pos;
        while (!kDelimiter[static_cast<unsigned char>(base[pos])]) ++pos;
        if (pos - start > kMaxField) return tooLong(recordLine);
        fields_.push_back(Span{start, pos - start, false});
      } else {
        const std::size_t open = pos++;
        const std::size_t start = pos;
        bool doubled = false;
        for (;;) {
          while (pos < size && base[pos] != '"') {
            if (base[pos] == '\n') ++line;
            ++pos;
          }
          if (pos >= size) {
            error = source + ": line " + std::to_string(recordLine) +
                    ": a quoted field is not closed (opened at byte " + std::to_string(open) + ")";
            return false;
          }
          if (pos + 1 < size && base[pos + 1] == '"') {
            doubled = true;
            pos += 2;
            continue;
          }
          break;
        }
        const std::size_t end = pos++;  // past the closing quote
        if (end - start > kMaxField) return tooLong(recordLine);
        if (doubled) {
          const std::size_t at = unescaped_.size();
          for (std::size_t i = start; i < end; ++i) {
            unescaped_.push_back(base[i]);
            if (base[i] == '"') ++i;
          }
          fields_.push_back(Span{at, unescaped_.size() - at, true});
        } else {
          fields_.push_back(Span{start, end - start, false});
        }
        // Spaces after the closing quote are tolerated; any other text is an error.
        while (pos < size && (base[pos] == ' ' || base[pos] == '\t')) ++pos;
        if (pos < size && !kDelimiter[static_cast<unsigned char>(base[pos])]) {
          error = source + ": line " + std::to_string(line) + ", field " +
                  std::to_string(fields_.size() - first) + ": text after a closing quote";
          return false;
        }
      }
      if (base[pos] == ',') {
        ++pos;
        continue;
      }
      // End of record: CRLF, LF or a lone CR (the sentinel guarantees a final LF).
      if (base[pos] == '\r') ++pos;
      if (pos < size && base[pos] == '\n') {
        ++pos;
        ++line;
      }
      break;
    }
    const std::size_t count = fields_.size() - first;
    if (header) {
      for (std::size_t k = first; k < fields_.size(); ++k) {
        const Span& sp = fields_[k];
        names_.emplace_back(Trim(std::string_view(sp.unescaped() ? unescaped_ : text_)
                                     .substr(sp.offset(), sp.length())));
      }
      fields_.clear();
      expected = count;
      header = false;
      // Room for the records: at most one per remaining line break.
      const auto breaks = static_cast<std::size_t>(std::count(base + pos, base + size, '\n'));
      fields_.reserve(breaks * expected);
      lines_.reserve(breaks);
      continue;
    }
    if (count != expected) {
      error = source + ": line " + std::to_string(recordLine) + " has " + std::to_string(count) +
              " fields, the header has " + std::to_string(expected);
      return false;
    }
    lines_.push_back(recordLine);
    ++rows_;
  }
  if (header) {
    error = source + " is empty";
    return false;
  }
  if (rows_ == 0) {
    error = source + " has a header row but no data rows";
    return false;
  }
  return true;
}

bool CsvTable::numeric(std::size_t col, std::vector<double>& out, std::string& error) const {
  out.resize(rows_);
  const std::size_t stride = names_.size();
  for (std::size_t i = 0; i < rows_; ++i) {
    const Span s = fields_[i * stride + col];
    const char* p = (s.unescaped() ? unescaped_ : text_).data() + s.offset();
    const char* e = p + s.length();
    // Fast path: a plain number filling the field.
    const auto r = std::from_chars(p, e, out[i]);
    if (r.ec == std::errc() && r.ptr == e && p != e) continue;
    const std::string_view f(p, s.length());
    if (IsMissingCell(f)) {
      out[i] = std::numeric_limits<double>::quiet_NaN();
    } else if (!ParseNumber(f, out[i])) {
      error = "line " + std::to_string(lines_[i]) + ", column '" + names_[col] + "': '" + Shown(f) +
              "' is not a number";
      return false;
    }
  }
  return true;
}

bool ReadCsv(const std::string& path, CsvTable& table, std::string& error) {
  std::FILE* f = path == "-" ? stdin : std::fopen(path.c_str(), "rb");
  if (!f) {
    error = "cannot open " + path;
    return false;
  }
  std::string text;
  long len = -1;
  if (f != stdin && std::fseek(f, 0, SEEK_END) == 0) {
    len = std::ftell(f);
    std::fseek(f, 0, SEEK_SET);
  }
  if (len > 0) {
    // One read into a buffer of the file's size.
    text.resize(static_cast<std::size_t>(len));
    text.resize(std::fread(text.data(), 1, text.size(), f));
  } else {
    char buf[1 << 16];
    std::size_t got;
    while ((got = std::fread(buf, 1, sizeof buf, f)) > 0) text.append(buf, got);
  }
  const bool failed = std::ferror(f) != 0;
  if (f != stdin) std::fclose(f);
  if (failed) {
    error = "cannot read " + path;
    return false;
  }
  return table.parse(std::move(text), path, error);
}

}  // namespace velkor_cli
