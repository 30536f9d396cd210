#pragma once
// Severity of a log record; the numbers are part of the interface (elements speak of "level 2").

namespace norda::logging {

enum class LogLevel : int { trace = 0, debug = 1, info = 2, warning = 3, error = 4, critical = 5, off = 6 };

// "trace", "debug", "info", "warning", "error", "critical" (and "off").
const char* levelName(LogLevel level);
// Inverse of levelName; also accepts "warn", "err" and the digits 0..6. Unknown text gives `fallback`.
LogLevel levelFromName(const char* name, LogLevel fallback);

} // namespace norda::logging
