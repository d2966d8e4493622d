#include "report.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "velkor/status.h"

#ifndef VELKOR_VERSION
#define VELKOR_VERSION "unknown"
#endif

namespace velkor_cli {

const char* VersionString() {
  return "velkor " VELKOR_VERSION " (VELKORLI1M " VELKOR_VERSION ")";
}

bool IsMissingValue(double v) {
  return std::isnan(v) || v <= VELKOR_MISSING;
}

std::size_t Table::rows() const {
  std::size_t n = 0;
  for (const Column& c : columns) n = std::max(n, c.text ? c.s.size() : c.v.size());
  return n;
}

namespace {

// Shortest text that reads back to the same double.
std::string Exact(double v) {
  if (std::isinf(v)) return v > 0 ? "inf" : "-inf";
  char buf[40];
  std::snprintf(buf, sizeof buf, "%.17g", v);
  return buf;
}

std::string Shown(const Column& c, std::size_t i) {
  if (c.text) return i < c.s.size() ? c.s[i] : std::string();
  if (i >= c.v.size() || IsMissingValue(c.v[i])) return "-";
  const double v = c.v[i];
  if (v >= VELKOR_UNBOUNDED) return "inf";
  if (c.pvalue && v < 1e-4) return "<0.0001";
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.*f", c.decimals, v);
  return buf;
}

std::string CsvField(const std::string& s) {
  if (s.find_first_of(",\"\n\r") == std::string::npos) return s;
  std::string out = "\"";
  for (char ch : s) {
    if (ch == '"') out += '"';
    out += ch;
  }
  return out + '"';
}

std::string JsonString(const std::string& s) {
  std::string out = "\"";
  for (unsigned char ch : s) {
    switch (ch) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\r':
        out += "\\r";
        break;
      default:
        if (ch < 0x20) {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\u%04x", ch);
          out += buf;
        } else {
          out += static_cast<char>(ch);
        }
    }
  }
  return out + '"';
}

}  // namespace

void WriteText(const Report& r, std::FILE* out) {
  std::fprintf(out, "%s\n", r.title.c_str());
  for (const std::string& n : r.notes) std::fprintf(out, "  %s\n", n.c_str());
  for (const Table& t : r.tables) {
    std::fprintf(out, "\n%s\n", t.title.c_str());
    const std::size_t rows = t.rows();
    std::vector<std::size_t> width;
    for (const Column& c : t.columns) {
      std::size_t w = c.header.size();
      for (std::size_t i = 0; i < rows; ++i) w = std::max(w, Shown(c, i).size());
      width.push_back(w);
    }
    auto line = [&](auto&& cell) {
      for (std::size_t j = 0; j < t.columns.size(); ++j) {
        const std::string s = cell(j);
        // Text columns left-aligned, numbers right-aligned.
        if (t.columns[j].text)
          std::fprintf(out, "  %-*s", static_cast<int>(width[j]), s.c_str());
        else
          std::fprintf(out, "  %*s", static_cast<int>(width[j]), s.c_str());
      }
      std::fputc('\n', out);
    };
    line([&](std::size_t j) { return t.columns[j].header; });
    std::size_t total = 0;
    for (std::size_t w : width) total += w + 2;
    std::fprintf(out, "  %s\n", std::string(total > 2 ? total - 2 : 0, '-').c_str());
    for (std::size_t i = 0; i < rows; ++i)
      line([&](std::size_t j) { return Shown(t.columns[j], i); });
  }
}

void WriteCsv(const Report& r, std::FILE* out) {
  std::fprintf(out, "# %s\n# command: %s\n", VersionString(), r.command.c_str());
  for (const auto& [k, v] : r.options) std::fprintf(out, "# %s: %s\n", k.c_str(), v.c_str());
  bool first = true;
  for (const Table& t : r.tables) {
    std::fprintf(out, "%s# table: %s\n", first ? "" : "\n", t.name.c_str());
    first = false;
    for (std::size_t j = 0; j < t.columns.size(); ++j)
      std::fprintf(out, "%s%s", j ? "," : "", CsvField(t.columns[j].header).c_str());
    std::fputc('\n', out);
    const std::size_t rows = t.rows();
    for (std::size_t i = 0; i < rows; ++i) {
      for (std::size_t j = 0; j < t.columns.size(); ++j) {
        const Column& c = t.columns[j];
        std::string cell;
        if (c.text)
          cell = CsvField(i < c.s.size() ? c.s[i] : std::string());
        else if (i < c.v.size() && !IsMissingValue(c.v[i]))
          cell = Exact(c.v[i]);
        std::fprintf(out, "%s%s", j ? "," : "", cell.c_str());
      }
      std::fputc('\n', out);
    }
  }
}

void WriteJson(const Report& r, std::FILE* out) {
  std::fprintf(out, "{\n  \"command\": %s,\n  \"version\": %s,\n  \"options\": {",
               JsonString(r.command).c_str(), JsonString(VersionString()).c_str());
  for (std::size_t k = 0; k < r.options.size(); ++k)
    std::fprintf(out, "%s%s: %s", k ? ", " : "", JsonString(r.options[k].first).c_str(),
                 JsonString(r.options[k].second).c_str());
  std::fprintf(out, "},\n  \"notes\": [");
  for (std::size_t k = 0; k < r.notes.size(); ++k)
    std::fprintf(out, "%s%s", k ? ", " : "", JsonString(r.notes[k]).c_str());
  std::fprintf(out, "],\n  \"tables\": {");
  for (std::size_t t = 0; t < r.tables.size(); ++t) {
    const Table& tb = r.tables[t];
    std::fprintf(out, "%s\n    %s: {", t ? "," : "", JsonString(tb.name).c_str());
    const std::size_t rows = tb.rows();
    for (std::size_t j = 0; j < tb.columns.size(); ++j) {
      const Column& c = tb.columns[j];
      std::fprintf(out, "%s\n      %s: [", j ? "," : "", JsonString(c.header).c_str());
      for (std::size_t i = 0; i < rows; ++i) {
        std::string cell;
        if (c.text)
          cell = JsonString(i < c.s.size() ? c.s[i] : std::string());
        else if (i >= c.v.size() || IsMissingValue(c.v[i]))
          cell = "null";
        else if (std::isinf(c.v[i]))
          cell = c.v[i] > 0 ? "1e999" : "-1e999";
        else
          cell = Exact(c.v[i]);
        std::fprintf(out, "%s%s", i ? ", " : "", cell.c_str());
      }
      std::fputc(']', out);
    }
    std::fprintf(out, "\n    }");
  }
  std::fprintf(out, "\n  }\n}\n");
}

}  // namespace velkor_cli
