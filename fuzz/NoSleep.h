// Replaces the C library's sleeps for the fuzz target that includes this
// (one translation unit per target): the client's deliberate pauses between
// retries would otherwise cost seconds per input.
#ifndef ZENTRIX_FUZZ_NOSLEEP_H_
#define ZENTRIX_FUZZ_NOSLEEP_H_

#include <time.h>
#include <unistd.h>

extern "C" {
unsigned int sleep(unsigned int) { return 0; }
int usleep(useconds_t) { return 0; }
int nanosleep(const struct timespec*, struct timespec*) { return 0; }
}

#endif  // ZENTRIX_FUZZ_NOSLEEP_H_
