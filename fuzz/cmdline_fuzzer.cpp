// Arbitrary command lines for the switch parser. The fuzzer's bytes are the
// argument vector, one argument per NUL-separated piece (the first piece is
// argv[0]); an argument of the single byte 0xFF stands for a null pointer.
// Byte 0 chooses case-insensitive parsing (bit 0), as the program uses it.
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <string>
#include <vector>

#include "app/CCmdLineT.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const bool caseInsensitive = data[0] & 1;
  std::vector<std::string> pieces(1);
  for (size_t i = 1; i < size && pieces.size() <= 64; ++i) {
    if (data[i] == '\0') {
      pieces.emplace_back();
    } else {
      pieces.back().push_back(static_cast<char>(data[i]));
    }
  }
  std::vector<char*> argv;
  for (std::string& piece : pieces) argv.push_back(piece == "\xff" ? nullptr : piece.data());
  argv.push_back(nullptr);
  const int argc = static_cast<int>(pieces.size());

  CCmdLineT<std::string> line("-", caseInsensitive);
  const int stored = line.SplitLine(argc, argv.data(), caseInsensitive);
  if (stored != static_cast<int>(std::distance(line.begin(), line.end()))) abort();
  if (stored > argc - 1) abort();

  for (auto it = line.begin(); it != line.end(); ++it) {
    if (it->first.empty()) abort();  // a switch has at least one name character
    if (caseInsensitive) {
      for (char c : it->first) {
        if (toupper(static_cast<unsigned char>(c)) != static_cast<unsigned char>(c)) abort();
      }
    }
    // Every stored switch is found again by its name and by "-" + name.
    if (line.GetSwitch(it->first.c_str()) != it && it->first[0] != '-') abort();
    if (line.GetSwitch(("-" + it->first).c_str()) != it) abort();
  }
  for (const char* name : {"output", "clearstatus", "autostart", "?", "-", "", "--"}) {
    auto it = line.GetSwitch(name);
    if (it != line.end() && !it->second.m_strings.empty()) (void)it->second.m_strings.front().size();
  }
  if (line.GetSwitch(nullptr) != line.end()) abort();
  for (char* arg : argv) {
    if (arg != nullptr) (void)line.GetSwitch(arg);
  }
  (void)line.GetProgramName();
  return 0;
}
