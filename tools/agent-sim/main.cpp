// agent-sim: a stand-in for the local management agent daemon. See README.md.
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "Fault.h"
#include "Profile.h"
#include "ProfileWriter.h"
#include "Redactor.h"
#include "Server.h"

namespace {

// Named as invoked: installed, the simulator is zentrix-agent-sim.
void Usage(const char* invokedAs) {
  const char* slash = std::strrchr(invokedAs, '/');
  std::fprintf(stderr,
               "usage: %1$s [--root DIR] [--profile FILE] [--record FILE] [--event-interval MS]\n"
               "       [--delay MS] [--fault FAULT] [--ready-fd N] [--check] [--verbose]\n"
               "       %1$s [--root DIR] --capture FILE [--upstream DIR] [--record FILE] [--ready-fd N]\n"
               "       %1$s --redact IN OUT\n"
               "The root defaults to $ZENTRIX_ROOT; one of the two is required.\n",
               slash ? slash + 1 : invokedAs);
}

std::string Strip(std::string root) {
  while (!root.empty() && root.back() == '/') root.pop_back();
  return root;
}

// --redact IN OUT: the profile must load before and after.
int Redact(const std::string& in, const std::string& out) {
  std::ifstream file(in, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  agentsim::Profile loaded;
  std::string redacted, error;
  if (!file || !agentsim::Profile::Parse(text.str(), loaded, error) ||
      !agentsim::RedactProfile(text.str(), redacted, error) ||
      !agentsim::Profile::Parse(redacted, loaded = agentsim::Profile(), error)) {
    std::fprintf(stderr, "agent-sim: %s: %s\n", in.c_str(), file ? error.c_str() : "cannot read");
    return 2;
  }
  if (agentsim::WriteFileAtomically(out, redacted, error)) return 0;
  std::fprintf(stderr, "agent-sim: %s\n", error.c_str());
  return 2;
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
  bool checkOnly = false, upstreamGiven = false;
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
    } else if (arg == "--capture") {
      if (!takes()) return 2;
      options.captureFile = value;
    } else if (arg == "--upstream") {
      if (!takes()) return 2;
      options.upstream = Strip(value);
      upstreamGiven = true;
    } else if (arg == "--redact") {
      if (i + 2 >= argc) {
        std::fprintf(stderr, "agent-sim: --redact needs IN and OUT\n");
        return 2;
      }
      return Redact(argv[i + 1], argv[i + 2]);
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
  options.root = Strip(options.root);
  if (options.root.empty()) {
    std::fprintf(stderr, "agent-sim: no system root (--root or ZENTRIX_ROOT)\n");
    return 2;
  }
  // The relay answers nothing itself, and must not relay to itself.
  const char* conflict = nullptr;
  if (options.captureFile.empty() && upstreamGiven) conflict = "--upstream goes with --capture";
  else if (!options.captureFile.empty() && (!profilePath.empty() || options.fault.kind != agentsim::FaultKind::kNone ||
                                             options.delayMs != 0))
    conflict = "--capture relays the agent's replies: no --profile, --fault or --delay";
  else if (!options.captureFile.empty() && options.upstream == options.root)
    conflict = "--upstream must be another root than --root";
  if (conflict) {
    std::fprintf(stderr, "agent-sim: %s\n", conflict);
    return 2;
  }
  agentsim::Server server(std::move(profile), options);
  return server.Run();
}
