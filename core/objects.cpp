#include "velkor/objects.h"

void LoadErrorInfo_ST(const std::u16string& key, const std::u16string& message,
                      const std::u16string& analysis, std::int32_t status, std::int32_t row,
                      std::int32_t column, std::int32_t /*reserved1*/, const std::u16string& detail,
                      std::int32_t /*reserved2*/, std::int32_t /*reserved3*/,
                      std::int16_t isWarning, const std::u16string& extra,
                      ErrorInfo& info) noexcept {
  try {
    info.key = key;
    info.message = message;
    if (!detail.empty()) info.message += u": " + detail;
    if (!extra.empty()) info.message += u" (" + extra + u")";
    info.analysis = analysis;
  } catch (...) {
    // Out of memory while composing texts: keep the numeric fields, which cannot fail.
  }
  info.status = status;
  info.row = row;
  info.column = column;
  info.isWarning = isWarning;
}
