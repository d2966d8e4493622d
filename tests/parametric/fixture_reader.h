// Readers of the parametric fixtures made by tests/reference/parametric/make_fixtures.R and
// newton_path.R.
#pragma once

#include <algorithm>
#include <cmath>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace param_fixture {

// The rows of tests/reference/parametric/<file> after its header, as cells.
inline std::vector<std::vector<std::string>> ReadCsv(const std::string& file, int* columns) {
  std::ifstream in(std::string(VELKOR_TEST_DATA_DIR) + "/parametric/" + file);
  std::vector<std::vector<std::string>> rows;
  std::string line, cell;
  for (bool header = true; std::getline(in, line); header = false) {
    std::vector<std::string> cells;
    std::stringstream ss(line);
    while (std::getline(ss, cell, ',')) cells.push_back(cell);
    if (header)
      *columns = static_cast<int>(cells.size());
    else if (static_cast<int>(cells.size()) == *columns)
      rows.push_back(cells);
  }
  return rows;
}

// One data set: log times, codes, log upper bounds, weights and an n x p column-major design.
struct DataSet {
  std::vector<double> y, code, upper, w, x;
  int n = 0, p = 0;
  std::vector<double> bounds() const {  // n x 2: lower (= y), upper
    std::vector<double> b(y);
    b.insert(b.end(), upper.begin(), upper.end());
    return b;
  }
};

inline DataSet ReadData(const std::string& name) {
  DataSet d;
  int cols = 0;
  const auto rows = ReadCsv("data_" + name + ".csv", &cols);
  d.n = static_cast<int>(rows.size());
  d.p = cols - 4;
  d.x.resize(static_cast<std::size_t>(d.n * d.p));
  for (int i = 0; i < d.n; ++i) {
    const auto& c = rows[static_cast<std::size_t>(i)];
    d.y.push_back(std::stod(c[0]));
    d.code.push_back(std::stod(c[1]));
    d.upper.push_back(std::stod(c[2]));
    d.w.push_back(std::stod(c[3]));
    for (int j = 0; j < d.p; ++j) d.x[static_cast<std::size_t>(j * d.n + i)] = std::stod(c[4 + j]);
  }
  return d;
}

// A reference case of expected.csv: its data set, law, weighting and the vectors of each kind.
struct Case {
  std::string data;
  int dist = 0;
  bool weighted = false;
  std::map<std::string, std::vector<double>> values;
};

inline std::map<std::string, Case> ReadExpected() {
  std::map<std::string, Case> cases;
  int cols = 0;
  for (const auto& c : ReadCsv("expected.csv", &cols)) {
    Case& k = cases[c[0]];
    k.data = c[1];
    k.dist = std::stoi(c[2]);
    k.weighted = c[3] == "1";
    k.values[c[4]].push_back(std::stod(c[6]));
  }
  return cases;
}

inline double RelErrStrict(double a, double b) {
  return std::fabs(a - b) / std::max(1e-300, std::fabs(b));
}

}  // namespace param_fixture
