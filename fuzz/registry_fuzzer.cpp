// Registry files are written by other programs of the suite and survive
// crashes half-written. The fuzzer's bytes are one registry file:
//  - restored into a node, walked, dumped, restored from the dump and dumped
//    again: a file the program wrote must read back as the same tree;
//  - loaded as the process-wide tree, where the installation keys are looked
//    up through handles with small caller buffers.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "runtime/CRegistry.h"
#include "runtime/CRegistryNode.h"
#include "runtime/CSystemRoot.h"

namespace {

// Lines longer than the reader's limit cannot round-trip (the format has no
// continuation lines); binary values may grow when dumped ("a" -> "0a ").
constexpr size_t kLongestRoundTripLine = 1000;

std::string Dump(const CRegistryNode& node) {
  char* text = nullptr;
  size_t length = 0;
  FILE* out = open_memstream(&text, &length);
  if (out == nullptr) abort();
  node.dumpNode(out);
  fclose(out);
  std::string result(text, length);
  free(text);
  return result;
}

bool AllLinesShort(const std::string& text) {
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    if (end - start > kLongestRoundTripLine) return false;
    start = end + 1;
  }
  return true;
}

void Walk(const CRegistryNode& node, unsigned depth) {
  std::string name;
  RegistryValue value;
  for (unsigned i = 0; node.valueAt(i, name, value); ++i) {
    RegistryValue again;
    if (!node.getValue(name.c_str(), again) || again.type != value.type) abort();
    std::string bytes(value.byteSize(), '\0');
    value.copyTo(reinterpret_cast<unsigned char*>(bytes.data()));
  }
  for (unsigned i = 0; node.subKeyAt(i, name); ++i) {
    const CRegistryNode* child = node.findChild(name.c_str());
    if (child == nullptr) abort();
    if (depth < 64) Walk(*child, depth + 1);
  }
}

void RoundTrip(const uint8_t* data, size_t size) {
  FILE* in = fmemopen(const_cast<uint8_t*>(data), size, "rb");
  if (in == nullptr) return;  // fmemopen refuses an empty buffer on some libcs
  CRegistryNode first;
  first.restoreNode(in);
  fclose(in);
  Walk(first, 0);

  const std::string dump = Dump(first);
  if (!AllLinesShort(dump)) return;
  FILE* again = fmemopen(const_cast<char*>(dump.data()), dump.size(), "rb");
  if (again == nullptr) return;
  CRegistryNode second;
  second.restoreNode(again);
  fclose(again);
  if (Dump(second) != dump) abort();
}

const std::string& RegistryPath() {
  static const std::string path = [] {
    // Memory-backed when possible: every input is written to a file.
    static std::string made =
        std::string(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") + "/zx-registry-fuzz-XXXXXX";
    if (mkdtemp(made.data()) == nullptr) abort();
    atexit([] { std::filesystem::remove_all(made); });
    const char* pattern = made.c_str();
    setenv(CSystemRoot::kEnvironmentVariable, pattern, 1);
    std::string dir = std::string(pattern) + "/etc";
    mkdir(dir.c_str(), 0755);
    dir += "/orvmon";
    mkdir(dir.c_str(), 0755);
    return CSystemRoot::Path("/etc/orvmon/registry");
  }();
  return path;
}

void LoadAsProcessTree(const uint8_t* data, size_t size) {
  const std::string& path = RegistryPath();
  FILE* out = fopen(path.c_str(), "wb");
  if (out == nullptr) abort();
  if (size != 0 && fwrite(data, 1, size, out) != size) abort();
  fclose(out);
  {
    // A load adds to the tree; each input stands alone.
    CRegistry all;
    if (all.Open("", nullptr, 0) == 0) all.GetNode()->deleteNode("");
  }
  CRegistry::SetupTree(true);

  // What the installation paths look up, with buffers too small and just big
  // enough; a size probe must never write past the buffer it was given.
  std::string root;
  CRegistry::GetProductRegistryRoot(root, "ServerControl");
  CRegistry key;
  if (key.Open(CRegistry::kUuidKey, CRegistry::MPLocalMachine, 0) != 0 &&
      key.Open("SOFTWARE", CRegistry::MPLocalMachine, 0) != 0) {
    return;
  }
  for (unsigned i = 0; i < 8; ++i) {
    char name[16];
    unsigned nameSize = sizeof name;
    unsigned type = 0;
    unsigned char value[16];
    unsigned valueSize = sizeof value;
    if (key.EnumVal(name, &nameSize, i, &type, value, &valueSize) == CRegistry::kNoMoreItems) break;
    const unsigned needed = key.GetValueSize(name);
    for (unsigned bufferSize : {0u, 1u, needed > 0 ? needed - 1 : 0u, needed}) {
      std::string buffer(bufferSize, '\0');
      unsigned size = bufferSize;
      (void)key.QueryValue(bufferSize != 0 ? buffer.data() : nullptr, name, &size);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  RoundTrip(data, size);
  LoadAsProcessTree(data, size);
  return 0;
}
