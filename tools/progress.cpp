#include <unistd.h>

#include <cstdio>

#include "commands.h"
#include "cox_validation.h"

namespace velkor_cli {

bool ProgressWanted(const Args& a) {
  return !a.has("--quiet") && isatty(fileno(stderr)) == 1;
}

Progress::Progress(std::string cmd, bool enabled) : cmd_(std::move(cmd)), on_(enabled) {}

Progress::~Progress() {
  // Erase the indicator so that warnings and the shell prompt start on a clean line.
  if (shown_) std::fputs("\r\033[K", stderr);
}

int Progress::Callback(int phase, long long done, long long total, void* self) {
  auto* p = static_cast<Progress*>(self);
  if (!p->on_ || total <= 0) return 1;
  const char* what = phase == VELKOR_PHASE_CROSS_VALIDATION ? "cross-validation folds"
                     : phase == VELKOR_PHASE_BOOTSTRAP      ? "bootstrap replicates"
                                                            : "work";
  std::fprintf(stderr, "\r\033[Kvelkor %s: %s %lld/%lld (%d%%)", p->cmd_.c_str(), what, done, total,
               static_cast<int>(100 * done / total));
  std::fflush(stderr);
  p->shown_ = true;
  return 1;
}

}  // namespace velkor_cli
