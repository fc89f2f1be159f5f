// kovFormat: printf-style formatting into a std::string.
//
// Takes the same conversions as printf; the result has no length limit. Never throws but for
// exhausted memory. An invalid format gives the empty string.
#ifndef KOV_PLATFORM_FORMAT_H
#define KOV_PLATFORM_FORMAT_H

#include <cstdarg>
#include <string>

#if defined(__GNUC__) || defined(__clang__)
#define KOV_PRINTF_LIKE(fmtIndex, firstArg) __attribute__((format(printf, fmtIndex, firstArg)))
#else
#define KOV_PRINTF_LIKE(fmtIndex, firstArg)
#endif

std::string kovFormat(const char* fmt, ...) KOV_PRINTF_LIKE(1, 2);
std::string kovFormatV(const char* fmt, va_list args);

#endif  // KOV_PLATFORM_FORMAT_H
