#include "app/CCmdLineT.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// Owns the argument strings and hands out a C argv (null entries allowed).
class Args {
 public:
  Args(std::initializer_list<const char*> args) {
    for (const char* a : args) {
      storage_.push_back(a ? a : "");
      isNull_.push_back(a == nullptr);
    }
    for (size_t i = 0; i < storage_.size(); ++i)
      argv_.push_back(isNull_[i] ? nullptr : &storage_[i][0]);
    argv_.push_back(nullptr);
  }
  int argc() const { return static_cast<int>(storage_.size()); }
  char** argv() { return argv_.data(); }

 private:
  std::vector<std::string> storage_;
  std::vector<bool> isNull_;
  std::vector<char*> argv_;
};

using CmdLine = CCmdLineT<std::string>;

std::vector<std::string> Values(CmdLine& cmd, const char* name) {
  auto it = cmd.GetSwitch(name);
  return it == cmd.end() ? std::vector<std::string>{"<absent>"} : it->second.m_strings;
}

}  // namespace

TEST(CCmdLineTTest, SwitchNamesAreCaseInsensitiveOnlyWhenAsked) {
  Args args{"/usr/bin/Zentrix", "-Output", "r.html", "-AutoStart"};
  CmdLine insensitive("-", true);
  EXPECT_EQ(insensitive.SplitLine(args.argc(), args.argv(), true), 2);
  EXPECT_EQ(insensitive.GetProgramName(), "Zentrix");
  EXPECT_EQ(Values(insensitive, "output"), std::vector<std::string>{"r.html"});
  EXPECT_EQ(Values(insensitive, "OUTPUT"), std::vector<std::string>{"r.html"});
  EXPECT_EQ(Values(insensitive, "-output"), std::vector<std::string>{"r.html"});
  EXPECT_TRUE(Values(insensitive, "autostart").empty());
  // Values keep their case.
  Args upper{"Zentrix", "-output", "Report.HTML"};
  insensitive.SplitLine(upper.argc(), upper.argv(), true);
  EXPECT_EQ(Values(insensitive, "OuTpUt"), std::vector<std::string>{"Report.HTML"});

  CmdLine sensitive("-", false);
  EXPECT_EQ(sensitive.SplitLine(args.argc(), args.argv(), false), 2);
  EXPECT_EQ(Values(sensitive, "Output"), std::vector<std::string>{"r.html"});
  EXPECT_EQ(sensitive.GetSwitch("output"), sensitive.end());
}

TEST(CCmdLineTTest, TokenClassification) {
  // "-5" is a value; "/?" and a lone "-" are not switches; a null token is skipped.
  Args args{"Zentrix", "-output", "-5", "/?", "-", nullptr, "-clearstatus", "-x1"};
  CmdLine cmd("-", true);
  EXPECT_EQ(cmd.SplitLine(args.argc(), args.argv(), true), 3);
  EXPECT_EQ(Values(cmd, "output"), (std::vector<std::string>{"-5", "/?", "-"}));
  EXPECT_TRUE(Values(cmd, "clearstatus").empty());
  EXPECT_TRUE(Values(cmd, "X1").empty());

  Args slashOnly{"Zentrix", "/?"};
  EXPECT_EQ(cmd.SplitLine(slashOnly.argc(), slashOnly.argv(), true), 0);
  EXPECT_EQ(cmd.GetSwitch("?"), cmd.end());

  Args question{"Zentrix", "-?"};
  EXPECT_EQ(cmd.SplitLine(question.argc(), question.argv(), true), 1);
  EXPECT_NE(cmd.GetSwitch("?"), cmd.end());

  // Several switch characters.
  CmdLine both("-/", true);
  EXPECT_EQ(both.SplitLine(slashOnly.argc(), slashOnly.argv(), true), 1);
  EXPECT_NE(both.GetSwitch("/?"), both.end());
  EXPECT_NE(both.GetSwitch("-?"), both.end());
}

TEST(CCmdLineTTest, ValuesConsumptionAndRepeats) {
  CmdLine cmd("-", true);
  // A switch followed by another switch takes no value.
  Args noValue{"Zentrix", "-output", "-clearstatus"};
  EXPECT_EQ(cmd.SplitLine(noValue.argc(), noValue.argv(), true), 2);
  EXPECT_TRUE(Values(cmd, "output").empty());
  // An empty argument is consumed but not stored; the next loose token joins.
  Args empty{"Zentrix", "-output", "", "b"};
  EXPECT_EQ(cmd.SplitLine(empty.argc(), empty.argv(), true), 1);
  EXPECT_EQ(Values(cmd, "output"), std::vector<std::string>{"b"});
  // Trailing values join the most recent switch.
  Args trailing{"Zentrix", "-output", "a", "-autostart", "b", "c"};
  EXPECT_EQ(cmd.SplitLine(trailing.argc(), trailing.argv(), true), 2);
  EXPECT_EQ(Values(cmd, "output"), std::vector<std::string>{"a"});
  EXPECT_EQ(Values(cmd, "autostart"), (std::vector<std::string>{"b", "c"}));
  // A repeated switch keeps its first occurrence and value; values after the
  // repeat still join the stored entry.
  Args repeated{"Zentrix", "-output", "first", "-OUTPUT", "second", "third"};
  EXPECT_EQ(cmd.SplitLine(repeated.argc(), repeated.argv(), true), 1);
  EXPECT_EQ(Values(cmd, "output"), (std::vector<std::string>{"first", "third"}));
  // Loose tokens before any switch are dropped.
  Args loose{"Zentrix", "foo", "bar"};
  EXPECT_EQ(cmd.SplitLine(loose.argc(), loose.argv(), true), 0);
  EXPECT_EQ(cmd.begin(), cmd.end());
}

TEST(CCmdLineTTest, DegenerateInputs) {
  CmdLine cmd("-", true);
  Args only{"dir/sub/"};
  EXPECT_EQ(cmd.SplitLine(only.argc(), only.argv(), true), 0);
  EXPECT_EQ(cmd.GetProgramName(), "");
  Args noSlash{"Zentrix"};
  EXPECT_EQ(cmd.SplitLine(noSlash.argc(), noSlash.argv(), true), 0);
  EXPECT_EQ(cmd.GetProgramName(), "Zentrix");
  EXPECT_EQ(cmd.SplitLine(0, nullptr, true), 0);
  Args nullProgram{nullptr, "-a"};
  EXPECT_EQ(cmd.SplitLine(nullProgram.argc(), nullProgram.argv(), true), 1);

  EXPECT_EQ(cmd.GetSwitch(nullptr), cmd.end());
  EXPECT_EQ(cmd.GetSwitch("-"), cmd.end());
  EXPECT_EQ(cmd.GetSwitch(""), cmd.end());
  EXPECT_NE(cmd.GetSwitch("a"), cmd.end());
}
