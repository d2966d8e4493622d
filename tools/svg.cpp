// Standalone SVG charts: axes with rounded ticks, step and line series, censoring ticks, a
// legend, and under survival curves the number-at-risk table.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "report.h"

namespace velkor_cli {

namespace {

const char* const kPalette[] = {"#1f77b4", "#d62728", "#2ca02c", "#9467bd",
                                "#ff7f0e", "#8c564b", "#e377c2", "#17becf"};
const char* Color(long i) {
  return i < 0 ? "#7f7f7f" : kPalette[i % 8];
}

std::string Escape(const std::string& s) {
  std::string out;
  for (char c : s) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string F(double v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.2f", v);
  return buf;
}

// Tick step 1, 2 or 5 times a power of ten giving about `target` intervals over [lo, hi].
double NiceStep(double lo, double hi, int target) {
  const double raw = (hi - lo) / target;
  if (!(raw > 0) || !std::isfinite(raw)) return 1;
  const double p = std::pow(10.0, std::floor(std::log10(raw)));
  const double m = raw / p;
  return (m < 1.5 ? 1 : m < 3.5 ? 2 : m < 7.5 ? 5 : 10) * p;
}

std::string TickLabel(double v, double step) {
  const int dec = step >= 1 ? 0 : static_cast<int>(std::ceil(-std::log10(step) - 1e-9));
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.*f", std::max(dec, 0), std::abs(v) < step * 1e-9 ? 0.0 : v);
  return buf;
}

}  // namespace

std::string SvgDocument(const Chart& c) {
  // Data range.
  double x0 = INFINITY, x1 = -INFINITY, y0 = INFINITY, y1 = -INFINITY;
  for (const Series& s : c.series)
    for (std::size_t i = 0; i < s.x.size() && i < s.y.size(); ++i) {
      if (IsMissingValue(s.x[i]) || IsMissingValue(s.y[i]) || !std::isfinite(s.x[i]) ||
          !std::isfinite(s.y[i]) || std::abs(s.y[i]) > 1e300)
        continue;
      x0 = std::min(x0, s.x[i]);
      x1 = std::max(x1, s.x[i]);
      y0 = std::min(y0, s.y[i]);
      y1 = std::max(y1, s.y[i]);
    }
  if (!(x0 <= x1)) x0 = 0, x1 = 1;
  if (!(y0 <= y1)) y0 = 0, y1 = 1;
  if (c.unitY || c.unitSquare) y0 = 0, y1 = 1;
  if (c.unitSquare) x0 = 0, x1 = 1;
  if (x0 > 0 && !c.unitSquare && x0 < 0.5 * x1) x0 = 0;
  if (x1 - x0 < 1e-12) x0 -= 0.5, x1 += 0.5;
  if (y1 - y0 < 1e-12) y0 -= 0.5, y1 += 0.5;
  const double xs = NiceStep(x0, x1, 8), ys = NiceStep(y0, y1, 5);
  if (!c.unitSquare) x0 = std::floor(x0 / xs) * xs, x1 = std::ceil(x1 / xs - 1e-9) * xs;
  if (!c.unitY && !c.unitSquare) y0 = std::floor(y0 / ys) * ys, y1 = std::ceil(y1 / ys - 1e-9) * ys;

  const double W = 760, left = 70, right = 20, top = 50;
  const double plotW = W - left - right, plotH = c.unitSquare ? plotW * 0.75 : 340;
  const double riskH = c.riskRows.empty() ? 0 : 30 + 18.0 * static_cast<double>(c.riskRows.size());
  const double H = top + plotH + 55 + riskH;
  auto px = [&](double x) { return left + (x - x0) / (x1 - x0) * plotW; };
  auto py = [&](double y) { return top + plotH - (y - y0) / (y1 - y0) * plotH; };

  std::ostringstream o;
  o << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << W << "\" height=\"" << F(H)
    << "\" viewBox=\"0 0 " << W << ' ' << F(H)
    << "\" font-family=\"Helvetica, Arial, sans-serif\" font-size=\"12\">\n"
    << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n"
    << "<text x=\"" << W / 2 << "\" y=\"24\" text-anchor=\"middle\" font-size=\"15\" "
    << "font-weight=\"bold\">" << Escape(c.title) << "</text>\n";
  // Grid, ticks and labels.
  o << "<g stroke=\"#e5e5e5\">\n";
  for (double t = x0; t <= x1 + xs * 1e-6; t += xs)
    o << "<line x1=\"" << F(px(t)) << "\" y1=\"" << top << "\" x2=\"" << F(px(t)) << "\" y2=\""
      << F(top + plotH) << "\"/>\n";
  for (double t = y0; t <= y1 + ys * 1e-6; t += ys)
    o << "<line x1=\"" << left << "\" y1=\"" << F(py(t)) << "\" x2=\"" << F(left + plotW)
      << "\" y2=\"" << F(py(t)) << "\"/>\n";
  o << "</g>\n<g fill=\"#333\">\n";
  for (double t = x0; t <= x1 + xs * 1e-6; t += xs)
    o << "<text x=\"" << F(px(t)) << "\" y=\"" << F(top + plotH + 16)
      << "\" text-anchor=\"middle\">" << TickLabel(t, xs) << "</text>\n";
  for (double t = y0; t <= y1 + ys * 1e-6; t += ys)
    o << "<text x=\"" << left - 6 << "\" y=\"" << F(py(t) + 4) << "\" text-anchor=\"end\">"
      << TickLabel(t, ys) << "</text>\n";
  o << "<text x=\"" << F(left + plotW / 2) << "\" y=\"" << F(top + plotH + 36)
    << "\" text-anchor=\"middle\">" << Escape(c.xLabel) << "</text>\n"
    << "<text transform=\"translate(18 " << F(top + plotH / 2)
    << ") rotate(-90)\" text-anchor=\"middle\">" << Escape(c.yLabel) << "</text>\n</g>\n"
    << "<rect x=\"" << left << "\" y=\"" << top << "\" width=\"" << F(plotW) << "\" height=\""
    << F(plotH) << "\" fill=\"none\" stroke=\"#333\"/>\n";
  // Series, clipped to the plot area.
  o << "<clipPath id=\"plot\"><rect x=\"" << left << "\" y=\"" << top << "\" width=\"" << F(plotW)
    << "\" height=\"" << F(plotH) << "\"/></clipPath>\n<g clip-path=\"url(#plot)\" "
    << "fill=\"none\" stroke-linejoin=\"round\">\n";
  for (const Series& s : c.series) {
    const std::string col = Color(s.color);
    if (s.line) {
      std::string d;
      bool pen = false;
      for (std::size_t i = 0; i < s.x.size() && i < s.y.size(); ++i) {
        if (IsMissingValue(s.x[i]) || IsMissingValue(s.y[i]) || !std::isfinite(s.x[i]) ||
            !std::isfinite(s.y[i]) || std::abs(s.y[i]) > 1e300) {
          pen = false;
          continue;
        }
        d += (pen ? " L" : " M") + F(px(s.x[i])) + ' ' + F(py(s.y[i]));
        pen = true;
      }
      if (!d.empty())
        o << "<path d=\"" << d << "\" stroke=\"" << col << "\" stroke-width=\""
          << (s.thin ? "1" : "2") << "\"" << (s.dashed ? " stroke-dasharray=\"5 4\"" : "")
          << "/>\n";
    }
    if (s.markers)
      for (std::size_t i = 0; i < s.x.size() && i < s.y.size(); ++i)
        if (!IsMissingValue(s.x[i]) && !IsMissingValue(s.y[i]) && std::isfinite(s.x[i]) &&
            std::isfinite(s.y[i]))
          o << "<circle cx=\"" << F(px(s.x[i])) << "\" cy=\"" << F(py(s.y[i]))
            << "\" r=\"2.5\" fill=\"" << col << "\" fill-opacity=\"0.6\" stroke=\"none\"/>\n";
    for (std::size_t i = 0; i < s.tickX.size() && i < s.tickY.size(); ++i)
      if (!IsMissingValue(s.tickX[i]) && !IsMissingValue(s.tickY[i]))
        o << "<line x1=\"" << F(px(s.tickX[i])) << "\" y1=\"" << F(py(s.tickY[i]) - 4) << "\" x2=\""
          << F(px(s.tickX[i])) << "\" y2=\"" << F(py(s.tickY[i]) + 4) << "\" stroke=\"" << col
          << "\" stroke-width=\"1.2\"/>\n";
  }
  o << "</g>\n";
  // Legend (top right inside the plot).
  int entries = 0;
  std::size_t longest = 0;
  for (const Series& s : c.series)
    if (s.legend) ++entries, longest = std::max(longest, s.name.size());
  if (entries > 0) {
    const double lw = 40 + 6.5 * static_cast<double>(longest), lh = 8 + 18.0 * entries;
    const double lx = c.legendLeft ? left + 8 : left + plotW - lw - 8;
    const double ly = c.unitSquare ? top + plotH - lh - 8 : top + 8;
    o << "<g><rect x=\"" << F(lx) << "\" y=\"" << F(ly) << "\" width=\"" << F(lw) << "\" height=\""
      << F(lh) << "\" fill=\"white\" fill-opacity=\"0.85\" stroke=\"#999\"/>\n";
    int k = 0;
    for (const Series& s : c.series) {
      if (!s.legend) continue;
      const double yy = ly + 16 + 18.0 * k++;
      o << "<line x1=\"" << F(lx + 6) << "\" y1=\"" << F(yy - 4) << "\" x2=\"" << F(lx + 28)
        << "\" y2=\"" << F(yy - 4) << "\" stroke=\"" << Color(s.color) << "\" stroke-width=\"2\""
        << (s.dashed ? " stroke-dasharray=\"5 4\"" : "") << "/>\n<text x=\"" << F(lx + 34)
        << "\" y=\"" << F(yy) << "\">" << Escape(s.name) << "</text>\n";
    }
    o << "</g>\n";
  }
  // Number at risk.
  if (!c.riskRows.empty()) {
    double ry = top + plotH + 62;
    o << "<g><text x=\"" << 8 << "\" y=\"" << F(ry) << "\" font-weight=\"bold\">Number at risk"
      << "</text>\n";
    for (const Chart::RiskRow& row : c.riskRows) {
      ry += 18;
      o << "<text x=\"8\" y=\"" << F(ry) << "\" fill=\"" << Color(&row - c.riskRows.data()) << "\">"
        << Escape(row.label.substr(0, 10)) << "</text>\n";
      for (double t = x0; t <= x1 + xs * 1e-6; t += xs) {
        const auto it = std::lower_bound(row.times.begin(), row.times.end(), t - xs * 1e-9);
        const std::size_t k = static_cast<std::size_t>(it - row.times.begin());
        const double count = k < row.atRisk.size() ? row.atRisk[k] : 0.0;
        char buf[32];
        std::snprintf(buf, sizeof buf, "%.0f", count);
        o << "<text x=\"" << F(px(t)) << "\" y=\"" << F(ry) << "\" text-anchor=\"middle\">" << buf
          << "</text>\n";
      }
    }
    o << "</g>\n";
  }
  o << "</svg>\n";
  return o.str();
}

bool WriteSvg(const Report& r, const std::string& path, std::vector<std::string>& written,
              std::string& error) {
  std::string stem = path;
  if (stem.size() > 4 && stem.compare(stem.size() - 4, 4, ".svg") == 0)
    stem.resize(stem.size() - 4);
  for (const Chart& c : r.charts) {
    const std::string file = r.charts.size() == 1 ? path : stem + "-" + c.name + ".svg";
    std::ofstream out(file, std::ios::binary);
    out << SvgDocument(c);
    out.close();
    if (!out) {
      error = "cannot write " + file;
      return false;
    }
    written.push_back(file);
  }
  return true;
}

}  // namespace velkor_cli
