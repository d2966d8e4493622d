#include "commands.h"

#include <chrono>
#include <cstdio>

namespace velkor_cli {

int ExitForStatus(int status) {
  if (status == 0 || status == -3) return kExitOk;
  if (status < 0) return kExitDataBase - status;
  return kExitInternalBase + status;
}

void Warn(const std::string& cmd, const std::string& text) {
  std::fprintf(stderr, "velkor %s: warning: %s\n", cmd.c_str(), text.c_str());
}

void Fail(const std::string& cmd, const std::string& text) {
  std::fprintf(stderr, "velkor %s: error: %s\n", cmd.c_str(), text.c_str());
}

std::vector<OptionDef> CommonOptions() {
  return {{"--alpha", "A", "significance level of limits and tests", "0.05"},
          {"--format", "text|csv|json", "output on stdout", "text"},
          {"--svg", "FILE.svg", "write the charts as SVG (several charts: FILE-NAME.svg)", ""},
          {"--xlsx", "FILE.xlsx", "write a workbook: one sheet per table, native charts", ""},
          {"--timing", "", "print the wall time of each phase to stderr", ""},
          {"--quiet", "", "no progress indicator on stderr (errors and warnings still shown)", ""},
          {"--help", "", "this help", ""}};
}

namespace {
double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}
}  // namespace

PhaseTimer::PhaseTimer(bool on) : on_(on), last_(Now()) {}

void PhaseTimer::lap(const char* phase) {
  const double t = Now();
  if (on_) std::fprintf(stderr, "timing: %-45s %9.3f s\n", phase, t - last_);
  last_ = t;
}

void PhaseTimer::libBegin() {
  libStart_ = Now();
}

void PhaseTimer::libEnd() {
  lib_ += Now() - libStart_;
}

void PhaseTimer::libTotal() {
  if (on_) std::fprintf(stderr, "timing: %-45s %9.3f s\n", "  of which library calls", lib_);
}

const std::string& Args::get(const std::string& o) const {
  static const std::string empty;
  const auto it = values.find(o);
  return it == values.end() ? empty : it->second;
}

double Args::number(const std::string& o) const {
  double v = 0;
  ParseNumber(get(o), v);
  return v;
}

std::string Help(const Command& c) {
  std::string h = "usage: velkor " + c.name + " " + c.usage + "\n  " + c.summary + "\noptions:\n";
  std::vector<OptionDef> all = c.options;
  for (const OptionDef& o : CommonOptions()) all.push_back(o);
  for (const OptionDef& o : all) {
    std::string left = "  " + o.name + (o.arg.empty() ? "" : " " + o.arg);
    if (left.size() < 28)
      left.resize(28, ' ');
    else
      left += "\n" + std::string(28, ' ');
    h += left + o.help + (o.fallback.empty() ? "" : " (default " + o.fallback + ")") + "\n";
  }
  return h;
}

int Parse(const Command& c, int argc, char** argv, Args& a,
          const std::vector<std::string>& numericOptions) {
  std::vector<OptionDef> all = c.options;
  for (const OptionDef& o : CommonOptions()) all.push_back(o);
  auto usageError = [&](const std::string& text) {
    Fail(c.name, text + " (velkor " + c.name + " --help)");
    return static_cast<int>(kExitUsage);
  };
  for (int i = 0; i < argc; ++i) {
    std::string arg = argv[i], value;
    const std::size_t eq = arg.find('=');
    bool inlineValue = false;
    if (arg.rfind("--", 0) == 0 && eq != std::string::npos) {
      value = arg.substr(eq + 1);
      arg = arg.substr(0, eq);
      inlineValue = true;
    }
    if (arg == "--help" || arg == "-h") {
      std::fputs(Help(c).c_str(), stdout);
      return kExitOk;
    }
    if (arg.size() > 1 && arg[0] == '-') {
      const OptionDef* def = nullptr;
      for (const OptionDef& o : all)
        if (o.name == arg) def = &o;
      if (!def) return usageError("unknown option " + arg);
      if (def->arg.empty()) {
        if (inlineValue) return usageError(arg + " takes no value");
        a.values[arg] = "1";
        continue;
      }
      if (!inlineValue) {
        if (i + 1 >= argc) return usageError("missing value after " + arg);
        value = argv[++i];
      }
      a.values[arg] = value;
      continue;
    }
    if (!a.file.empty()) return usageError("unexpected argument '" + arg + "'");
    a.file = arg;
  }
  if (a.file.empty()) return usageError("no input FILE.csv given");
  for (const OptionDef& o : all)
    if (!o.fallback.empty() && !a.has(o.name)) a.values[o.name] = o.fallback;
  for (const std::string& o : numericOptions) {
    double v = 0;
    if (a.has(o) && !ParseNumber(a.get(o), v))
      return usageError(o + " expects a number, got '" + a.get(o) + "'");
  }
  const double alpha = a.number("--alpha");
  if (!(alpha > 0 && alpha < 1)) return usageError("--alpha must lie in (0, 1)");
  const std::string& f = a.get("--format");
  if (f != "text" && f != "csv" && f != "json")
    return usageError("--format must be text, csv or json, not '" + f + "'");
  return -1;
}

bool LoadCsv(const std::string& cmd, const std::string& path, CsvTable& csv) {
  std::string error;
  if (!ReadCsv(path, csv, error)) {
    Fail(cmd, error);
    return false;
  }
  return true;
}

bool NumericColumn(const std::string& cmd, const CsvTable& csv, const std::string& name,
                   std::vector<double>& out) {
  const int c = TextColumnIndex(cmd, csv, name);
  if (c < 0) return false;
  std::string error;
  if (!csv.numeric(static_cast<std::size_t>(c), out, error)) {
    Fail(cmd, error);
    return false;
  }
  return true;
}

int TextColumnIndex(const std::string& cmd, const CsvTable& csv, const std::string& name) {
  const int c = csv.column(name);
  if (c < 0) {
    std::string known;
    for (const std::string& n : csv.names()) known += (known.empty() ? "" : ", ") + n;
    Fail(cmd, "no column named '" + name + "' (columns: " + known + ")");
  }
  return c;
}

int Emit(const std::string& cmd, const Args& a, const Report& r) {
  // Report files first, so that a failure leaves no complete-looking output on stdout.
  std::string error;
  if (a.has("--svg")) {
    std::vector<std::string> written;
    if (!WriteSvg(r, a.get("--svg"), written, error)) {
      Fail(cmd, error);
      return kExitOutput;
    }
  }
  if (a.has("--xlsx") && !WriteXlsx(r, a.get("--xlsx"), error)) {
    Fail(cmd, error);
    return kExitOutput;
  }
  const std::string& f = a.get("--format");
  if (f == "csv")
    WriteCsv(r, stdout);
  else if (f == "json")
    WriteJson(r, stdout);
  else
    WriteText(r, stdout);
  return std::fflush(stdout) == 0 ? kExitOk : kExitOutput;
}

}  // namespace velkor_cli
