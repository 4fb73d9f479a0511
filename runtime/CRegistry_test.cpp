#include "runtime/CRegistry.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "tests/support/TestSupport.h"

namespace {

const char kRegistry[] = "/etc/orvmon/registry";
const char kBackup[] = "/etc/orvmon/registry.old";
const char kDefault[] = "/etc/orvmon/registry.default";
const char kTemp[] = "/etc/orvmon/registry.new";

// A registry as the suite's installer writes it.
const std::string kSample =
    "[HKEY_CLASSES_ROOT]\n\n[HKEY_CURRENT_CONFIG]\n\n[HKEY_CURRENT_USER]\n\n"
    "[HKEY_LOCAL_MACHINE]\n[SOFTWARE]\n"
    "Blob=b=0a ff \nCount=d=-1\nEmpty=b=\nName=s=Tarnwell Suite\nPath=es=$HOME/bin\n"
    "[A]\n[B]\nLeaf=s=deep\n\n\n\n\n"
    "[HKEY_USERS]\n\n\n";

class RegistryTest : public ::testing::Test {
 protected:
  // Loading adds to the process-wide tree; a case that wants its files alone
  // starts from an empty one.
  static void clear() {
    CRegistry all;
    if (all.Open("", nullptr, -1) == 0) all.GetNode()->deleteNode("");
  }
  // Writes the given files (null: absent) and loads the tree from them alone.
  static void load(const ScopedSystemRoot& root, const char* registry, const char* backup = nullptr,
                   const char* fallback = nullptr) {
    clear();
    for (auto file : {std::make_pair(kRegistry, registry), {kBackup, backup}, {kDefault, fallback}}) {
      if (file.second != nullptr) root.writeFile(file.first, file.second);
    }
    CRegistry::SetupTree(true);
  }
  std::string read(const char* file) const { return ScopedSystemRoot::readFile(root_.root() + file); }
  // "s=text", "d=number", "b=hex bytes", or why there is no value.
  static std::string value(const std::string& key, const char* name) {
    CRegistry registry;
    if (registry.Open(key.c_str(), CRegistry::MPLocalMachine, -1) != 0) return "<no key>";
    std::string text;
    unsigned result = registry.QueryValue(text, name), dword = 0;
    if (result != CRegistry::kInvalidData) return result == 0 ? "s=" + text : "<no value>";
    if (registry.QueryValue(&dword, name) == 0) return "d=" + std::to_string(dword);
    unsigned char bytes[8];
    unsigned size = sizeof bytes;
    EXPECT_EQ(0u, registry.QueryValue(reinterpret_cast<char*>(bytes), name, &size));
    char hex[20] = "";
    for (unsigned i = 0; i < size && i < 8; ++i) std::snprintf(hex + 2 * i, 3, "%02x", bytes[i]);
    return std::string("b=") + hex;
  }

  ScopedSystemRoot root_;
};

TEST_F(RegistryTest, ReadsEveryTypeAndSavesThroughATemporaryFileKeepingTheOldOne) {
  load(root_, kSample.c_str());
  struct Case { const char* key; const char* name; const char* expected; } cases[] = {
      {"SOFTWARE", "Count", "d=4294967295"},          {"SOFTWARE", "Name", "s=Tarnwell Suite"},
      {"SOFTWARE", "Path", "s=$HOME/bin"},            {"SOFTWARE", "Blob", "b=0aff"},
      {"SOFTWARE", "Empty", "b="},                    {"SOFTWARE", "Missing", "<no value>"},
      {"SOFTWARE\\A/B", "Leaf", "s=deep"},            {"\\SOFTWARE\\\\A\\B\\", "Leaf", "s=deep"},
      {"software", "Name", "<no key>"},               {"SOFTWARE\\Name", "Name", "<no key>"},
      {"SOFTWARE\\C", "Leaf", "<no key>"},
  };
  for (const Case& c : cases) EXPECT_EQ(c.expected, value(c.key, c.name)) << c.key << " " << c.name;
  EXPECT_EQ("", read(kBackup)) << "reading alone must not save";

  {
    CRegistry registry;
    ASSERT_EQ(0u, registry.Open("SOFTWARE/A\\B", CRegistry::MPLocalMachine, -1));
    EXPECT_TRUE(registry.SetValue("Leaf", "deeper"));
  }
  std::string saved = kSample;
  saved.replace(saved.find("=deep"), 5, "=deeper");
  EXPECT_EQ(saved, read(kRegistry)) << "-1 and the binary spacing are written back as read";
  EXPECT_EQ(kSample, read(kBackup)) << "the previous file becomes the backup";
  EXPECT_EQ("", read(kTemp));
  struct stat info {};
  ASSERT_EQ(0, stat((root_.root() + kRegistry).c_str(), &info));
  EXPECT_EQ(0644u, info.st_mode & 0777u);
  load(root_, nullptr);
  EXPECT_EQ("s=deeper", value("SOFTWARE\\A\\B", "Leaf"));

  // The new content goes to registry.new first: when that cannot be
  // created, the registry and its backup stay as they were, and the change
  // is dropped rather than saved later.
  root_.makeDirs(kTemp);
  CRegistry(CRegistry::MPLocalMachine).SetValue("Other", 1u);
  ASSERT_EQ(0, rmdir((root_.root() + kTemp).c_str()));
  CRegistry::FreeClass();
  EXPECT_EQ(saved, read(kRegistry));
  EXPECT_EQ(kSample, read(kBackup));
}

TEST_F(RegistryTest, FallsBackToBackupThenDefault) {
  const char* backup = "[HKEY_LOCAL_MACHINE]\n[K]\nFrom=s=backup\n\n\n\n";
  const char* fallback = "[HKEY_LOCAL_MACHINE]\n[K]\nFrom=s=default\n\n\n\n";
  struct Case { const char* registry; const char* backup; const char* expected; } cases[] = {
      {nullptr, backup, "s=backup"},
      {"", "", "s=default"},
      {"[HKEY_LOCAL_MACHINE]\n[K]\n\n\n\n", nullptr, "s=default"},  // keys without values: the default is read on top
  };
  for (const Case& c : cases) {
    ScopedSystemRoot root;
    load(root, c.registry, c.backup, fallback);
    EXPECT_EQ(c.expected, value("K", "From")) << (c.registry != nullptr ? c.registry : "<none>");
  }

  load(root_, nullptr, backup);
  CRegistry key("K", CRegistry::MPLocalMachine, -1);
  key.SetValue("New", 7u);
  CRegistry::FreeClass();
  EXPECT_EQ(backup, read(kBackup)) << "no registry to keep, so the backup stays";
  EXPECT_EQ("[HKEY_LOCAL_MACHINE]\n[K]\nFrom=s=backup\nNew=d=7\n\n\n\n", read(kRegistry));

  // A forced load adds to the tree: root keys the file does not hold stay.
  root_.writeFile(kRegistry, "[HKEY_USERS]\n[U]\nx=s=1\n\n\n");
  CRegistry::SetupTree(true);
  EXPECT_EQ("d=7", value("K", "New"));
}

TEST_F(RegistryTest, MalformedLinesAreSkippedWithoutHarm) {
  const std::string malformed =
      "[HKEY_LOCAL_MACHINE]\n[K]\nno marker here\nBad=x=1\nDword=d=\nDword2=d=abc\nBig=d=4294967295\n"
      "Hex=b=zz\nPart=b=1 2 zz 3\n[unclosed\n=s=nameless\nDup=s=first\nDup=s=second\nText=s=a=b=c\n"
      "\r\nCr=s=1\r\n\n\n\ntrailing garbage after the root ends\n";
  std::string deep = "[HKEY_LOCAL_MACHINE]\n";  // never closed: the end of the file closes all
  for (int i = 0; i < 20000; ++i) deep += "[k]\nv=s=1\n";
  std::string tooDeep;
  for (size_t i = 0; i < CRegistryNode::kMaxDepth + 5; ++i) tooDeep += "k\\";
  const std::string binary("[HKEY_LOCAL_MACHINE]\n[K]\nA=s=x\0y\nB=s=\xff\xfe\n\n\n\n", 40);
  const std::string noMachineKey = "[HKEY_USERS]\n[U]\nx=s=1\n\n\n\n", keysOnly = "[HKEY_LOCAL_MACHINE]\n[K]\n\n\n";
  // Lines are read in pieces of 1023 characters; a piece without a marker is skipped.
  const std::string head = "Long=s=", xs(1023 - head.size(), 'x'), ys(477, 'y');
  const std::string longLines = "[HKEY_LOCAL_MACHINE]\n[K]\n" + head + xs + ys + "\n" + head + xs +
                                "Tail=s=rest\nAfter=s=1\n\n\n\n";
  struct Case { const std::string* file; std::string key; const char* name; std::string expected; } cases[] = {
      {&malformed, "K", "Bad", "<no value>"},      {&malformed, "K", "Dword", "<no value>"},
      {&malformed, "K", "Dword2", "<no value>"},   {&malformed, "K", "Big", "d=4294967295"},
      {&malformed, "K", "Hex", "b="},              {&malformed, "K", "Part", "b=0102"},
      {&malformed, "K", "", "s=nameless"},         {&malformed, "K", "Dup", "s=second"},
      {&malformed, "K", "Text", "s=a=b=c"},        {&malformed, "K", "Cr", "s=1\r"},
      {&deep, "k\\k\\k", "v", "s=1"},              {&deep, tooDeep, "v", "<no key>"},
      {&binary, "K", "A", "s=x"},                 {&keysOnly, "K", "x", "<no value>"},  // the read fails, the keys stay
      {&noMachineKey, "", "x", "<no value>"},      {nullptr, "", "x", "<no value>"},  // no file at all
      {&longLines, "K", "Long", "s=" + std::string(1016, 'x')},  {&longLines, "K", "Tail", "s=rest"},
      {&longLines, "K", "After", "s=1"},          {&longLines, "K", ys.c_str(), "<no value>"},
  };
  for (const Case& c : cases) {
    ScopedSystemRoot root;
    clear();
    if (c.file != nullptr) root.writeFile(kRegistry, *c.file);  // may hold NULs
    CRegistry::SetupTree(true);
    EXPECT_EQ(c.expected, value(c.key, c.name)) << &c - cases;
  }
}

TEST_F(RegistryTest, KeysAndValuesAreCreatedEnumeratedAndDeleted) {
  root_.makeDirs("/etc/orvmon");
  load(root_, nullptr);
  CRegistry registry;
  ASSERT_EQ(0u, registry.CreateKey(CRegistry::MPLocalMachine, "SOFTWARE\\X\\Y"));
  ASSERT_EQ(0u, registry.CreateKey(CRegistry::MPLocalMachine, "SOFTWARE\\X\\A"));
  ASSERT_EQ(0u, registry.Open("SOFTWARE\\X", CRegistry::MPLocalMachine, -1));
  EXPECT_TRUE(registry.SetValue("a", 1u));
  EXPECT_TRUE(registry.SetValue("b", "2"));
  EXPECT_NE(0u, registry.CreateKey(CRegistry::MPLocalMachine, "SOFTWARE\\X\\a\\z")) << "value in the way";
  ASSERT_EQ(0u, registry.Open("SOFTWARE\\X", CRegistry::MPLocalMachine, -1)) << "CreateKey moves the handle";

  unsigned subKeys = 0;
  EXPECT_EQ(0u, registry.NoOfSubKeys(&subKeys));
  EXPECT_EQ(2u, subKeys);
  char name[16];
  EXPECT_EQ(0u, registry.EnumKey(name, 16u, 0, nullptr, 0u));
  EXPECT_STREQ("A", name) << "keys enumerate in name order";
  EXPECT_EQ(CRegistry::kNoMoreItems, registry.EnumKey(name, 16u, 2, nullptr, 0u));
  unsigned type = 0, dataSize = 1, nameSize = sizeof name;
  unsigned char data[8];
  EXPECT_EQ(CRegistry::kMoreData, registry.EnumVal(name, &nameSize, 1, &type, data, &dataSize));
  EXPECT_STREQ("b", name);
  EXPECT_EQ(2u, dataSize) << "a short buffer reports the size needed";

  EXPECT_EQ(0u, registry.DeleteValue("a"));
  EXPECT_EQ(CRegistry::kFileNotFound, registry.DeleteValue("a"));
  EXPECT_EQ(CRegistry::kFileNotFound, registry.DeleteKey("b")) << "a value is not a key";
  EXPECT_EQ(0u, registry.DeleteKey("Y"));
  EXPECT_EQ(0u, registry.NoOfSubKeys(&subKeys));
  EXPECT_EQ(1u, subKeys);

  // A pointer value names the key to open.
  ASSERT_TRUE(registry.SetValue("Ptr", "SOFTWARE\\X\\A"));
  CRegistry pointer;
  EXPECT_EQ(0u, pointer.OpenPointerKey("SOFTWARE\\X", "Ptr", CRegistry::MPLocalMachine, -1));
  EXPECT_EQ(registry.GetNode()->findChild("A"), pointer.GetNode());
  EXPECT_EQ(CRegistry::kOpenFailed, pointer.OpenPointerKey("SOFTWARE\\X", "Missing", CRegistry::MPLocalMachine, -1));
}

}  // namespace
