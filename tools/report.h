// The result of a velkor command, independent of how it is written: named tables of columns,
// the options that produced them, data warnings, and the charts of the analysis. Writers: aligned
// text (stdout), CSV and JSON (--format), SVG (--svg) and an xlsx workbook (--xlsx).
#pragma once

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

namespace velkor_cli {

// One column: text cells, or numbers shown with `decimals` digits in the aligned text (CSV and
// JSON carry every digit: %.17g, which reads back to the same double).
struct Column {
  std::string header;
  bool text = false;
  int decimals = 4;
  bool pvalue = false;  // shown as "<0.0001" below 1e-4 in the aligned text
  std::vector<std::string> s;
  std::vector<double> v;  // NaN and the missing-value marker are written as missing
};

struct Table {
  std::string name;   // machine name: CSV section, JSON key, worksheet name (<= 31 chars)
  std::string title;  // heading of the aligned text
  std::vector<Column> columns;

  Column& text(std::string header) {
    columns.push_back(Column{std::move(header), true, 0, false, {}, {}});
    return columns.back();
  }
  Column& num(std::string header, int decimals) {
    columns.push_back(Column{std::move(header), false, decimals, false, {}, {}});
    return columns.back();
  }
  std::size_t rows() const;
};

// A chart series: a polyline (steps are given as their corner points), points, or both.
struct Series {
  std::string name;
  std::vector<double> x, y;  // missing cells break the line
  int color = 0;             // index in the palette
  bool line = true;
  bool markers = false;  // a dot at each point
  bool dashed = false;
  bool thin = false;  // confidence band or reference line
  bool legend = true;
  std::vector<double> tickX, tickY;  // censoring marks: short vertical ticks
};

struct Chart {
  Chart(std::string n, std::string t, std::string xl, std::string yl)
      : name(std::move(n)), title(std::move(t)), xLabel(std::move(xl)), yLabel(std::move(yl)) {}
  std::string name;  // file suffix and worksheet name
  std::string title, xLabel, yLabel;
  std::vector<Series> series;
  bool unitY = false;       // y axis fixed to [0, 1]
  bool unitSquare = false;  // both axes [0, 1] (ROC)
  bool legendLeft = false;  // legend in the top left corner (rising curves)
  // Number-at-risk table under the plot, one row per group: the table's times and numbers at
  // risk; the count shown under an axis tick t is the number at risk at the first time >= t
  // (0 past the last time).
  struct RiskRow {
    std::string label;
    std::vector<double> times, atRisk;
  };
  std::vector<RiskRow> riskRows;
};

struct Report {
  std::string command;  // "km", "roc", ...
  std::string title;
  std::vector<std::pair<std::string, std::string>> options;  // recorded in the CSV header
  std::vector<std::string> notes;                            // printed under the title
  std::vector<Table> tables;
  std::vector<Chart> charts;
};

// Output writers. Text: aligned tables. CSV: a '#' header (tool and library version, every
// option), then each table as a block preceded by "# table: NAME" and separated by a blank line;
// missing values are empty cells. JSON: {"command", "version", "options", "tables": {NAME:
// {COLUMN: [values]}}} with missing values as null.
void WriteText(const Report& r, std::FILE* out);
void WriteCsv(const Report& r, std::FILE* out);
void WriteJson(const Report& r, std::FILE* out);

// Charts as standalone SVG. One chart: `path` itself; several: one file per chart, named
// PATH-STEM-CHARTNAME.svg. Returns false with `error` set when a file cannot be written.
bool WriteSvg(const Report& r, const std::string& path, std::vector<std::string>& written,
              std::string& error);
// One chart as an SVG document.
std::string SvgDocument(const Chart& c);

// Workbook with one sheet per table and one per chart (native scatter charts over the series
// data). Returns false with `error` set (also when the tool was built without libxlsxwriter).
bool WriteXlsx(const Report& r, const std::string& path, std::string& error);

// True for a value that is written as missing (NaN or at most the library's marker).
bool IsMissingValue(double v);

// Version string of the tool and library.
const char* VersionString();

}  // namespace velkor_cli
