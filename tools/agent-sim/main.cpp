// agent-sim: a stand-in for the local management agent daemon. See README.md.
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Fault.h"
#include "Profile.h"
#include "Server.h"

namespace {

// Named as invoked: installed, the simulator is zentrix-agent-sim.
void Usage(const char* invokedAs) {
  const char* slash = std::strrchr(invokedAs, '/');
  std::fprintf(stderr,
               "usage: %s [--root DIR] [--profile FILE] [--record FILE] [--event-interval MS]\n"
               "       [--delay MS] [--fault FAULT] [--ready-fd N] [--check] [--verbose]\n"
               "The root defaults to $ZENTRIX_ROOT; one of the two is required.\n",
               slash ? slash + 1 : invokedAs);
}

bool Number(const char* text, unsigned& out) {
  uint32_t value = 0;
  if (!agentsim::ParseUnsigned(text, value)) return false;
  out = value;
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  agentsim::ServerOptions options;
  std::string profilePath;
  bool checkOnly = false;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
    auto takes = [&]() {
      if (!value) {
        std::fprintf(stderr, "agent-sim: %s needs a value\n", arg.c_str());
        return false;
      }
      ++i;
      return true;
    };
    if (arg == "--root") {
      if (!takes()) return 2;
      options.root = value;
    } else if (arg == "--profile") {
      if (!takes()) return 2;
      profilePath = value;
    } else if (arg == "--record") {
      if (!takes()) return 2;
      options.recordFile = value;
    } else if (arg == "--event-interval" || arg == "--delay") {
      if (!takes()) return 2;
      if (!Number(value, arg == "--delay" ? options.delayMs : options.eventIntervalMs)) {
        std::fprintf(stderr, "agent-sim: %s needs milliseconds\n", arg.c_str());
        return 2;
      }
    } else if (arg == "--ready-fd") {
      unsigned fd = 0;
      if (!takes()) return 2;
      if (!Number(value, fd) || fd > INT_MAX) {
        std::fprintf(stderr, "agent-sim: --ready-fd needs a descriptor number\n");
        return 2;
      }
      options.readyFd = static_cast<int>(fd);
    } else if (arg == "--fault") {
      if (!takes()) return 2;
      std::string error;
      if (!agentsim::ParseFault(value, options.fault, error)) {
        std::fprintf(stderr, "agent-sim: --fault: %s\n", error.c_str());
        return 2;
      }
    } else if (arg == "--check") {
      checkOnly = true;
    } else if (arg == "--verbose") {
      options.verbose = true;
    } else {
      Usage(argv[0]);
      return arg == "--help" || arg == "-h" ? 0 : 2;
    }
  }

  agentsim::Profile profile;
  if (!profilePath.empty()) {
    std::string error;
    if (!agentsim::Profile::Load(profilePath, profile, error)) {
      std::fprintf(stderr, "agent-sim: %s\n", error.c_str());
      return 2;
    }
  }
  if (checkOnly) return 0;

  if (options.root.empty()) {
    const char* root = std::getenv("ZENTRIX_ROOT");
    if (root) options.root = root;
  }
  // Never take over the machine's real /dev and /var/run.
  if (options.root.empty() || options.root == "/") {
    std::fprintf(stderr, "agent-sim: no system root (--root or ZENTRIX_ROOT)\n");
    return 2;
  }
  while (options.root.size() > 1 && options.root.back() == '/') options.root.pop_back();
  agentsim::Server server(std::move(profile), options);
  return server.Run();
}
