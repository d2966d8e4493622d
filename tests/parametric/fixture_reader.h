// Reader of the parametric fixtures made by tests/reference/parametric/make_fixtures.R.
#pragma once

#include <cmath>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace param_fixture {

// One data set: log times, codes, log upper bounds, weights and a column-major design.
struct DataSet {
  std::vector<double> y, code, upper, w, x;  // x: n x p, column-major
  int n = 0, p = 0;
  std::vector<double> bounds() const {  // n x 2: lower (= y), upper
    std::vector<double> b(y);
    b.insert(b.end(), upper.begin(), upper.end());
    return b;
  }
};

inline std::vector<std::string> SplitCsv(const std::string& line) {
  std::vector<std::string> out;
  std::stringstream ss(line);
  std::string cell;
  while (std::getline(ss, cell, ',')) out.push_back(cell);
  return out;
}

inline std::string Dir() {
  return std::string(VELKOR_TEST_DATA_DIR) + "/parametric/";
}

inline DataSet ReadData(const std::string& name) {
  DataSet d;
  std::ifstream in(Dir() + "data_" + name + ".csv");
  std::string line;
  std::getline(in, line);
  d.p = static_cast<int>(SplitCsv(line).size()) - 4;
  std::vector<std::vector<double>> cols(static_cast<std::size_t>(d.p));
  while (std::getline(in, line)) {
    const auto c = SplitCsv(line);
    if (c.size() < 4) continue;
    d.y.push_back(std::stod(c[0]));
    d.code.push_back(std::stod(c[1]));
    d.upper.push_back(std::stod(c[2]));
    d.w.push_back(std::stod(c[3]));
    for (int j = 0; j < d.p; ++j)
      cols[static_cast<std::size_t>(j)].push_back(std::stod(c[static_cast<std::size_t>(4 + j)]));
  }
  d.n = static_cast<int>(d.y.size());
  for (auto& col : cols) d.x.insert(d.x.end(), col.begin(), col.end());
  return d;
}

// A reference case: its data set, law, weighting and the vectors of each kind.
struct Case {
  std::string name, data;
  int dist = 0;
  bool weighted = false;
  std::map<std::string, std::vector<double>> values;
};

inline std::map<std::string, Case> ReadExpected() {
  std::map<std::string, Case> cases;
  std::ifstream in(Dir() + "expected.csv");
  std::string line;
  std::getline(in, line);
  while (std::getline(in, line)) {
    const auto c = SplitCsv(line);
    if (c.size() < 7) continue;
    Case& k = cases[c[0]];
    k.name = c[0];
    k.data = c[1];
    k.dist = std::stoi(c[2]);
    k.weighted = c[3] == "1";
    k.values[c[4]].push_back(std::stod(c[6]));
  }
  return cases;
}

inline double RelErr(double a, double b) {
  return std::fabs(a - b) / std::max(1.0, std::fabs(b));
}
inline double RelErrStrict(double a, double b) {
  return std::fabs(a - b) / std::max(1e-300, std::fabs(b));
}

}  // namespace param_fixture
