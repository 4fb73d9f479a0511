#pragma once

#include <pthread.h>

// How trace lines name a thread ("%08X"): its pthread_t cut to 32 bits.
inline unsigned ThreadId(pthread_t thread) { return static_cast<unsigned>(thread); }

// The calling thread's.
inline unsigned ThreadId() { return ThreadId(pthread_self()); }
