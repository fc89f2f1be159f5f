#include "kov/platform/format.h"

#include <cstdio>
#include <vector>

std::string kovFormatV(const char* fmt, va_list args) {
  if (fmt == nullptr) return std::string();
  char small[256];
  va_list again;
  va_copy(again, args);
  int n = std::vsnprintf(small, sizeof small, fmt, args);
  if (n < 0) {
    va_end(again);
    return std::string();
  }
  if (static_cast<size_t>(n) < sizeof small) {
    va_end(again);
    return std::string(small, static_cast<size_t>(n));
  }
  std::vector<char> big(static_cast<size_t>(n) + 1);
  std::vsnprintf(big.data(), big.size(), fmt, again);
  va_end(again);
  return std::string(big.data(), static_cast<size_t>(n));
}

std::string kovFormat(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  std::string s = kovFormatV(fmt, args);
  va_end(args);
  return s;
}
