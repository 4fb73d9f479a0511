#include "runtime/LocalTime.h"

#include <cstdio>

size_t FormatLocalTime(char* out, size_t size, const char* format, time_t seconds,
                       int milliseconds) {
  if (out == nullptr || size == 0) return 0;
  out[0] = '\0';
  struct tm local;
  if (format == nullptr || localtime_r(&seconds, &local) == nullptr) return 0;
  size_t length = strftime(out, size, format, &local);
  if (length == 0) {
    // strftime leaves the buffer undefined when the text does not fit.
    out[0] = '\0';
    return 0;
  }
  if (milliseconds < 0) return length;
  int n = snprintf(out + length, size - length, ".%03d", milliseconds);
  if (n < 0 || static_cast<size_t>(n) >= size - length) {
    out[0] = '\0';
    return 0;
  }
  return length + static_cast<size_t>(n);
}
