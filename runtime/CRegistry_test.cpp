#include "runtime/CRegistry.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/support/TestSupport.h"

namespace {

const char kRegistry[] = "/etc/orvmon/registry", kBackup[] = "/etc/orvmon/registry.old",
           kDefault[] = "/etc/orvmon/registry.default";

class RegistryTest : public ::testing::Test {
 protected:
  // Loading adds to the process-wide tree, so the tree is emptied first and
  // then loaded from exactly these files.
  static void load(const ScopedSystemRoot& root, std::vector<std::pair<const char*, std::string>> files) {
    CRegistry all;
    if (all.Open("", nullptr, -1) == 0) all.GetNode()->deleteNode("");
    for (const auto& file : files) root.writeFile(file.first, file.second);
    CRegistry::SetupTree(true);
  }
  std::string read(const char* file) const { return ScopedSystemRoot::readFile(root_.path(file)); }

  ScopedSystemRoot root_;
};

// What is read is what is saved, so the saved file shows both: an
// installer's file comes back as written (-1, the binary spacing), bad lines
// are skipped, lines are read in pieces of 1023 characters, and a file
// without HKEY_LOCAL_MACHINE gets the five root keys.
TEST_F(RegistryTest, SavesWhatItReadSkippingWhatItCannotParse) {
  const std::string head = "[HKEY_LOCAL_MACHINE]\n[K]\n", tail = "\n\n\n", xs(1016, 'x'),
                    installed = "[HKEY_CLASSES_ROOT]\n\n[HKEY_CURRENT_CONFIG]\n\n[HKEY_CURRENT_USER]\n\n"
                                "[HKEY_LOCAL_MACHINE]\n[SOFTWARE]\nBlob=b=0a ff \nCount=d=-1\nEmpty=b=\n"
                                "Name=s=Tarnwell Suite\nPath=es=$HOME/bin\n[A]\n[B]\nLeaf=s=deep\n\n\n\n\n[HKEY_USERS]\n\n\n";
  const char binary[] = "[HKEY_LOCAL_MACHINE]\n[K]\nA=s=x\0y\nB=s=\xff\n";
  const std::pair<std::string, std::string> cases[] = {
      {installed, installed},
      {head + "no marker\nBad=x=1\nDword=d=\nPart=b=1 2 zz 3\n[unclosed\n=s=nameless\nDup=s=first\n"
              "Dup=s=second\nText=s=a=b=c\n\n\n\ngarbage after the root ends\n[X]\nx=s=1\n",
       head + "=s=nameless\nDup=s=second\nPart=b=01 02 \nText=s=a=b=c\n" + tail},
      {std::string(binary, sizeof binary - 1), head + "A=s=x\nB=s=\xff\n" + tail},
      {head + "Long=s=" + xs + "Tail=s=rest\n", head + "Long=s=" + xs + "\nTail=s=rest\n" + tail},
      {"[HKEY_USERS]\n[U]\nx=s=1\n", "[HKEY_CLASSES_ROOT]\n\n[HKEY_CURRENT_CONFIG]\n\n[HKEY_CURRENT_USER]\n\n"
                                     "[HKEY_LOCAL_MACHINE]\n\n[HKEY_USERS]\n[U]\nx=s=1\n" + tail}};
  for (const auto& [file, saved] : cases) {
    ScopedSystemRoot root;
    load(root, {{kRegistry, file}});
    ASSERT_TRUE(CRegistry::SaveTree());
    EXPECT_EQ(saved, ScopedSystemRoot::readFile(root.path(kRegistry))) << file.substr(0, 60);
  }
}

// The registry, then its backup, then the default. A save goes through
// registry.new and keeps the previous registry, if any, as the backup.
TEST_F(RegistryTest, LoadsTheFirstReadableFileAndSavesKeepingTheOldOne) {
  const std::string backup = "[HKEY_LOCAL_MACHINE]\n[K]\nFrom=s=backup\n\n\n\n",
                    fallback = "[HKEY_LOCAL_MACHINE]\n[K]\nFrom=s=default\n\n\n\n";
  struct Case { std::vector<std::pair<const char*, std::string>> files; const char* expected; } cases[] = {
      {{{kBackup, backup}, {kDefault, fallback}}, "backup"},
      {{{kRegistry, ""}, {kBackup, ""}, {kDefault, fallback}}, "default"},
      {{{kRegistry, "[HKEY_LOCAL_MACHINE]\n[K]\n\n\n\n"}, {kDefault, fallback}}, "default"}};  // keys alone: unread
  for (const Case& c : cases) {
    ScopedSystemRoot root;
    load(root, c.files);
    std::string from;
    EXPECT_EQ(0u, CRegistry("K", CRegistry::MPLocalMachine, -1).QueryValue(from, "From"));
    EXPECT_EQ(c.expected, from) << &c - cases;
  }
  load(root_, {{kBackup, backup}});
  CRegistry("K", CRegistry::MPLocalMachine, -1).SetValue("New", 7u);
  EXPECT_EQ(backup, read(kBackup));
  const std::string saved = read(kRegistry);
  EXPECT_EQ("[HKEY_LOCAL_MACHINE]\n[K]\nFrom=s=backup\nNew=d=7\n\n\n\n", saved);
  CRegistry(CRegistry::MPLocalMachine).SetValue("Other", 1u);
  EXPECT_EQ(saved, read(kBackup));
  // When registry.new cannot be created, the change is dropped, not saved later.
  const std::string current = read(kRegistry);
  root_.makeDirs("/etc/orvmon/registry.new");
  CRegistry(CRegistry::MPLocalMachine).SetValue("Dropped", 1u);
  ASSERT_EQ(0, rmdir(root_.path("/etc/orvmon/registry.new").c_str()));
  CRegistry::FreeClass();
  EXPECT_EQ(current, read(kRegistry));
}

// Paths split at "\" and "/" and match with case; keys nested too deep are
// cut rather than recursed into. Nothing in the program writes, enumerates
// or deletes; this walks that API once.
TEST_F(RegistryTest, KeysAreOpenedCreatedEnumeratedAndDeleted) {
  std::string deep = "[HKEY_LOCAL_MACHINE]\n", tooDeep;  // never closed: the end of the file closes all
  for (int i = 0; i < 20000; ++i) deep += "[k]\nv=s=1\n";
  for (size_t i = 0; i < CRegistryNode::kMaxDepth + 5; ++i) tooDeep += "k\\";
  load(root_, {{kRegistry, deep}});
  CRegistry registry;
  EXPECT_EQ(0u, registry.Open("k/k\\\\k\\", CRegistry::MPLocalMachine, -1));
  EXPECT_NE(0u, registry.Open(tooDeep.c_str(), CRegistry::MPLocalMachine, -1));
  ASSERT_EQ(0u, registry.CreateKey(CRegistry::MPLocalMachine, "S\\X\\Y"));
  ASSERT_EQ(0u, registry.CreateKey(CRegistry::MPLocalMachine, "S\\X\\A"));
  ASSERT_EQ(0u, registry.Open("S\\X", CRegistry::MPLocalMachine, -1));
  EXPECT_TRUE(registry.SetValue("a", ~0u));
  EXPECT_TRUE(registry.SetValue("b", "2"));
  EXPECT_NE(0u, CRegistry().CreateKey(CRegistry::MPLocalMachine, "S\\X\\a\\z"));  // a value in the way
  EXPECT_NE(0u, CRegistry().Open("s\\X", CRegistry::MPLocalMachine, -1));
  unsigned count = 0, type = 0, dataSize = 1, nameSize = 16;
  char name[16];
  unsigned char data[8];
  EXPECT_EQ(0u, registry.QueryValue(&count, "a"));
  EXPECT_EQ(~0u, count);
  EXPECT_EQ(0u, registry.NoOfSubKeys(&count));
  EXPECT_EQ(2u, count);
  EXPECT_EQ(0u, registry.EnumKey(name, 16u, 0, nullptr, 0u));
  EXPECT_STREQ("A", name) << "keys enumerate in name order";
  EXPECT_EQ(CRegistry::kNoMoreItems, registry.EnumKey(name, 16u, 2, nullptr, 0u));
  EXPECT_EQ(CRegistry::kMoreData, registry.EnumVal(name, &nameSize, 1, &type, data, &dataSize));
  EXPECT_STREQ("b", name);
  EXPECT_EQ(2u, dataSize) << "a short buffer reports the size needed";
  EXPECT_EQ(0u, registry.DeleteValue("a"));
  EXPECT_EQ(CRegistry::kFileNotFound, registry.DeleteValue("a"));
  EXPECT_EQ(CRegistry::kFileNotFound, registry.DeleteKey("b"));  // a value is not a key
  EXPECT_EQ(0u, registry.DeleteKey("Y"));
  ASSERT_TRUE(registry.SetValue("Ptr", "S\\X\\A"));  // a pointer value names the key to open
  EXPECT_EQ(0u, registry.NoOfSubKeys(&count));
  EXPECT_EQ(1u, count) << "values are not keys";
  CRegistry pointer;
  EXPECT_EQ(0u, pointer.OpenPointerKey("S\\X", "Ptr", CRegistry::MPLocalMachine, -1));
  EXPECT_EQ(registry.GetNode()->findChild("A"), pointer.GetNode());
}

}  // namespace
