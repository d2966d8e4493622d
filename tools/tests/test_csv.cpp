// RFC 4180 reading: quoting, line endings, missing cells, and errors naming line and column.
#include <gtest/gtest.h>

#include <cmath>

#include "csv.h"

using velkor_cli::CsvTable;

namespace {

CsvTable Parsed(const std::string& text) {
  CsvTable t;
  std::string error;
  EXPECT_TRUE(t.parse(text, "in.csv", error)) << error;
  return t;
}

std::string ErrorOf(const std::string& text) {
  CsvTable t;
  std::string error;
  EXPECT_FALSE(t.parse(text, "in.csv", error));
  return error;
}

}  // namespace

TEST(CsvReader, QuotingLineEndingsAndBlankLines) {
  const CsvTable t = Parsed(
      "\xEF\xBB\xBF"
      "a,\"b c\",d\r\n"
      "1,\"x, \"\"quoted\"\"\",3\r\n"
      "\n"
      "2,\"two\nlines\",\r\n"
      "3,plain,4");  // no final line break
  ASSERT_EQ(t.columns(), 3u);
  EXPECT_EQ(t.names()[0], "a");  // byte order mark dropped
  EXPECT_EQ(t.names()[1], "b c");
  ASSERT_EQ(t.rows(), 3u);
  EXPECT_EQ(t.field(0, 1), "x, \"quoted\"");
  EXPECT_EQ(t.field(1, 1), "two\nlines");
  EXPECT_EQ(t.field(1, 2), "");
  EXPECT_EQ(t.field(2, 1), "plain");
  EXPECT_EQ(t.line_of(2), 6u);  // the quoted line break counts
  EXPECT_EQ(t.column("d"), 2);
  EXPECT_EQ(t.column("zz"), -1);
}

TEST(CsvReader, NumbersAndMissingCells) {
  const CsvTable t = Parsed("x\n1.5\n\nNA\n -2e3 \n+4\n\"7\"\ninf\n");
  std::vector<double> v;
  std::string error;
  ASSERT_TRUE(t.numeric(0, v, error)) << error;
  ASSERT_EQ(v.size(), 6u);  // the blank line is skipped, not a missing cell
  EXPECT_EQ(v[0], 1.5);
  EXPECT_TRUE(std::isnan(v[1]));
  EXPECT_EQ(v[2], -2000.0);
  EXPECT_EQ(v[3], 4.0);
  EXPECT_EQ(v[4], 7.0);
  EXPECT_TRUE(std::isinf(v[5]));
  const CsvTable empty = Parsed("x,y\n1,\n2,\"\"\n");
  ASSERT_TRUE(empty.numeric(1, v, error));
  EXPECT_TRUE(std::isnan(v[0]) && std::isnan(v[1]));
}

TEST(CsvReader, ErrorsNameTheLineAndColumn) {
  EXPECT_EQ(ErrorOf(""), "in.csv is empty");
  EXPECT_EQ(ErrorOf("\n\n"), "in.csv is empty");
  EXPECT_EQ(ErrorOf("a,b\n"), "in.csv has a header row but no data rows");
  EXPECT_EQ(ErrorOf("a,b\n1,2\n3\n"), "in.csv: line 3 has 1 fields, the header has 2");
  EXPECT_EQ(ErrorOf("a,b\n1,2,3\n"), "in.csv: line 2 has 3 fields, the header has 2");
  EXPECT_NE(ErrorOf("a,b\n1,\"2\n").find("line 2: a quoted field is not closed"),
            std::string::npos);
  EXPECT_NE(ErrorOf("a,b\n1,\"2\"x\n").find("text after a closing quote"), std::string::npos);
  const CsvTable t = Parsed("time,status\n1,1\n2,dead\n");
  std::vector<double> v;
  std::string error;
  EXPECT_FALSE(t.numeric(1, v, error));
  EXPECT_EQ(error, "line 3, column 'status': 'dead' is not a number");
  EXPECT_FALSE(velkor_cli::ParseNumber("1.5x", v[0]));
  EXPECT_FALSE(velkor_cli::ParseNumber("", v[0]));
}
