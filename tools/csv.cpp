#include "csv.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace velkor_cli {

namespace {

std::vector<std::string> split_record(const std::string& line) {
  std::vector<std::string> fields;
  std::string field;
  bool quoted = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (quoted) {
      if (c == '"' && i + 1 < line.size() && line[i + 1] == '"') {
        field += '"';
        ++i;
      } else if (c == '"') {
        quoted = false;
      } else {
        field += c;
      }
    } else if (c == '"') {
      quoted = true;
    } else if (c == ',') {
      fields.push_back(field);
      field.clear();
    } else if (c != '\r') {
      field += c;
    }
  }
  fields.push_back(field);
  return fields;
}

}  // namespace

int CsvTable::column(const std::string& name) const {
  for (std::size_t j = 0; j < names.size(); ++j)
    if (names[j] == name) return static_cast<int>(j);
  return -1;
}

bool ReadCsv(const std::string& path, CsvTable& table, std::string& error) {
  std::ifstream in(path);
  if (!in) {
    error = "cannot open " + path;
    return false;
  }
  std::string line;
  if (!std::getline(in, line)) {
    error = path + " is empty";
    return false;
  }
  table.names = split_record(line);
  while (std::getline(in, line)) {
    if (line.empty() || line == "\r") continue;
    std::vector<std::string> fields = split_record(line);
    fields.resize(table.names.size());
    table.rows.push_back(std::move(fields));
  }
  return true;
}

bool ParseNumber(const std::string& field, double& value) {
  if (field.empty() || field == "NA") return false;
  char* end = nullptr;
  value = std::strtod(field.c_str(), &end);
  while (end && (*end == ' ' || *end == '\t')) ++end;
  return end != field.c_str() && end && *end == '\0';
}

}  // namespace velkor_cli
