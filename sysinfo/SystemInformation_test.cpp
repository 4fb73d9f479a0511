#include "sysinfo/SystemInformation.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "agent/SipJson.h"
#include "sysinfo/ComponentStatusPrinter.h"
#include "tests/support/TestSupport.h"

namespace {

// A server with what the rendered-report tests do not reach: a second RAID
// adapter (so drive reads carry a sub-index), negative voltage limits, and
// odd threshold and stream blocks (overrides). The overall statuses are the
// health page test's; Driver Monitor classes and addresses are the golden
// reports'.
const char* const kServerProfile = R"({"cabinet": 7,
  "system": {"hostName": "host1", "currentPowerConsumption": "210 W", "maximumPowerConsumption": "800 W"},
  "powerSupplies": [{"status": 10, "currentWatts": 180, "nominalWatts": 800}, {"status": 0}],
  "voltages": [{"min": 1140, "max": 1260}, {"min": -250, "max": 330}],
  "raid": {"version": "7.1", "adapters": [{}, {"logicalDrives": [{"sizeMB": 1000}],
    "physicalDrives": [{}, {"designation": "PD1"}]}]},
  "ipAddresses": ["192.168.1.10", "fe80::21a:2bff:fe3c:4d5e"],
  "overrides": [
    {"OC": "0x0523", "OI": 2, "DA": {"RAW": [1, 2, 3]}}, {"OC": "0x0523", "OI": 3, "DA": {"RAW": [1, 2, 3, 4, 5]}},
    {"OC": "0x0523", "OI": 4, "ST": 21, "DA": {"RAW": [1, 2, 3, 4]}}, {"OC": "0x0523", "OI": 5, "DA": 305419896},
    {"OC": "0x0B10", "DA": {"RAW": [1, 2, 3]}}, {"OC": "0x0B10", "OI": 1, "DA": "text"},
    {"OC": "0x0B10", "OI": 2, "DA": {"RAW": []}}, {"OC": "0x0B10", "OI": 3, "ST": 12, "DA": {"RAW": [9]}},
    {"OC": "0x0B10", "OI": 4, "DA": {"BYTES": [9]}}]})";

// A getter call, what it returned and what was expected, both printed by
// gtest; the expectation is converted to the getter's own return type.
struct Row {
  const char* call;
  std::string actual, expected;
};
#define ROW(call, ...) \
  Row { #call, testing::PrintToString(info.call), testing::PrintToString(decltype(info.call)(__VA_ARGS__)) }

void ExpectRows(const std::vector<Row>& rows) {
  for (const Row& row : rows) EXPECT_EQ(row.actual, row.expected) << row.call;
}

using CS = ComponentStatus;

TEST(SystemInformationTest, GettersReadTheirAddressesAndDecodeTheReplies) {
  AgentSimulator agent({kServerProfile});
  SystemInformation info;
  // Evaluated in order; the threshold rows follow reads without a sub-index,
  // as thresholds send the sub-index the previous read left. Status and type
  // texts are the maps' own tests' and the rendered report's business.
  ExpectRows({
      ROW(getCabinetNumber(), 7), ROW(getOVRaidSystemVersion(0xAA03), "7.1"),
      ROW(getCurrentPowerConsumption(), "210 W"), ROW(getMaximumPowerConsumption(), "800 W"),
      ROW(getPowerSupplyStatus(0), CS(STATUS_WARNING, "AC Failure")),
      ROW(getPowerSupplyStatus(1), CS(STATUS_NOT_PRESENT, "Not Present")),
      // Thresholds take exactly a 4-byte block (a number counts as its bytes);
      // positive limits are in the golden reports.
      ROW(getVoltageThresholds(1), uint16_t(-250) | 330u << 16), ROW(getVoltageThresholds(2), 0),
      ROW(getVoltageThresholds(3), 0), ROW(getVoltageThresholds(4), 0), ROW(getVoltageThresholds(5), 305419896),
      ROW(getNumberRaidPhysicalDrives(0), 0), ROW(getNumberRaidPhysicalDrives(1), 2),
      ROW(getRaidPhysicalDriveDesignation(1, 1), "PD1"), ROW(getRaidLogicalDriveSize(1, 0), 1000),
  });
}

// What the report's requests never show: on a fresh record the thresholds
// send no cabinet, slot 1 of the addresses never writes the value id, and
// the reset overwrites the data member.
TEST(SystemInformationTest, ThresholdsAndAddressesWriteOnlyTheirOwnMembers) {
  AgentSimulator agent({kServerProfile});
  SystemInformation info;
  info.getVoltageThresholds(0);
  EXPECT_EQ(agent.requests().back(), Sip("{\"OC\":1315}"));
  ASSERT_TRUE(agent.control("fault invalid-json oc=57608 count=1"));  // resets the record
  info.getIpAddresses();
  EXPECT_EQ(agent.requests().back(), Sip("{\"OE\":1}"));
  // The reset sends the number 1 even where the last reply left a text.
  EXPECT_EQ(info.getHostName(), "host1");
  info.clearDriverMonitorStatus();
  SipJson sent;
  ASSERT_TRUE(sent.ParseReply(agent.requests().back()));
  EXPECT_EQ(sent.GetCmdElemValue(0, "DA", 0), 1u);
}

TEST(SystemInformationTest, StreamReadsNeedARawBlockAndFailuresKeepTheStream) {
  AgentSimulator agent({kServerProfile});
  SystemInformation info;
  CDataStream stream({7, 7});
  ASSERT_TRUE(stream.skip(1));
  ASSERT_TRUE(info.tryGetSipStream(stream, 0x0B10, 0, 0));
  EXPECT_EQ(stream.bytes(), (std::vector<unsigned char>{1, 2, 3}));
  EXPECT_EQ(stream.position(), 0u);
  // Text, a failing status, a non-RAW object, no value.
  for (unsigned objectIndex : {1, 3, 4, 5}) EXPECT_FALSE(info.tryGetSipStream(stream, 0x0B10, 0, objectIndex));
  EXPECT_EQ(stream.bytes(), (std::vector<unsigned char>{1, 2, 3}));
  ASSERT_TRUE(info.tryGetSipStream(stream, 0x0B10, 0, 2));
  EXPECT_TRUE(stream.empty());
}

TEST(SystemInformationTest, MissingValuesTypeMismatchesAndNonZeroStatusesFail) {
  AgentSimulator agent({R"({"overrides": [
      {"OC": "0x0304", "DA": 5}, {"OC": "0x0300", "DA": "3"}, {"OC": "0x0506", "DA": "180"},
      {"OC": "0x0C00", "OE": "0x0608", "DA": {"RAW": [65, 66]}}, {"OC": "0x0301", "DA": true},
      {"OC": "0x0400", "ST": 12, "DA": 4}, {"OC": "0x0500", "ST": 21, "DA": 4},
      {"OC": "0x0600", "ST": 255, "DA": 4}, {"OC": "0x0404", "ST": 12, "DA": "T1"},
      {"OC": "0x0700", "DA": 3}, {"OC": "0x0702", "DA": "DIMM"}, {"OC": "0x0507", "DA": 2.5},
      {"OC": "0x21DF", "ST": 4}, {"OC": "0x180A", "ST": 4, "DA": 1}],
      "ipAddresses": [{"raw": [1, 2, 3, 4, 5, 6]}]})"});
  SystemInformation info;
  EXPECT_TRUE(info.getDrvMonComponentIndexes(2).empty());
  // A failed read gives 0, which most maps know.
  ExpectRows({ROW(getUptimeSeconds(), 0), ROW(getHostName(), ""), ROW(getRaidStatus(), CS(STATUS_UNKNOWN, "Unknown")),
              ROW(getMemoryModuleType(0), " "), ROW(getVoltageThresholds(0), 0),
              // Numbers delivered as text and the other way round; a raw block is no text.
              ROW(getFanDesignation(0), ""), ROW(getNumberFans(), 0), ROW(getModelName(), ""),
              ROW(getFanStatus(0), CS(STATUS_NOT_PRESENT, "Disabled")),
              // Any status but 0 fails, even those the agent counts as answered.
              ROW(getNumberTempSensors(), 0), ROW(getNumberPowerSupplies(), 0), ROW(getNumberProcessors(), 0),
              ROW(getTempSensorDesignation(0), ""),
              // Plain replies still work after failures on the shared record.
              ROW(getNumberMemoryModules(), 3), ROW(getMemoryModuleSocket(0), "DIMM"),
              // An address of no known length reads as empty; an unknown slot is left out.
              ROW(getIpAddresses(), std::vector<std::string>{""})});
  unsigned int value = 99;
  EXPECT_FALSE(info.tryGetPowerSupplyCurrentPower(value, 0));
  EXPECT_EQ(value, 99u);
  // A number that is no 32-bit integer fails but resets the value.
  EXPECT_FALSE(info.tryGetPowerSupplyNominalPower(value, 0));
  EXPECT_EQ(value, 0u);
  EXPECT_FALSE(info.updateRaidSnapshot());

  // A reset fails on an error status or a reply without data; any data will do.
  EXPECT_FALSE(info.clearDriverMonitorStatus());
  ASSERT_TRUE(agent.control(R"(set 0x180A 0 0 {"ST":0})"));
  EXPECT_FALSE(info.clearDriverMonitorStatus());
  ASSERT_TRUE(agent.control(R"(set 0x180A 0 0 {"ST":0,"DA":"done"})"));
  EXPECT_TRUE(info.clearDriverMonitorStatus());

}

}  // namespace
