#pragma once

// Everything tests share, in one include:
//   Wire.h             Sip envelopes, length words, frames; writes and reads with a time-out
//   WaitUntil.h        a bounded wait for a condition
//   ScopedEnv.h        environment variables set or removed for a scope
//   ScopedSystemRoot.h a scratch ZENTRIX_ROOT with file helpers
//   ProgramRun.h       a program run as a child process, output captured, time-limited
//   AgentSimulator.h   the agent simulator under its own root
//   FakeAgentDaemon.h  a scripted daemon socket in the test process
//   TestClient.h       a bare client of an agent socket
#include "tests/support/AgentSimulator.h"
#include "tests/support/FakeAgentDaemon.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/ScopedEnv.h"
#include "tests/support/ScopedSystemRoot.h"
#include "tests/support/TestClient.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/Wire.h"
