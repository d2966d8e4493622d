// Writers: CSV and JSON carry every digit and write missing values as empty cells / null; the
// SVG document is self-contained and escapes text.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "report.h"
#include "velkor/status.h"

using namespace velkor_cli;

namespace {

std::string Captured(void (*writer)(const Report&, std::FILE*), const Report& r) {
  std::FILE* f = std::tmpfile();
  writer(r, f);
  std::rewind(f);
  std::string s;
  char buf[4096];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) s.append(buf, n);
  std::fclose(f);
  return s;
}

Report Sample() {
  Report r;
  r.command = "km";
  r.title = "t";
  r.options = {{"alpha", "0.05"}};
  Table& t = r.tables.emplace_back(Table{"tab", "Tab", {}});
  t.text("name").s = {"a,b", "c"};
  t.num("value", 2).v = {0.1, VELKOR_MISSING};
  return r;
}

}  // namespace

TEST(ReportWriters, CsvHeaderExactDigitsAndEmptyMissing) {
  const std::string csv = Captured(WriteCsv, Sample());
  EXPECT_EQ(csv.rfind("# velkor ", 0), 0u);
  EXPECT_NE(csv.find("# alpha: 0.05\n"), std::string::npos);
  EXPECT_NE(csv.find("# table: tab\nname,value\n\"a,b\",0.10000000000000001\nc,\n"),
            std::string::npos);
  EXPECT_EQ(std::strtod("0.10000000000000001", nullptr), 0.1);
}

TEST(ReportWriters, JsonNullForMissing) {
  const std::string json = Captured(WriteJson, Sample());
  EXPECT_NE(json.find("\"value\": [0.10000000000000001, null]"), std::string::npos);
  EXPECT_NE(json.find("\"name\": [\"a,b\", \"c\"]"), std::string::npos);
}

TEST(ReportWriters, SvgEscapesTextAndSkipsMissingPoints) {
  Chart c("c", "A < B & C", "x", "y");
  Series s;
  s.name = "g\"1";
  s.x = {0, 1, 2, 3};
  s.y = {1, VELKOR_MISSING, 0.5, 0.25};
  c.series.push_back(s);
  const std::string svg = SvgDocument(c);
  EXPECT_NE(svg.find("A &lt; B &amp; C"), std::string::npos);
  EXPECT_NE(svg.find("g&quot;1"), std::string::npos);
  EXPECT_EQ(svg.find("e+308"), std::string::npos);
  // The missing point breaks the line: two move-to commands.
  const std::size_t path = svg.find("<path d=\"");
  ASSERT_NE(path, std::string::npos);
  const std::string d = svg.substr(path, svg.find('"', path + 9) - path);
  EXPECT_EQ(std::count(d.begin(), d.end(), 'M'), 2);
}
