#include <signal.h>

#include <string>

#include <gtest/gtest.h>

#include "tests/support/TestSupport.h"

TEST(EventWatchTest, PrintsEachEventAndEndsCleanlyOnSignal) {
  for (int signal : {SIGTERM, SIGINT}) {
    AgentSimulator sim;
    ProgramRun watcher({EVENT_WATCH_BIN});
    // Its output once it holds `lines`, or as it stands after ten seconds.
    const auto printed = [&watcher](const std::string& lines) {
      WaitUntil([&] { return watcher.out() == lines; });
      return watcher.out();
    };
    ASSERT_TRUE(sim.waitForEventChannels(1));
    ASSERT_TRUE(sim.control(R"(event {"OC":770,"OI":2,"CA":0,"ST":0,"DA":5580})"));
    const std::string first = "OC=0x0302 OE=0x0000 OI=2 CA=0 ST=0 DA=5580\n";
    EXPECT_EQ(printed(first), first);
    ASSERT_TRUE(sim.control(R"(event {"SIP":{"V":1,"CMD":[{"OC":1025,"OE":3,"CA":1,"ST":3,"DA":{"RAW":[1,2]}},{"OC":8961,"ST":0}]}})"));
    const std::string all = first + "OC=0x0401 OE=0x0003 OI=0 CA=1 ST=3 DA={\"RAW\":[1,2]}\n" +
                            "OC=0x2301 OE=0x0000 OI=0 CA=0 ST=0 DA=-\n";
    EXPECT_EQ(printed(all), all);

    kill(watcher.pid(), signal);
    EXPECT_EQ(watcher.wait(10000).status(), 0) << "signal " << signal;
    EXPECT_NE(sim.query("status").find("event-channels=0"), std::string::npos) << "the channel was left open";
  }
}
