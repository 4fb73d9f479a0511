#include "runtime/CRegistry.h"

#include <sys/stat.h>

#include <string>

#include <gtest/gtest.h>

#include "tests/support/ScopedSystemRoot.h"

namespace {

const char kRegistry[] = "/etc/orvmon/registry";
const char kBackup[] = "/etc/orvmon/registry.old";
const char kDefault[] = "/etc/orvmon/registry.default";
const char kTemp[] = "/etc/orvmon/registry.new";

// A registry as the suite's installer writes it.
const std::string kSample =
    "[HKEY_CLASSES_ROOT]\n"
    "\n"
    "[HKEY_CURRENT_CONFIG]\n"
    "\n"
    "[HKEY_CURRENT_USER]\n"
    "\n"
    "[HKEY_LOCAL_MACHINE]\n"
    "[SOFTWARE]\n"
    "Blob=b=0a ff \n"
    "Count=d=-1\n"
    "Empty=b=\n"
    "Name=s=Tarnwell Suite\n"
    "Path=es=$HOME/bin\n"
    "[A]\n"
    "[B]\n"
    "Leaf=s=deep\n"
    "\n"
    "\n"
    "\n"
    "\n"
    "[HKEY_USERS]\n"
    "\n"
    "\n";

class RegistryTest : public ::testing::Test {
 protected:
  void load(const char* file, const std::string& content) {
    root_.writeFile(file, content);
    CRegistry::SetupTree(true);
  }
  std::string read(const char* file) const { return ScopedSystemRoot::readFile(root_.root() + file); }
  bool exists(const char* file) const {
    struct stat info {};
    return stat((root_.root() + file).c_str(), &info) == 0;
  }
  std::string stringValue(const char* key, const char* name) {
    CRegistry registry;
    std::string value;
    if (registry.Open(key, CRegistry::MPLocalMachine, -1) != 0) return "<no key>";
    if (registry.QueryValue(value, name) != 0) return "<no value>";
    return value;
  }

  ScopedSystemRoot root_;
};

TEST_F(RegistryTest, ReadsEveryValueTypeAndWritesTheSameFileBack) {
  load(kRegistry, kSample);
  {
    CRegistry registry;
    ASSERT_EQ(0u, registry.Open("SOFTWARE", CRegistry::MPLocalMachine, -1));
    unsigned count = 0;
    EXPECT_EQ(0u, registry.QueryValue(&count, "Count"));
    EXPECT_EQ(4294967295u, count);
    std::string text;
    EXPECT_EQ(0u, registry.QueryValue(text, "Name"));
    EXPECT_EQ("Tarnwell Suite", text);
    EXPECT_EQ(0u, registry.QueryValue(text, "Path"));
    EXPECT_EQ("$HOME/bin", text);
    unsigned char blob[4] = {};
    unsigned size = sizeof blob;
    EXPECT_EQ(0u, registry.QueryValue(reinterpret_cast<char*>(blob), "Blob", &size));
    EXPECT_EQ(2u, size);
    EXPECT_EQ(0x0a, blob[0]);
    EXPECT_EQ(0xff, blob[1]);
    EXPECT_EQ(0u, registry.GetValueSize("Empty"));
    EXPECT_EQ(15u, registry.GetValueSize("Name"));
    EXPECT_EQ(0u, registry.GetValueSize("Missing"));
    EXPECT_EQ(CRegistry::kInvalidData, registry.QueryValue(&count, "Name"));
    EXPECT_EQ(CRegistry::kFileNotFound, registry.QueryValue(text, "Missing"));
  }
  EXPECT_FALSE(exists(kBackup)) << "reading alone must not save";

  {
    CRegistry registry;
    ASSERT_EQ(0u, registry.Open("SOFTWARE\\A/B", CRegistry::MPLocalMachine, -1));
    EXPECT_TRUE(registry.SetValue("Leaf", "deep"));  // same value, but dirty
  }
  EXPECT_EQ(kSample, read(kRegistry));
  EXPECT_EQ(kSample, read(kBackup)) << "the previous file becomes the backup";
  EXPECT_FALSE(exists(kTemp));
  struct stat info {};
  ASSERT_EQ(0, stat((root_.root() + kRegistry).c_str(), &info));
  EXPECT_EQ(0644u, info.st_mode & 0777u);
}

TEST_F(RegistryTest, PathsSplitAtBothSeparatorsAndMatchCase) {
  load(kRegistry, kSample);
  EXPECT_EQ("deep", stringValue("SOFTWARE\\A/B", "Leaf"));
  EXPECT_EQ("deep", stringValue("\\SOFTWARE\\\\A\\B\\", "Leaf"));
  EXPECT_EQ("<no key>", stringValue("software", "Name"));
  EXPECT_EQ("<no key>", stringValue("SOFTWARE\\Name", "Name")) << "a value is not a key";

  CRegistry registry;
  EXPECT_EQ(0u, registry.Open("HKEY_LOCAL_MACHINE\\SOFTWARE", nullptr, -1)) << "null parent starts at the root keys";
  EXPECT_EQ(0u, registry.Open("", CRegistry::MPLocalMachine, -1));
  EXPECT_EQ(CRegistry::MPLocalMachine, registry.GetNode());
  EXPECT_EQ(CRegistry::kOpenFailed, registry.Open("SOFTWARE\\C", CRegistry::MPLocalMachine, -1));
  EXPECT_EQ(nullptr, registry.GetNode());
}

TEST_F(RegistryTest, FallsBackToBackupThenDefaultAndKeepsTheBackupWhenSaving) {
  const std::string backup = "[HKEY_LOCAL_MACHINE]\n[K]\nFrom=s=backup\n\n\n\n";
  load(kBackup, backup);
  EXPECT_EQ("backup", stringValue("K", "From"));
  {
    CRegistry registry;
    ASSERT_EQ(0u, registry.Open("K", CRegistry::MPLocalMachine, -1));
    registry.SetValue("New", 7u);
  }
  EXPECT_EQ(backup, read(kBackup)) << "no registry to keep, so the backup stays";
  EXPECT_EQ("[HKEY_LOCAL_MACHINE]\n[K]\nFrom=s=backup\nNew=d=7\n\n\n\n", read(kRegistry));

  // An empty registry and an empty backup fall through to the default.
  root_.writeFile(kRegistry, "");
  root_.writeFile(kBackup, "");
  load(kDefault, "[HKEY_LOCAL_MACHINE]\n[K]\nFrom=s=default\n\n\n\n");
  EXPECT_EQ("default", stringValue("K", "From"));

  // A file with keys but no value at all counts as unreadable.
  root_.writeFile(kRegistry, "[HKEY_LOCAL_MACHINE]\n[K]\n\n\n\n");
  load(kDefault, "[HKEY_LOCAL_MACHINE]\n[K]\nFrom=s=default\n\n\n\n");
  EXPECT_EQ("default", stringValue("K", "From"));
}

TEST_F(RegistryTest, AFileWithoutLocalMachineGetsTheFiveRootKeys) {
  load(kRegistry, "[HKEY_USERS]\n[U]\nx=s=1\n\n\n\n");
  {
    CRegistry registry;
    ASSERT_EQ(0u, registry.Open("HKEY_USERS\\U", nullptr, -1));
    registry.SetValue("y", "2");
  }
  EXPECT_EQ(
      "[HKEY_CLASSES_ROOT]\n\n[HKEY_CURRENT_CONFIG]\n\n[HKEY_CURRENT_USER]\n\n[HKEY_LOCAL_MACHINE]\n\n"
      "[HKEY_USERS]\n[U]\nx=s=1\ny=s=2\n\n\n\n",
      read(kRegistry));
}

TEST_F(RegistryTest, NoFilesLeavesFiveEmptyRootKeysAndAFailedSaveIsDropped) {
  CRegistry::SetupTree(true);
  CRegistry registry;
  for (const char* key : {"HKEY_CLASSES_ROOT", "HKEY_CURRENT_CONFIG", "HKEY_CURRENT_USER", "HKEY_LOCAL_MACHINE",
                          "HKEY_USERS"}) {
    EXPECT_EQ(0u, registry.Open(key, nullptr, -1)) << key;
  }
  EXPECT_EQ(CRegistry::kOpenFailed, registry.Open("SOFTWARE", CRegistry::MPLocalMachine, -1));
  std::string product = "unchanged";
  EXPECT_FALSE(CRegistry::GetProductRegistryRoot(product, "Server Control"));
  EXPECT_EQ("unchanged", product);

  // /etc/orvmon does not exist: the save fails once and is not retried.
  ASSERT_EQ(0u, registry.Open("HKEY_USERS", nullptr, -1));
  EXPECT_TRUE(registry.SetValue("x", "y"));
  CRegistry::FreeClass();
  root_.makeDirs("/etc/orvmon");
  CRegistry::FreeClass();
  EXPECT_FALSE(exists(kRegistry));
}

TEST_F(RegistryTest, LongLinesAreReadInPiecesOf1023Characters) {
  std::string head = "Long=s=";
  std::string line = head + std::string(1023 - head.size(), 'x') + std::string(477, 'y') + "\n";
  std::string marked = head + std::string(1023 - head.size(), 'x') + "Tail=s=rest\n";
  load(kRegistry, "[HKEY_LOCAL_MACHINE]\n[K]\n" + line + marked + "After=s=1\n\n\n\n");
  EXPECT_EQ(std::string(1016, 'x'), stringValue("K", "Long"));
  EXPECT_EQ("rest", stringValue("K", "Tail")) << "the second piece holds a marker";
  EXPECT_EQ("1", stringValue("K", "After"));
  CRegistry registry;
  ASSERT_EQ(0u, registry.Open("K", CRegistry::MPLocalMachine, -1));
  unsigned values = 0;
  char buffer[2048];
  while (registry.EnumVal(buffer, static_cast<unsigned>(sizeof buffer), values, nullptr, nullptr, 0u) == 0) ++values;
  EXPECT_EQ(3u, values) << "the unmarked rest of the long line is skipped";
}

TEST_F(RegistryTest, MalformedLinesAreSkippedWithoutHarm) {
  std::string content =
      "[HKEY_LOCAL_MACHINE]\n"
      "[K]\n"
      "no marker here\n"
      "Bad=x=1\n"
      "Dword=d=\n"
      "Dword2=d=abc\n"
      "Big=d=4294967295\n"
      "Hex=b=zz\n"
      "Part=b=1 2 zz 3\n"
      "[unclosed\n"
      "=s=nameless\n"
      "Dup=s=first\n"
      "Dup=s=second\n"
      "Text=s=a=b=c\n"
      "\r\n"
      "Cr=s=1\r\n"
      "\n"
      "\n"
      "\n"
      "trailing garbage after the root ends\n";
  load(kRegistry, content);
  CRegistry registry;
  ASSERT_EQ(0u, registry.Open("K", CRegistry::MPLocalMachine, -1));
  unsigned dword = 0;
  EXPECT_EQ(CRegistry::kFileNotFound, registry.QueryValue(&dword, "Dword"));
  EXPECT_EQ(CRegistry::kFileNotFound, registry.QueryValue(&dword, "Dword2"));
  EXPECT_EQ(CRegistry::kFileNotFound, registry.QueryValue(&dword, "Bad"));
  EXPECT_EQ(0u, registry.QueryValue(&dword, "Big"));
  EXPECT_EQ(0xFFFFFFFFu, dword);
  EXPECT_EQ(0u, registry.GetValueSize("Hex"));
  unsigned char bytes[8] = {};
  EXPECT_EQ(0u, registry.QueryValue(reinterpret_cast<char*>(bytes), "Part", 8u));
  EXPECT_EQ(2u, registry.GetValueSize("Part"));
  EXPECT_EQ(2, bytes[1]);
  std::string text;
  EXPECT_EQ(0u, registry.QueryValue(text, ""));
  EXPECT_EQ("nameless", text);
  EXPECT_EQ(0u, registry.QueryValue(text, "Dup"));
  EXPECT_EQ("second", text);
  EXPECT_EQ(0u, registry.QueryValue(text, "Text"));
  EXPECT_EQ("a=b=c", text);
  EXPECT_EQ(0u, registry.QueryValue(text, "Cr"));
  EXPECT_EQ("1\r", text);
}

TEST_F(RegistryTest, HostileFilesNeitherCrashNorRecurseWithoutBound) {
  std::string deep = "[HKEY_LOCAL_MACHINE]\n";
  for (int i = 0; i < 20000; ++i) deep += "[k]\nv=s=1\n";
  load(kRegistry, deep);  // never closed: the end of the file closes all
  CRegistry registry;
  EXPECT_EQ(0u, registry.Open("k\\k\\k", CRegistry::MPLocalMachine, -1));
  std::string tooDeep;
  for (size_t i = 0; i < CRegistryNode::kMaxDepth + 5; ++i) tooDeep += "k\\";
  EXPECT_EQ(CRegistry::kOpenFailed, registry.Open(tooDeep.c_str(), CRegistry::MPLocalMachine, -1));

  std::string binary("[HKEY_LOCAL_MACHINE]\n[K]\nA=s=x\0y\nB=s=\xff\xfe\n\n\n\n", 40);
  load(kRegistry, binary);
  EXPECT_EQ("x", stringValue("K", "A"));

  std::string flat = "[HKEY_LOCAL_MACHINE]\n[K]\n";
  for (int i = 0; i < 50000; ++i) flat += "v" + std::to_string(i) + "=d=" + std::to_string(i) + "\n";
  load(kRegistry, flat);
  ASSERT_EQ(0u, registry.Open("K", CRegistry::MPLocalMachine, -1));
  unsigned value = 0;
  EXPECT_EQ(0u, registry.QueryValue(&value, "v49999"));
  EXPECT_EQ(49999u, value);
}

TEST_F(RegistryTest, CreateDeleteAndEnumerateKeysAndValues) {
  root_.makeDirs("/etc/orvmon");
  CRegistry::SetupTree(true);
  {
    CRegistry registry;
    ASSERT_EQ(0u, registry.CreateKey(CRegistry::MPLocalMachine, "SOFTWARE\\X\\Y"));
  }
  EXPECT_FALSE(exists(kRegistry)) << "creating keys alone does not mark the tree changed";

  CRegistry registry;
  ASSERT_EQ(0u, registry.CreateKey(CRegistry::MPLocalMachine, "SOFTWARE\\X"));
  ASSERT_EQ(0u, registry.CreateKey(CRegistry::MPLocalMachine, "SOFTWARE\\X\\A"));
  ASSERT_EQ(0u, registry.Open("SOFTWARE\\X", CRegistry::MPLocalMachine, -1));
  EXPECT_TRUE(registry.SetValue("b", "2"));
  EXPECT_TRUE(registry.SetValue("a", 1u));
  const unsigned char raw[] = {1, 2, 3};
  EXPECT_TRUE(registry.SetValue("c", raw, 3, REGISTRY_BINARY));
  EXPECT_FALSE(registry.SetValue("d", raw, 3, REGISTRY_DWORD)) << "a double word is exactly 4 bytes";
  EXPECT_FALSE(registry.SetValue("e", raw, 3, REGISTRY_SUBKEY));
  EXPECT_NE(0u, registry.CreateKey(CRegistry::MPLocalMachine, "SOFTWARE\\X\\a\\z")) << "value in the way";
  ASSERT_EQ(0u, registry.Open("SOFTWARE\\X", CRegistry::MPLocalMachine, -1));

  unsigned subKeys = 0;
  EXPECT_EQ(0u, registry.NoOfSubKeys(&subKeys));
  EXPECT_EQ(2u, subKeys);
  char name[16];
  unsigned nameSize = sizeof name;
  EXPECT_EQ(0u, registry.EnumKey(name, &nameSize, 0, nullptr, nullptr));
  EXPECT_STREQ("A", name);
  EXPECT_EQ(1u, nameSize);
  EXPECT_EQ(0u, registry.EnumKey(name, 16u, 1, nullptr, 0u));
  EXPECT_STREQ("Y", name);
  EXPECT_EQ(CRegistry::kNoMoreItems, registry.EnumKey(name, 16u, 2, nullptr, 0u));

  unsigned type = 0;
  unsigned char data[8];
  unsigned dataSize = sizeof data;
  nameSize = sizeof name;
  EXPECT_EQ(0u, registry.EnumVal(name, &nameSize, 1, &type, data, &dataSize));
  EXPECT_STREQ("b", name);
  EXPECT_EQ(unsigned(REGISTRY_STRING), type);
  EXPECT_EQ(2u, dataSize);
  EXPECT_STREQ("2", reinterpret_cast<char*>(data));
  dataSize = 2;
  nameSize = sizeof name;
  EXPECT_EQ(CRegistry::kMoreData, registry.EnumVal(name, &nameSize, 2, &type, data, &dataSize));
  EXPECT_EQ(3u, dataSize) << "a short buffer reports the size needed";
  char small[1];
  unsigned smallSize = sizeof small;
  EXPECT_EQ(CRegistry::kMoreData, registry.QueryValue(small, "b", &smallSize));
  EXPECT_EQ(2u, smallSize);
  EXPECT_EQ(CRegistry::kInvalidParameter, registry.QueryValue(small, "b", static_cast<unsigned*>(nullptr)));

  EXPECT_EQ(0u, registry.DeleteValue("a"));
  EXPECT_EQ(CRegistry::kFileNotFound, registry.DeleteValue("a"));
  EXPECT_EQ(CRegistry::kFileNotFound, registry.DeleteValue("A")) << "a key is not a value";
  EXPECT_EQ(0u, registry.DeleteKey("Y"));
  EXPECT_EQ(CRegistry::kFileNotFound, registry.DeleteKey("b")) << "a value is not a key";
  EXPECT_EQ(0u, registry.NoOfSubKeys(&subKeys));
  EXPECT_EQ(1u, subKeys);
}

TEST_F(RegistryTest, PointerKeysLeadToTheProductKey) {
  load(kRegistry,
       "[HKEY_LOCAL_MACHINE]\n"
       "[SOFTWARE]\n[Vendor]\n[Setup]\nBinRoot=s=/opt/x\n\n\n\n"
       "[SYSTEM]\n[CurrentControlSet]\n[Control]\n[UUID]\n[C3681B60-0D26-11D3-8319-00A0C9B61E25]\n"
       "Server Control=s=SOFTWARE\\Vendor\n\n\n\n\n\n\n\n");
  std::string product;
  EXPECT_TRUE(CRegistry::GetProductRegistryRoot(product, "Server Control"));
  EXPECT_EQ("SOFTWARE\\Vendor", product);

  CRegistry registry;
  ASSERT_EQ(0u, registry.OpenUUIDPointer("C3681B60-0D26-11D3-8319-00A0C9B61E25", "Server Control", -1));
  std::string bin;
  EXPECT_EQ(0u, registry.QueryValue(bin, "BinRoot", registry.GetNode()->findChild("Setup")));
  EXPECT_EQ("/opt/x", bin);
  EXPECT_EQ(CRegistry::kOpenFailed, registry.OpenPointerKey(CRegistry::kUuidKey, "Missing", CRegistry::MPLocalMachine, -1));
}

}  // namespace
