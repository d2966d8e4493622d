#include "companion/basic.h"

#include <cstdio>

std::string DecimalFormat(double x, int decimals) {
  if (std::isnan(x)) return "NaN";
  if (std::isinf(x)) return x > 0 ? "Inf" : "-Inf";
  const int d = decimals < 0 ? 0 : (decimals > 17 ? 17 : decimals);
  char buf[400];
  std::snprintf(buf, sizeof buf, "%.*f", d, x);
  return buf;
}

std::u16string cReplace(const std::u16string& text, const std::u16string& what,
                        const std::u16string& with) {
  if (what.empty()) return text;
  std::u16string out;
  std::size_t pos = 0;
  while (true) {
    const std::size_t hit = text.find(what, pos);
    if (hit == std::u16string::npos) break;
    out.append(text, pos, hit - pos);
    out += with;
    pos = hit + what.size();
  }
  out.append(text, pos, std::u16string::npos);
  return out;
}
