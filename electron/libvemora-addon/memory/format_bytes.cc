#include "memory/format_bytes.h"

#include <clocale>
#include <cmath>
#include <cstdio>

std::string formatBytes(long long bytes) {
  if (bytes == 0) return "0 Bytes";
  static constexpr const char* kUnits[] = {"Bytes", "KB", "MB", "GB", "TB"};
  static constexpr double kDivisors[] = {1.0, 1e3, 1e6, 1e9, 1e12};
  const double x = static_cast<double>(bytes);
  // The unit steps at powers of 1024 but divides by powers of 1000. A negative
  // count has no logarithm and stays in bytes.
  const double exponent = std::floor(std::log(x) / std::log(1024.0));
  std::size_t unit = exponent >= 1.0 ? static_cast<std::size_t>(std::fmin(exponent, 4.0)) : 0;
  char text[64];
  if (unit == 0) {
    std::snprintf(text, sizeof text, "%lld Bytes", bytes);
  } else {
    std::snprintf(text, sizeof text, "%.2f %s", x / kDivisors[unit], kUnits[unit]);
    // The text always uses a point, whatever locale the host has set.
    const char locale_point = std::localeconv()->decimal_point[0];
    for (char* c = text; locale_point != '.' && *c != '\0'; ++c) {
      if (*c == locale_point) *c = '.';
    }
  }
  return text;
}
