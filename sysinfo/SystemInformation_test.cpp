#include "sysinfo/SystemInformation.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "sysinfo/ComponentStatusPrinter.h"
#include "tests/support/AgentSimulator.h"
#include "tests/support/ScopedSystemRoot.h"

namespace {

// A server with something unusual in nearly every family: unknown codes,
// a second RAID adapter (so drive reads carry a sub-index), negative
// voltage limits, Driver Monitor components of two classes.
const char* const kServerProfile = R"({
  "cabinet": 0,
  "system": {"model": "RX-1", "serialNumber": "SN-1", "chassisId": "CH-1", "assetTag": "AT-1",
             "uuid": "UU-1", "powerOnSeconds": 3600, "boardSerialNumber": "BS-1",
             "boardIdentNumber": "BI-1", "biosVersion": "B1.0", "osName": "Linux 6",
             "uptimeSeconds": 120, "hostName": "host1", "agentVersion": "9.1",
             "currentPowerConsumption": "210 W", "maximumPowerConsumption": "800 W"},
  "fans": [{"designation": "FAN1", "status": 1, "type": 4, "rpm": 5200},
           {"designation": "FAN2", "status": 7, "type": 9, "rpm": 0}],
  "temperatureSensors": [{"designation": "Ambient", "status": 2, "type": 2, "celsius": 24},
                         {"designation": "CPU1", "status": 6, "type": 1, "celsius": 51}],
  "powerSupplies": [{"designation": "PSU1", "status": 10, "currentWatts": 180, "nominalWatts": 800},
                    {"designation": "PSU2", "status": 0}],
  "voltages": [{"designation": "12V", "status": 1, "current": 1210, "min": 1140, "max": 1260},
               {"designation": "VBAT", "status": 2, "current": 290, "min": -250, "max": 330}],
  "memoryModules": [{"socket": "DIMM-1A", "status": 1, "sizeMB": 16384, "type": "DDR5", "subtype": "RDIMM"},
                    {"socket": "DIMM-1B", "status": 0}],
  "processors": [{"socket": "CPU1", "status": 5, "type": "Octa 3", "mhz": 2400}],
  "pciSlots": [{"designation": "SLOT1", "status": 128}, {"designation": "SLOT2", "status": 129}],
  "raid": {"version": "7.1", "status": 1,
           "adapters": [{"designation": "Onboard", "status": 0},
                        {"designation": "Ctrl-B", "status": 255,
                         "logicalDrives": [{"status": 1, "designation": "LD0", "sizeMB": 1000, "level": "RAID-1"}],
                         "physicalDrives": [{"status": 14, "smart": 0, "designation": "PD0", "interface": 8, "sizeMB": 500},
                                            {"status": 99, "smart": 255, "designation": "PD1", "interface": 15, "sizeMB": 501}]}]},
  "driverMonitor": [{"designation": "eth0", "location": "PCI 1", "class": 2, "status": 3},
                    {"designation": "sda", "location": "SATA 0", "class": 5, "status": 1},
                    {"designation": "eth1", "location": "PCI 2", "class": 2, "status": 2}],
  "overall": {"environment": 11, "powerSupply": 12, "massStorage": 13, "systemBoard": 14, "network": 15,
              "massStorageAdapters": 16, "raidAdapters": 17, "raidLogicalDrives": 18,
              "raidPhysicalDrives": 19, "coolingDevices": 20, "temperature": 21, "powerSupplyUnits": 22,
              "voltages": 23, "memoryModules": 24, "processors": 25, "pciSlots": 26, "networkAdapters": 27},
  "ipAddresses": ["192.168.1.10", "fe80::21a:2bff:fe3c:4d5e"]
})";

// A profile written to a temporary file for the simulator to load.
class ProfileFile {
 public:
  explicit ProfileFile(const std::string& json) {
    char pattern[] = "/tmp/zentrix-profile-XXXXXX";
    int fd = mkstemp(pattern);
    if (fd < 0) throw std::runtime_error("mkstemp failed");
    path_ = pattern;
    if (write(fd, json.data(), json.size()) != static_cast<ssize_t>(json.size())) {
      close(fd);
      throw std::runtime_error("profile not written");
    }
    close(fd);
  }
  ~ProfileFile() { unlink(path_.c_str()); }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// One simulated agent with its own profile, started per test.
class Agent {
 public:
  explicit Agent(const std::string& profileJson) : profile_(profileJson) {
    AgentSimulator::Options options;
    options.profile = profile_.path();
    sim_ = std::make_unique<AgentSimulator>(options);
  }
  AgentSimulator& sim() { return *sim_; }

  // The members of the first command of every request recorded since
  // `mark`, each as compact JSON text.
  using Command = std::map<std::string, std::string>;
  std::vector<Command> commandsSince(size_t mark) {
    std::vector<Command> commands;
    const std::vector<std::string> texts = sim_->requests();
    for (size_t i = mark; i < texts.size(); ++i) {
      rapidjson::Document doc;
      doc.Parse(texts[i].c_str());
      Command command;
      if (!doc.HasParseError() && doc.IsObject() && doc.HasMember("SIP") && doc["SIP"].HasMember("CMD") &&
          doc["SIP"]["CMD"].IsArray() && !doc["SIP"]["CMD"].Empty()) {
        for (auto& m : doc["SIP"]["CMD"][0].GetObject()) {
          rapidjson::StringBuffer buffer;
          rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
          m.value.Accept(writer);
          command[m.name.GetString()] = buffer.GetString();
        }
      }
      commands.push_back(command);
    }
    return commands;
  }
  size_t mark() { return sim_->requests().size(); }
  // The one request a call made (empty command when it made none or more).
  Command only(size_t mark) {
    std::vector<Command> commands = commandsSince(mark);
    EXPECT_EQ(commands.size(), 1u);
    return commands.size() == 1 ? commands[0] : Command();
  }

 private:
  ProfileFile profile_;
  std::unique_ptr<AgentSimulator> sim_;
};

std::string ServerProfile(unsigned cabinet) {
  std::string profile = kServerProfile;
  const std::string zero = "\"cabinet\": 0";
  return profile.replace(profile.find(zero), zero.size(), "\"cabinet\": " + std::to_string(cabinet));
}

std::string ProfileWithOverrides(const std::string& overrides, const std::string& extra = "") {
  return "{\"cabinet\": 0" + extra + ", \"overrides\": [" + overrides + "]}";
}

ComponentStatus Status(ComponentStatusValue v, const char* text) { return {v, text}; }

TEST(SystemInformationTest, GettersReadTheirAddressesAndMapTheCodes) {
  Agent agent(kServerProfile);
  SystemInformation info;

  EXPECT_EQ(info.getModelName(), "RX-1");
  EXPECT_EQ(info.getSystemSerialNumber(), "SN-1");
  EXPECT_EQ(info.getChassisID(), "CH-1");
  EXPECT_EQ(info.getAssetTag(), "AT-1");
  EXPECT_EQ(info.getUUID(), "UU-1");
  EXPECT_EQ(info.getSystemBoardSerialNumber(), "BS-1");
  EXPECT_EQ(info.getSystemBoardIdentNumber(), "BI-1");
  EXPECT_EQ(info.getBIOSVersion(), "B1.0");
  EXPECT_EQ(info.getOperatingSystemName(), "Linux 6");
  EXPECT_EQ(info.getHostName(), "host1");
  EXPECT_EQ(info.getSystemManagementSoftwareVersion(), "9.1");
  EXPECT_EQ(info.getSystemManagementSoftwareName(), "Orvana Agentless Service");
  EXPECT_EQ(info.getOVRaidSystemVersion(0xAA03), "7.1");
  EXPECT_EQ(info.getCurrentPowerConsumption(), "210 W");
  EXPECT_EQ(info.getMaximumPowerConsumption(), "800 W");
  EXPECT_EQ(info.getPowerOnDurationSeconds(), 3600u);
  EXPECT_EQ(info.getUptimeSeconds(), 120u);

  ASSERT_EQ(info.getNumberFans(), 2u);
  EXPECT_EQ(info.getFanDesignation(1), "FAN2");
  EXPECT_EQ(info.getFanStatus(0), Status(STATUS_NORMAL, "OK"));
  EXPECT_EQ(info.getFanStatus(1), ComponentStatus());  // code 7 is unknown
  EXPECT_EQ(info.getFanType(0), "Power supply");
  EXPECT_EQ(info.getFanType(1), "");
  EXPECT_EQ(info.getCurrentFanSpeed(0), 5200u);

  ASSERT_EQ(info.getNumberTempSensors(), 2u);
  EXPECT_EQ(info.getTempSensorDesignation(1), "CPU1");
  EXPECT_EQ(info.getTempSensorStatus(0), ComponentStatus());  // code 2 has no row
  EXPECT_EQ(info.getTempSensorStatus(1), Status(STATUS_NORMAL, "OK"));
  EXPECT_EQ(info.getTempSensorType(0), "Ambient Sensor");
  EXPECT_EQ(info.getCurrentTemperature(1), 51u);

  ASSERT_EQ(info.getNumberPowerSupplies(), 2u);
  EXPECT_EQ(info.getPowerSupplyDesignation(0), "PSU1");
  EXPECT_EQ(info.getPowerSupplyStatus(0), Status(STATUS_WARNING, "AC Failure"));
  EXPECT_EQ(info.getPowerSupplyStatus(1), Status(STATUS_NOT_PRESENT, "Not Present"));
  unsigned int watts = 4242;
  EXPECT_TRUE(info.tryGetPowerSupplyCurrentPower(watts, 0));
  EXPECT_EQ(watts, 180u);
  EXPECT_TRUE(info.tryGetPowerSupplyNominalPower(watts, 0));
  EXPECT_EQ(watts, 800u);
  watts = 4242;
  EXPECT_FALSE(info.tryGetPowerSupplyCurrentPower(watts, 1));
  EXPECT_FALSE(info.tryGetPowerSupplyNominalPower(watts, 1));
  EXPECT_EQ(watts, 4242u);

  ASSERT_EQ(info.getNumberVoltages(), 2u);
  EXPECT_EQ(info.getVoltageDesignation(1), "VBAT");
  EXPECT_EQ(info.getVoltageStatus(1), Status(STATUS_WARNING, "Too Low"));
  EXPECT_EQ(info.getCurrentVoltage(0), 1210u);

  ASSERT_EQ(info.getNumberMemoryModules(), 2u);
  EXPECT_EQ(info.getMemoryModuleSocket(0), "DIMM-1A");
  EXPECT_EQ(info.getMemoryModuleStatus(1), Status(STATUS_NOT_PRESENT, "Empty Slot"));
  EXPECT_EQ(info.getMemoryModuleType(0), "DDR5 RDIMM");
  EXPECT_EQ(info.getMemoryModuleType(1), " ");
  EXPECT_EQ(info.getMemoryModuleSize(0), 16384u);

  ASSERT_EQ(info.getNumberProcessors(), 1u);
  EXPECT_EQ(info.getProcessorSocket(0), "CPU1");
  EXPECT_EQ(info.getProcessorStatus(0), Status(STATUS_WARNING, "Not Terminated"));
  EXPECT_EQ(info.getProcessorType(0), "Octa 3");
  EXPECT_EQ(info.getProcessorFrequency(0), 2400u);

  ASSERT_EQ(info.getNumberPciSlots(), 2u);
  EXPECT_EQ(info.getPciSlotDesignation(1), "SLOT2");
  EXPECT_EQ(info.getPciSlotStatus(0), Status(STATUS_WARNING, "OK"));
  EXPECT_EQ(info.getPciSlotStatus(1), ComponentStatus());

  ASSERT_EQ(info.getNumberRaidAdapters(), 2u);
  EXPECT_EQ(info.getRaidAdapterDesignation(1), "Ctrl-B");
  EXPECT_EQ(info.getRaidAdapterStatus(0), Status(STATUS_NORMAL, "OK"));
  EXPECT_EQ(info.getRaidAdapterStatus(1), Status(STATUS_ERROR, "Unknow"));
  EXPECT_EQ(info.getNumberRaidPhysicalDrives(0), 0u);
  ASSERT_EQ(info.getNumberRaidPhysicalDrives(1), 2u);
  EXPECT_EQ(info.getRaidPhysicalDriveDesignation(1, 1), "PD1");
  EXPECT_EQ(info.getRaidPhysicalDriveStatus(1, 0), Status(STATUS_SHIELDED, "Shielded"));
  EXPECT_EQ(info.getRaidPhysicalDriveStatus(1, 1), ComponentStatus());
  EXPECT_EQ(info.getRaidPhysicalDriveSmartStatus(1, 1), "S.M.A.R.T. status unknown");
  EXPECT_EQ(info.getRaidPhysicalDriveInterface(1, 0), "SAS");
  EXPECT_EQ(info.getRaidPhysicalDriveInterface(1, 1), "NVMe");
  EXPECT_EQ(info.getRaidPhysicalDriveSize(1, 1), 501u);
  ASSERT_EQ(info.getNumberRaidLogicalDrives(1), 1u);
  EXPECT_EQ(info.getRaidLogicalDriveDesignation(1, 0), "LD0");
  EXPECT_EQ(info.getRaidLogicalDriveStatus(1, 0), Status(STATUS_WARNING, "Degraded"));
  EXPECT_EQ(info.getRaidLogicalDriveLevel(1, 0), "RAID-1");
  EXPECT_EQ(info.getRaidLogicalDriveSize(1, 0), 1000u);
  EXPECT_EQ(info.getRaidStatus(), Status(STATUS_NORMAL, "OK"));
  EXPECT_EQ(info.getRaidOverallStatus(), 1u);

  EXPECT_EQ(info.getDrvMonComponentDesignation(1), "sda");
  EXPECT_EQ(info.getDrvMonComponentLocation(2), "PCI 2");
  EXPECT_EQ(info.getDrvMonComponentStatus(0), Status(STATUS_ERROR, "Critical"));
}

TEST(SystemInformationTest, OverallStatusesComeFromTheirOwnAddresses) {
  Agent agent(kServerProfile);
  SystemInformation info;
  EXPECT_EQ(info.getEnvironmentOverallStatus(), 11u);
  EXPECT_EQ(info.getPowerSupplyOverallStatus(), 12u);
  EXPECT_EQ(info.getMassStorageOverallStatus(), 13u);
  EXPECT_EQ(info.getSystemBoardOverallStatus(), 14u);
  EXPECT_EQ(info.getNetworkOverallStatus(), 15u);
  EXPECT_EQ(info.getMassStorageAdapterOverallStatus(), 16u);
  EXPECT_EQ(info.getRaidAdapterOverallStatus(), 17u);
  EXPECT_EQ(info.getRaidLogicalDrivesOverallStatus(), 18u);
  EXPECT_EQ(info.getRaidPhysicalDrivesOverallStatus(), 19u);
  EXPECT_EQ(info.getCoolingDevicesOverallStatus(), 20u);
  EXPECT_EQ(info.getTemperatureOverallStatus(), 21u);
  EXPECT_EQ(info.getPowerSupplyUnitsOverallStatus(), 22u);
  EXPECT_EQ(info.getVoltagesOverallStatus(), 23u);
  EXPECT_EQ(info.getMemoryModulesOverallStatus(), 24u);
  EXPECT_EQ(info.getSystemProcessorsOverallStatus(), 25u);
  EXPECT_EQ(info.getPciSlotsOverallStatus(), 26u);
  EXPECT_EQ(info.getNetworkAdaptersOverallStatus(), 27u);

  // The temperature group's selector travels in the object index.
  size_t mark = agent.mark();
  info.getTemperatureOverallStatus();
  Agent::Command temperature = agent.only(mark);
  EXPECT_EQ(temperature["OC"], std::to_string(0x2306));
  EXPECT_EQ(temperature.count("OE"), 0u);
  EXPECT_EQ(temperature["OI"], "2");
}

TEST(SystemInformationTest, ReadRequestsOmitZeroIndexesButAlwaysCarryTheCabinet) {
  Agent agent(ServerProfile(7));
  SystemInformation info;
  EXPECT_EQ(info.getCabinetNumber(), 7u);

  size_t mark = agent.mark();
  // The agent answers only when the right cabinet is asked.
  EXPECT_EQ(info.getFanStatus(0), Status(STATUS_NORMAL, "OK"));
  Agent::Command fan = agent.only(mark);
  EXPECT_EQ(fan["OC"], std::to_string(0x0301));
  EXPECT_EQ(fan.count("OE"), 0u);
  EXPECT_EQ(fan.count("OI"), 0u);
  EXPECT_EQ(fan["CA"], "7");

  // Indexes left over from the previous read are removed again.
  mark = agent.mark();
  EXPECT_EQ(info.getRaidPhysicalDriveDesignation(1, 1), "PD1");
  EXPECT_EQ(info.getNumberFans(), 2u);
  std::vector<Agent::Command> commands = agent.commandsSince(mark);
  ASSERT_EQ(commands.size(), 2u);
  EXPECT_EQ(commands[0]["OE"], "1");
  EXPECT_EQ(commands[0]["OI"], "1");
  EXPECT_EQ(commands[1]["OC"], std::to_string(0x0300));
  EXPECT_EQ(commands[1].count("OE"), 0u);
  EXPECT_EQ(commands[1].count("OI"), 0u);
}

TEST(SystemInformationTest, CabinetZeroIsSentAndMissingDataReadsEmpty) {
  Agent agent("{}");
  SystemInformation info;
  size_t mark = agent.mark();
  EXPECT_EQ(info.getModelName(), "");
  Agent::Command model = agent.only(mark);
  EXPECT_EQ(model["CA"], "0");
  EXPECT_EQ(model["OE"], std::to_string(0x0608));
  EXPECT_EQ(model.count("OI"), 0u);

  EXPECT_EQ(info.getNumberFans(), 0u);
  EXPECT_EQ(info.getUptimeSeconds(), 0u);
  EXPECT_EQ(info.getHostName(), "");
  // A failed read gives 0, which most maps know.
  EXPECT_EQ(info.getFanStatus(0), Status(STATUS_NOT_PRESENT, "Disabled"));
  EXPECT_EQ(info.getRaidStatus(), Status(STATUS_UNKNOWN, "Unknown"));
  EXPECT_EQ(info.getRaidOverallStatus(), 0u);
  EXPECT_EQ(info.getMemoryModuleType(0), " ");
  EXPECT_TRUE(info.getIpAddresses().empty());
  EXPECT_EQ(info.getVoltageThresholds(0), 0u);
}

TEST(SystemInformationTest, TypeMismatchesAndNonZeroStatusesFail) {
  Agent agent(ProfileWithOverrides(
      // strings delivered as numbers and the other way round
      R"({"OC": "0x0304", "DA": 5},
         {"OC": "0x0300", "DA": "3"},
         {"OC": "0x0506", "DA": "180"},
         {"OC": "0x0C00", "OE": "0x0608", "DA": {"RAW": [65, 66]}},
         {"OC": "0x0301", "DA": true},
         {"OC": "0x0400", "ST": 12, "DA": 4},
         {"OC": "0x0500", "ST": 21, "DA": 4},
         {"OC": "0x0600", "ST": 255, "DA": 4},
         {"OC": "0x0404", "ST": 12, "DA": "T1"},
         {"OC": "0x0700", "DA": 3},
         {"OC": "0x0702", "DA": "DIMM"},
         {"OC": "0x0507", "DA": 2.5},
         {"OC": "0x21DF", "ST": 4})"));
  SystemInformation info;
  EXPECT_EQ(info.getFanDesignation(0), "");
  EXPECT_EQ(info.getNumberFans(), 0u);
  unsigned int value = 99;
  EXPECT_FALSE(info.tryGetPowerSupplyCurrentPower(value, 0));
  EXPECT_EQ(value, 99u);
  // Only a text reply is a string; a raw block is not.
  EXPECT_EQ(info.getModelName(), "");
  EXPECT_EQ(info.getFanStatus(0), Status(STATUS_NOT_PRESENT, "Disabled"));

  // Any status but 0 fails, even those the agent counts as "answered".
  EXPECT_EQ(info.getNumberTempSensors(), 0u);
  EXPECT_EQ(info.getNumberPowerSupplies(), 0u);
  EXPECT_EQ(info.getNumberProcessors(), 0u);
  EXPECT_EQ(info.getTempSensorDesignation(0), "");

  // Plain replies still work after failures on the shared record.
  EXPECT_EQ(info.getNumberMemoryModules(), 3u);
  EXPECT_EQ(info.getMemoryModuleSocket(0), "DIMM");

  // A number reply that is no 32-bit integer fails but resets the value.
  value = 99;
  EXPECT_FALSE(info.tryGetPowerSupplyNominalPower(value, 0));
  EXPECT_EQ(value, 0u);
  EXPECT_FALSE(info.updateRaidSnapshot());
}

TEST(SystemInformationTest, RaidSnapshotSucceedsOnANumberReply) {
  Agent agent(kServerProfile);
  SystemInformation info;
  size_t mark = agent.mark();
  EXPECT_TRUE(info.updateRaidSnapshot());
  Agent::Command snapshot = agent.only(mark);
  EXPECT_EQ(snapshot["OC"], std::to_string(0x21DF));
  EXPECT_EQ(snapshot.count("OE"), 0u);
  EXPECT_EQ(snapshot.count("OI"), 0u);
}

TEST(SystemInformationTest, StreamReadsNeedARawBlock) {
  Agent agent(ProfileWithOverrides(
      R"({"OC": "0x0B10", "DA": {"RAW": [1, 2, 3]}},
         {"OC": "0x0B10", "OI": 1, "DA": "text"},
         {"OC": "0x0B10", "OI": 2, "DA": {"RAW": []}},
         {"OC": "0x0B10", "OI": 3, "ST": 12, "DA": {"RAW": [9]}},
         {"OC": "0x0B10", "OI": 4, "DA": {"BYTES": [9]}})"));
  SystemInformation info;
  CDataStream stream({7, 7});
  ASSERT_TRUE(stream.skip(1));
  ASSERT_TRUE(info.tryGetSipStream(stream, 0x0B10, 0, 0));
  EXPECT_EQ(stream.bytes(), (std::vector<unsigned char>{1, 2, 3}));
  EXPECT_EQ(stream.position(), 0u);

  // Failures leave the stream as it was.
  EXPECT_FALSE(info.tryGetSipStream(stream, 0x0B10, 0, 1));
  EXPECT_FALSE(info.tryGetSipStream(stream, 0x0B10, 0, 3));
  EXPECT_FALSE(info.tryGetSipStream(stream, 0x0B10, 0, 4));
  EXPECT_FALSE(info.tryGetSipStream(stream, 0x0B10, 0, 5));
  EXPECT_EQ(stream.bytes(), (std::vector<unsigned char>{1, 2, 3}));

  ASSERT_TRUE(info.tryGetSipStream(stream, 0x0B10, 0, 2));
  EXPECT_TRUE(stream.empty());
}

TEST(SystemInformationTest, VoltageThresholdsNeedExactlyFourBytes) {
  Agent agent(ProfileWithOverrides(
      R"({"OC": "0x0523", "OI": 2, "DA": {"RAW": [1, 2, 3]}},
         {"OC": "0x0523", "OI": 3, "DA": {"RAW": [1, 2, 3, 4, 5]}},
         {"OC": "0x0523", "OI": 4, "ST": 21, "DA": {"RAW": [1, 2, 3, 4]}},
         {"OC": "0x0523", "OI": 5, "DA": 305419896})",
      R"(, "voltages": [{"designation": "12V", "min": 1140, "max": 1260},
                       {"designation": "VBAT", "min": -250, "max": 330}])"));
  SystemInformation info;

  size_t mark = agent.mark();
  const uint32_t first = info.getVoltageThresholds(0);
  EXPECT_EQ(first & 0xFFFF, 1140u);
  EXPECT_EQ(first >> 16, 1260u);
  Agent::Command request = agent.only(mark);
  EXPECT_EQ(request["OC"], std::to_string(0x0523));
  EXPECT_EQ(request.count("OI"), 0u);
  // Neither sub-index nor cabinet is written: a fresh record sends none.
  EXPECT_EQ(request.count("OE"), 0u);
  EXPECT_EQ(request.count("CA"), 0u);

  const uint32_t second = info.getVoltageThresholds(1);
  EXPECT_EQ(static_cast<int16_t>(second & 0xFFFF), -250);
  EXPECT_EQ(static_cast<int16_t>(second >> 16), 330);

  EXPECT_EQ(info.getVoltageThresholds(2), 0u);
  EXPECT_EQ(info.getVoltageThresholds(3), 0u);
  EXPECT_EQ(info.getVoltageThresholds(4), 0u);
  // A number is turned into its bytes; four of them make a word too.
  EXPECT_EQ(info.getVoltageThresholds(5), 305419896u);
}

TEST(SystemInformationTest, VoltageThresholdsSendWhatThePreviousExchangeLeft) {
  Agent agent(R"({"cabinet": 0, "voltages": [{"designation": "12V", "min": 1140, "max": 1260},
                                             {"designation": "VBAT", "min": -250, "max": 330}]})");
  SystemInformation info;
  EXPECT_EQ(info.getNumberRaidPhysicalDrives(3), 0u);  // leaves "OE":3 and "CA":0
  size_t mark = agent.mark();
  // The stale sub-index addresses a value the agent does not have.
  EXPECT_EQ(info.getVoltageThresholds(1), 0u);
  Agent::Command request = agent.only(mark);
  EXPECT_EQ(request["OC"], std::to_string(0x0523));
  EXPECT_EQ(request["OE"], "3");
  EXPECT_EQ(request["OI"], "1");
  EXPECT_EQ(request["CA"], "0");
  // The previous reply's status travels along as well.
  EXPECT_EQ(request.count("ST"), 1u);
}

TEST(SystemInformationTest, DriverMonitorIndexesFilterByClass) {
  Agent agent(kServerProfile);
  SystemInformation info;
  size_t mark = agent.mark();
  EXPECT_EQ(info.getDrvMonComponentIndexes(2), (std::vector<unsigned int>{0, 2}));
  // One count read and one class read per component, ascending.
  std::vector<Agent::Command> commands = agent.commandsSince(mark);
  ASSERT_EQ(commands.size(), 4u);
  EXPECT_EQ(commands[0]["OC"], std::to_string(0x1800));
  EXPECT_EQ(commands[1]["OC"], std::to_string(0x1805));
  EXPECT_EQ(commands[1].count("OI"), 0u);
  EXPECT_EQ(commands[3]["OI"], "2");

  EXPECT_EQ(info.getDrvMonComponentIndexes(5), (std::vector<unsigned int>{1}));
  EXPECT_TRUE(info.getDrvMonComponentIndexes(7).empty());
}

TEST(SystemInformationTest, DriverMonitorIndexesWithoutComponentsReadOnlyTheCount) {
  Agent agent("{}");
  SystemInformation info;
  size_t mark = agent.mark();
  EXPECT_TRUE(info.getDrvMonComponentIndexes(2).empty());
  EXPECT_EQ(agent.commandsSince(mark).size(), 1u);
}

TEST(SystemInformationTest, StatusResetCarriesDataAndStatusAndClearsComponents) {
  Agent agent(ServerProfile(5));
  SystemInformation info;
  size_t mark = agent.mark();
  EXPECT_TRUE(info.clearDriverMonitorStatus());
  Agent::Command reset = agent.only(mark);
  EXPECT_EQ(reset["OC"], std::to_string(0x180A));
  EXPECT_EQ(reset["DA"], "1");
  EXPECT_EQ(reset["ST"], "0");
  EXPECT_EQ(reset["CA"], "5");
  EXPECT_EQ(reset.count("OE"), 0u);
  EXPECT_EQ(reset.count("OI"), 0u);
  EXPECT_EQ(info.getDrvMonComponentStatus(0), Status(STATUS_NORMAL, "OK"));
  EXPECT_EQ(info.getDrvMonComponentStatus(2), Status(STATUS_NORMAL, "OK"));

  // A reset after a text read still sends the number 1 as data.
  EXPECT_EQ(info.getDrvMonComponentDesignation(1), "sda");
  mark = agent.mark();
  EXPECT_TRUE(info.clearDriverMonitorStatus());
  EXPECT_EQ(agent.only(mark)["DA"], "1");
}

TEST(SystemInformationTest, StatusResetFailsOnAnErrorOrWithoutData) {
  {
    Agent agent(ProfileWithOverrides(R"({"OC": "0x180A", "ST": 4, "DA": 1})"));
    SystemInformation info;
    EXPECT_FALSE(info.clearDriverMonitorStatus());
  }
  {
    Agent agent(ProfileWithOverrides(R"({"OC": "0x180A", "ST": 0})"));
    SystemInformation info;
    EXPECT_FALSE(info.clearDriverMonitorStatus());
  }
  {
    Agent agent(ProfileWithOverrides(R"({"OC": "0x180A", "ST": 0, "DA": "done"})"));
    SystemInformation info;
    EXPECT_TRUE(info.clearDriverMonitorStatus());
  }
}

TEST(SystemInformationTest, AddressSlotsBecomeTexts) {
  struct Case {
    const char* addresses;
    std::vector<std::string> expected;
  } cases[] = {
      {R"(["192.168.1.10"])", {"192.168.1.10"}},
      {R"(["10.0.0.1", "fe80::21a:2bff:fe3c:4d5e"])", {"10.0.0.1", "fe80::21a:2bff:fe3c:4d5e"}},
      {R"(["::1", {"raw": [1, 2, 3, 4, 5, 6]}])", {"::1", ""}},
      {R"([{"raw": []}, "::"])", {"", "::"}},
      {"[]", {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.addresses);
    Agent agent(std::string("{\"ipAddresses\": ") + c.addresses + "}");
    SystemInformation info;
    EXPECT_EQ(info.getIpAddresses(), c.expected);
  }
}

TEST(SystemInformationTest, AddressSlotOneReusesTheValueIdAndNoCabinetIsWritten) {
  Agent agent(R"({"cabinet": 0, "ipAddresses": ["192.168.1.10"],
                  "overrides": [{"OC": "0xE108", "OE": 1, "ST": 0}]})");
  SystemInformation info;
  size_t mark = agent.mark();
  EXPECT_EQ(info.getIpAddresses(), (std::vector<std::string>{"192.168.1.10"}));
  std::vector<Agent::Command> commands = agent.commandsSince(mark);
  ASSERT_EQ(commands.size(), 2u);
  EXPECT_EQ(commands[0]["OC"], std::to_string(0xE108));
  EXPECT_EQ(commands[0].count("OE"), 0u);
  EXPECT_EQ(commands[0].count("CA"), 0u);
  EXPECT_EQ(commands[0].count("OI"), 0u);
  EXPECT_EQ(commands[1]["OC"], std::to_string(0xE108));
  EXPECT_EQ(commands[1]["OE"], "1");
  EXPECT_EQ(commands[1].count("CA"), 0u);
}

TEST(SystemInformationTest, ReadsAfterTheAgentWentAwayFailQuietly) {
  Agent agent(kServerProfile);
  SystemInformation info;
  ASSERT_EQ(info.getNumberFans(), 2u);
  ASSERT_TRUE(agent.sim().stop());
  EXPECT_EQ(info.getNumberFans(), 0u);
  EXPECT_EQ(info.getModelName(), "");
  EXPECT_TRUE(info.getIpAddresses().empty());
  EXPECT_FALSE(info.clearDriverMonitorStatus());
  EXPECT_EQ(info.getVoltageThresholds(0), 0u);
}

TEST(SystemInformationDeathTest, UnreachableAgentEndsTheProcessWithTheErrorLine) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  ScopedSystemRoot root;  // no daemon installed under it
  EXPECT_EXIT(
      {
        dup2(STDERR_FILENO, STDOUT_FILENO);  // the line goes to stdout
        SystemInformation info;
        info.getNumberFans();
        fprintf(stderr, "still running");
      },
      testing::ExitedWithCode(255), "\n ERROR: Orvana Agentless Service could not be connected\n$");
}

}  // namespace
