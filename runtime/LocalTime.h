#pragma once

#include <cstddef>
#include <ctime>

// Writes seconds as local time in the strftime format to out, followed by
// ".mmm" when milliseconds is not negative. Returns the length written, or 0
// with out empty when the time has no local form or the text does not fit.
// Fills a caller's buffer so that the trace path allocates nothing.
size_t FormatLocalTime(char* out, size_t size, const char* format, time_t seconds,
                       int milliseconds = -1);
