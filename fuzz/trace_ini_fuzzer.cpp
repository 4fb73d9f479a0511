// Trace configuration files are shared by every program of the suite and
// may be half-written, truncated or edited by hand. The fuzzer's bytes are
// one INI file; both sections the trace log reads are looked up in it and
// every key is read back, then the file is read a second time through the
// remembered path, as the dynamic update does.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <unistd.h>

#include "runtime/CDebugTraceConfigFile.h"

namespace {

const std::string& ScratchDir() {
  static const std::string dir = [] {
    // Memory-backed when possible: every input is written to a file.
    static std::string made =
        std::string(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") + "/zx-ini-fuzz-XXXXXX";
    if (mkdtemp(made.data()) == nullptr) abort();
    atexit([] { std::filesystem::remove_all(made); });
    return made;
  }();
  return dir;
}

void ReadAllKeys(const CDebugTraceConfigFile& reader) {
  static const char* const kNumbers[] = {"DynamicUpdate",        "FileDebugLevel",   "TraceFlags",
                                         "RingBufferSizeFactor", "RingBufferSizeWeight",
                                         "NoHeaderToStderr",     "MemoryTracesFlag", "="};
  for (const char* key : kNumbers) {
    unsigned value = 0;
    (void)reader.ReadUnsigned(key, value);
  }
  // The directory value lands in a fixed buffer with one byte to spare.
  char text[CDebugTraceConfigFile::kMaxTextValue + 1];
  memset(text, 'x', sizeof text);
  if (reader.ReadText("RingBufferDirectory", text, sizeof text, CDebugTraceConfigFile::kMaxTextValue)) {
    if (memchr(text, '\0', sizeof text) == nullptr) abort();
  }
  char small[8];
  if (reader.ReadText("FileDebugLevel", small, sizeof small, CDebugTraceConfigFile::kMaxNumberText)) {
    if (memchr(small, '\0', sizeof small) == nullptr) abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string file = "fuzz.ini";
  const std::string path = ScratchDir() + "/" + file;
  FILE* out = fopen(path.c_str(), "wb");
  if (out == nullptr) abort();
  if (size != 0 && fwrite(data, 1, size, out) != size) abort();
  fclose(out);

  for (const char* section : {"GlobalDebugSettings", "Zentrix"}) {
    CDebugTraceConfigFile reader;
    if (!reader.OpenSectionInIniFile(section, file.c_str(), ScratchDir().c_str())) {
      if (!reader.Path().empty()) abort();  // a failed read forgets the file
      continue;
    }
    ReadAllKeys(reader);
    if (!reader.OpenSectionInIniFile(section, nullptr, nullptr)) abort();  // same bytes again
    ReadAllKeys(reader);
  }
  unlink(path.c_str());
  return 0;
}
