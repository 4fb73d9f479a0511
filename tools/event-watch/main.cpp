// event-watch: attaches to the local agent daemon, enables its event
// channel and prints one line per event command until SIGINT or SIGTERM.
//
//   event-watch [client-name]
//
// Output: "OC=0x0302 OE=0x0000 OI=2 CA=0 ST=0 DA=5580", DA as compact JSON
// ("-" when the command has none).
#include <signal.h>

#include <cstdio>
#include <cstring>
#include <string>

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "agent/CSwitchClient.h"
#include "agent/SipJson.h"

namespace {

std::string DataText(const SipJson& event, int cmd) {
  const SipJson::GenericValue* data = event.FindCmdMember(cmd, "DA");
  if (data == nullptr) return "-";
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  data->Accept(writer);
  return buffer.GetString();
}

// Runs on the client's event thread; stdout is line buffered, so each line
// appears whole.
void PrintEvent(SipJson& event, void*) {
  for (int cmd = 0; event.FindCmd(cmd) != nullptr; ++cmd) {
    std::printf("OC=0x%04X OE=0x%04X OI=%u CA=%u ST=%u DA=%s\n", event.GetCmdElemValue(cmd, "OC", 0),
                event.GetCmdElemValue(cmd, "OE", 0), event.GetCmdElemValue(cmd, "OI", 0),
                event.GetCmdElemValue(cmd, "CA", 0), event.GetCmdElemValue(cmd, "ST", 22), DataText(event, cmd).c_str());
  }
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 2 || (argc == 2 && argv[1][0] == '-')) {
    const char* slash = std::strrchr(argv[0], '/');
    std::fprintf(stderr, "usage: %s [client-name]\n", slash ? slash + 1 : argv[0]);
    return 2;
  }
  std::setvbuf(stdout, nullptr, _IOLBF, 0);

  // Blocked before any thread exists, so every thread inherits the mask and
  // the signals are taken only by sigwait below.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

  CSwitchClient client;
  client.SetApplicationName(argc == 2 ? argv[1] : "event-watch");
  if (!client.Attach(nullptr)) {
    std::string text;
    client.GetLastErrorMsg(text);
    std::fprintf(stderr, "event-watch: cannot attach to the agent daemon: %s (%u)\n", text.c_str(),
                 client.GetLastError());
    return 1;
  }
  client.RegisterEventHandler(PrintEvent, nullptr);
  if (!client.EnableEvents(true)) {
    std::fprintf(stderr, "event-watch: cannot enable events\n");
    client.Detach();
    return 1;
  }
  std::fprintf(stderr, "event-watch: waiting for events (Ctrl-C ends)\n");

  int signal = 0;
  sigwait(&stopSignals, &signal);
  client.EnableEvents(false);
  client.Detach();
  return 0;
}
