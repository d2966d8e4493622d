// What every velkor subcommand shares: option parsing, column loading, exit codes, and writing
// the report in the requested formats.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "csv.h"
#include "report.h"

namespace velkor_cli {

// Exit codes of the tool.
enum ExitCode : int {
  kExitOk = 0,
  kExitUsage = 2,         // unknown option, missing or bad option value, missing FILE
  kExitInput = 3,         // unreadable, empty or malformed CSV; missing column; non-numeric cell
  kExitOutput = 4,        // a report file (--svg, --xlsx) cannot be written
  kExitDataBase = 10,     // 10 + |status|: the library stopped on a data condition (-1, -2, -5)
  kExitInternalBase = 20  // 20 + status: an internal failure of the library (1, 2, 3)
};
int ExitForStatus(int status);

struct OptionDef {
  std::string name;  // "--time"
  std::string arg;   // value placeholder, empty for a flag
  std::string help;
  std::string fallback;  // default value shown in the help ("" = none)
};

struct Command {
  std::string name, summary, usage;
  std::vector<OptionDef> options;  // the common ones are added by Parse
};

// Parsed command line: FILE and the option values (flags map to "1"); defaults filled in.
struct Args {
  std::string file;
  std::map<std::string, std::string> values;
  bool has(const std::string& o) const { return values.count(o) > 0; }
  const std::string& get(const std::string& o) const;
  double number(const std::string& o) const;  // call only after Parse validated it
};

// Parses argv (the arguments after the subcommand). Returns -1 when parsing succeeded, else the
// exit code (0 after --help, kExitUsage on an error, with a one-line message on stderr).
int Parse(const Command& c, int argc, char** argv, Args& a,
          const std::vector<std::string>& numericOptions);

// Help text of a command.
std::string Help(const Command& c);

// Loads the CSV and the named numeric columns; one-line error on stderr and false on failure.
bool LoadCsv(const std::string& cmd, const std::string& path, CsvTable& csv);
bool NumericColumn(const std::string& cmd, const CsvTable& csv, const std::string& name,
                   std::vector<double>& out);
int TextColumnIndex(const std::string& cmd, const CsvTable& csv, const std::string& name);

// Writes the report: stdout in the chosen format, then --svg and --xlsx files. Returns the exit
// code (kExitOk or kExitOutput).
int Emit(const std::string& cmd, const Args& a, const Report& r);

// A data warning on standard error ("velkor km: warning: ...").
void Warn(const std::string& cmd, const std::string& text);
void Fail(const std::string& cmd, const std::string& text);

// Wall-clock time of the phases of a command, printed to stderr when enabled (--timing).
class PhaseTimer {
 public:
  explicit PhaseTimer(bool on);
  void lap(const char* phase);
  // Brackets a library call; the total is printed by libTotal().
  void libBegin();
  void libEnd();
  void libTotal();

 private:
  bool on_;
  double last_, libStart_ = 0, lib_ = 0;
};

// Progress of long library work (bootstrap, cross-validation) on standard error, rewritten in
// place: "velkor cox: bootstrap replicates 48/200 (24%)". Shown only when standard error is a
// terminal and --quiet is not given; erased when the object goes out of scope.
bool ProgressWanted(const Args& a);
class Progress {
 public:
  Progress(std::string cmd, bool enabled);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  // velkor_progress_fn of cox_validation.h; `self` is the Progress. Never asks to stop.
  static int Callback(int phase, long long done, long long total, void* self);

 private:
  std::string cmd_;
  bool on_;
  bool shown_ = false;
};

// Options shared by every analysis command.
std::vector<OptionDef> CommonOptions();

// Subcommands.
extern const Command kKmCommand;
int RunKm(const Args& a);
extern const Command kRocCommand;
int RunRoc(const Args& a);
extern const Command kBlandAltmanCommand;
int RunBlandAltman(const Args& a);
extern const Command kRepeatabilityCommand;
int RunRepeatability(const Args& a);
extern const Command kPassingBablokCommand;
int RunPassingBablok(const Args& a);
extern const Command kCoxCommand;
int RunCox(const Args& a);
extern const Command kSurvregCommand;
int RunSurvreg(const Args& a);
extern const Command kCumincCommand;
int RunCuminc(const Args& a);
extern const Command kDemingCommand;
int RunDeming(const Args& a);

}  // namespace velkor_cli
