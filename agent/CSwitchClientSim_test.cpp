// The client against the agent simulator, a separate process speaking the
// daemon's protocol from its own implementation.
#include <gtest/gtest.h>

#include <string>

#include "agent/CSwitchClient.h"
#include "agent/SipJson.h"
#include "tests/support/AgentSimulator.h"

namespace {

void Fill(SipJson& record, unsigned oc, unsigned oe, unsigned cabinet) {
  SipJson::GenericValue& cmd = record.GetCmd();
  SipJson::SetCmdElemValue(cmd, "OC", oc, false);
  SipJson::SetCmdElemValue(cmd, "OE", oe, true);
  SipJson::SetCmdElemValue(cmd, "OI", 0, true);
  SipJson::SetCmdElemValue(cmd, "CA", cabinet, false);
}

TEST(SwitchClientSimulator, AttachCabinetReadsAndAWrongVersion) {
  AgentSimulator sim;
  CSwitchClient client;
  client.SetApplicationName("Zentrix");
  ASSERT_TRUE(client.Attach(nullptr));
  ASSERT_TRUE(sim.waitForRequests(1));  // the init command
  EXPECT_NE(sim.requests()[0].find("\"OC\":65440,\"OE\":4352"), std::string::npos);

  unsigned cabinet = 99;
  ASSERT_TRUE(client.GetServerCabinetNumber(cabinet));
  EXPECT_EQ(cabinet, 0u);
  SipJson record;
  Fill(record, 0x0301, 0, cabinet);  // status of the first fan
  EXPECT_EQ(client.Request(record, 10), 0u);
  unsigned status = 0;
  EXPECT_TRUE(record.GetCmdUIntData(0, status));
  EXPECT_EQ(status, 1u);
  Fill(record, 0x0C00, 0x0608, cabinet);  // system model text
  EXPECT_EQ(client.Request(record, 10), 0u);
  std::string model;
  EXPECT_TRUE(record.GetCmdDataString(0, model, 0));
  EXPECT_EQ(model, "ORVANA RS2400 G3");

  ASSERT_TRUE(sim.control("fault version 2"));
  Fill(record, 0x0301, 0, cabinet);
  EXPECT_EQ(client.Request(record, 10), 22u);
  client.Detach();
}

}  // namespace
