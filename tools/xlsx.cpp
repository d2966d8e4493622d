// xlsx workbook: one sheet per table, then one sheet per chart holding the series data beside a
// native scatter chart drawn from it (steps are drawn from their corner points, so a survival
// curve stays a step line in the spreadsheet).
#include <algorithm>
#include <cmath>
#include <set>

#include "report.h"

#ifdef VELKOR_HAVE_XLSXWRITER
#include <xlsxwriter.h>
#endif

namespace velkor_cli {

#ifdef VELKOR_HAVE_XLSXWRITER
namespace {

const lxw_color_t kPalette[] = {0x1F77B4, 0xD62728, 0x2CA02C, 0x9467BD,
                                0xFF7F0E, 0x8C564B, 0xE377C2, 0x17BECF};

// A worksheet name: at most 31 characters, none of []:*?/\, unique in the workbook.
std::string SheetName(std::string name, std::set<std::string>& used) {
  for (char& c : name)
    if (std::string_view("[]:*?/\\").find(c) != std::string_view::npos) c = '_';
  if (name.size() > 31) name.resize(31);
  std::string base = name;
  for (int k = 2; used.count(name); ++k) {
    std::string suffix(1, '_');
    suffix.append(std::to_string(k));
    name.assign(base, 0, std::min(base.size(), 31 - suffix.size()));
    name.append(suffix);
  }
  used.insert(name);
  return name;
}

void WriteValue(lxw_worksheet* ws, lxw_row_t r, lxw_col_t c, double v) {
  if (IsMissingValue(v) || !std::isfinite(v)) return;  // missing: an empty cell
  worksheet_write_number(ws, r, c, v, nullptr);
}

}  // namespace
#endif

bool WriteXlsx(const Report& r, const std::string& path, std::string& error) {
#ifndef VELKOR_HAVE_XLSXWRITER
  (void)r;
  (void)path;
  error = "this velkor was built without libxlsxwriter: --xlsx is not available";
  return false;
#else
  // A worksheet holds 1,048,576 rows (one for the header): refuse rather than truncate.
  constexpr std::size_t kMaxRows = 1048575;
  for (const Table& t : r.tables)
    if (t.rows() > kMaxRows) {
      error = "table '" + t.name + "' has " + std::to_string(t.rows()) +
              " rows, more than a worksheet holds; use --format csv";
      return false;
    }
  for (const Chart& c : r.charts)
    for (const Series& s : c.series)
      if (s.x.size() > kMaxRows || s.tickX.size() > kMaxRows) {
        error = "chart '" + c.name + "' has more points than a worksheet holds";
        return false;
      }
  lxw_workbook* wb = workbook_new(path.c_str());
  if (!wb) {
    error = "cannot create " + path;
    return false;
  }
  std::set<std::string> used;
  lxw_format* bold = workbook_add_format(wb);
  format_set_bold(bold);

  for (const Table& t : r.tables) {
    const std::string name = SheetName(t.name, used);
    lxw_worksheet* ws = workbook_add_worksheet(wb, name.c_str());
    for (std::size_t j = 0; j < t.columns.size(); ++j) {
      const Column& c = t.columns[j];
      const auto col = static_cast<lxw_col_t>(j);
      worksheet_write_string(ws, 0, col, c.header.c_str(), bold);
      worksheet_set_column(ws, col, col, std::max<double>(10, c.header.size() + 2), nullptr);
      if (c.text)
        for (std::size_t i = 0; i < c.s.size(); ++i)
          worksheet_write_string(ws, static_cast<lxw_row_t>(i + 1), col, c.s[i].c_str(), nullptr);
      else
        for (std::size_t i = 0; i < c.v.size(); ++i)
          WriteValue(ws, static_cast<lxw_row_t>(i + 1), col, c.v[i]);
    }
  }

  for (const Chart& ch : r.charts) {
    const std::string name = SheetName("chart " + ch.name, used);
    lxw_worksheet* ws = workbook_add_worksheet(wb, name.c_str());
    lxw_chart* chart = workbook_add_chart(wb, LXW_CHART_SCATTER_STRAIGHT);
    chart_title_set_name(chart, ch.title.c_str());
    chart_axis_set_name(chart->x_axis, ch.xLabel.c_str());
    chart_axis_set_name(chart->y_axis, ch.yLabel.c_str());
    chart_show_blanks_as(chart, LXW_CHART_BLANKS_AS_GAP);
    if (ch.unitY || ch.unitSquare) {
      chart_axis_set_min(chart->y_axis, 0);
      chart_axis_set_max(chart->y_axis, 1);
    }
    if (ch.unitSquare) {
      chart_axis_set_min(chart->x_axis, 0);
      chart_axis_set_max(chart->x_axis, 1);
    }
    std::vector<int16_t> hidden;
    int16_t index = 0;
    lxw_col_t col = 0;
    auto addSeries = [&](const std::string& label, const std::vector<double>& x,
                         const std::vector<double>& y) {
      worksheet_write_string(ws, 0, col, (label + " x").c_str(), bold);
      worksheet_write_string(ws, 0, col + 1, (label + " y").c_str(), bold);
      const std::size_t n = std::min(x.size(), y.size());
      for (std::size_t i = 0; i < n; ++i) {
        WriteValue(ws, static_cast<lxw_row_t>(i + 1), col, x[i]);
        WriteValue(ws, static_cast<lxw_row_t>(i + 1), col + 1, y[i]);
      }
      const auto last = static_cast<lxw_row_t>(std::max<std::size_t>(n, 1));
      lxw_chart_series* s = chart_add_series(chart, nullptr, nullptr);
      chart_series_set_categories(s, name.c_str(), 1, col, last, col);
      chart_series_set_values(s, name.c_str(), 1, col + 1, last, col + 1);
      chart_series_set_name(s, label.c_str());
      col += 2;
      ++index;
      return s;
    };
    for (const Series& se : ch.series) {
      lxw_chart_series* s = addSeries(se.name, se.x, se.y);
      lxw_chart_line line{};
      line.color = se.color < 0 ? 0x7F7F7F : kPalette[se.color % 8];
      line.width = se.thin ? 1.0f : 2.0f;
      if (se.dashed) line.dash_type = LXW_CHART_LINE_DASH_DASH;
      if (!se.line) line.none = 1;
      chart_series_set_line(s, &line);
      if (se.markers) {
        chart_series_set_marker_type(s, LXW_CHART_MARKER_CIRCLE);
        chart_series_set_marker_size(s, 4);
      } else {
        chart_series_set_marker_type(s, LXW_CHART_MARKER_NONE);
      }
      if (!se.legend) hidden.push_back(static_cast<int16_t>(index - 1));
      if (!se.tickX.empty()) {
        lxw_chart_series* t = addSeries(se.name + " censored", se.tickX, se.tickY);
        lxw_chart_line none{};
        none.none = 1;
        chart_series_set_line(t, &none);
        chart_series_set_marker_type(t, LXW_CHART_MARKER_PLUS);
        chart_series_set_marker_size(t, 5);
        hidden.push_back(static_cast<int16_t>(index - 1));
      }
    }
    if (!hidden.empty()) {
      hidden.push_back(-1);
      chart_legend_delete_series(chart, hidden.data());
    }
    worksheet_insert_chart(ws, 1, col + 1, chart);
  }
  const lxw_error e = workbook_close(wb);
  if (e != LXW_NO_ERROR) {
    error = "cannot write " + path + ": " + lxw_strerror(e);
    return false;
  }
  return true;
#endif
}

}  // namespace velkor_cli
