#include "app/CCmdLineT.h"

#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <vector>

namespace {

using CmdLine = CCmdLineT<std::string>;

// Splits `args` (a null entry stays a null pointer) after the program name
// and returns the switch table as "NAME=value,value;..." in table order.
std::string Split(CmdLine& cmd, std::vector<const char*> args, bool caseInsensitive = true) {
  const int argc = static_cast<int>(args.size());
  args.push_back(nullptr);  // SplitLine only reads the tokens
  const int count = cmd.SplitLine(argc, const_cast<char**>(args.data()), caseInsensitive);
  EXPECT_EQ(count, std::distance(cmd.begin(), cmd.end()));
  std::string table;
  for (const auto& [name, param] : cmd) {
    table += name + "=";
    for (size_t i = 0; i < param.m_strings.size(); ++i) table += (i ? "," : "") + param.m_strings[i];
    table += ";";
  }
  return table;
}

}  // namespace

// Folded names, values that keep their case, a switch before a switch or at
// the end, and loose tokens before any switch are the whole-program tests'
// (command lines that write a report or show the help).
TEST(CCmdLineTTest, SwitchesTakeTheirValues) {
  const struct { std::vector<const char*> args; const char* table; } cases[] = {
      // "-5" is a value; "/?" and a lone "-" are no switches; a null token is no value and is skipped.
      {{"Zentrix", "-output", "-5", "/?", "-", "-clearstatus", nullptr, "-x1"}, "CLEARSTATUS=;OUTPUT=-5,/?,-;X1=;"},
      // An empty argument is consumed but not stored; the next loose token joins.
      {{"Zentrix", "-output", "", "b"}, "OUTPUT=b;"},
      {{"Zentrix", "-output", "a", "-autostart", "b", "c"}, "AUTOSTART=b,c;OUTPUT=a;"},
      // A repeated switch keeps its first value; later loose tokens still join it.
      {{"Zentrix", "-output", "first", "-OUTPUT", "second", "third"}, "OUTPUT=first,third;"},
      {{nullptr, "-a"}, "A=;"},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    CmdLine cmd("-", true);
    EXPECT_EQ(Split(cmd, cases[i].args), cases[i].table) << "case " << i;
  }
}

TEST(CCmdLineTTest, LookupsProgramNameAndCaseSensitivity) {
  CmdLine cmd("-", true);
  Split(cmd, {"/usr/bin/Zentrix", "-Output", "r.html"});
  EXPECT_EQ(cmd.GetProgramName(), "Zentrix");
  for (const char* name : {"output", "OUTPUT", "-oUtput"}) EXPECT_NE(cmd.GetSwitch(name), cmd.end()) << name;
  for (const char* name : {"-", "", "outpu"}) EXPECT_EQ(cmd.GetSwitch(name), cmd.end()) << name;
  EXPECT_EQ(cmd.GetSwitch(nullptr), cmd.end());
  Split(cmd, {"dir/sub/"});
  EXPECT_EQ(cmd.GetProgramName(), "");
  EXPECT_EQ(cmd.SplitLine(0, nullptr, true), 0);

  CmdLine sensitive("-", false);
  EXPECT_EQ(Split(sensitive, {"Zentrix", "-Output", "r.html"}, false), "Output=r.html;");
  EXPECT_EQ(sensitive.GetSwitch("output"), sensitive.end());

  // Several switch characters: "/?" is a switch and either character finds it.
  CmdLine both("-/", true);
  EXPECT_EQ(Split(both, {"Zentrix", "/?"}), "?=;");
  EXPECT_NE(both.GetSwitch("-?"), both.end());
}
