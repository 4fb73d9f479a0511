#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "agent/CSwitchClient.h"
#include "agent/SipJson.h"
#include "html/ComponentStatus.h"
#include "sysinfo/CDataStream.h"
#include "sysinfo/TextMap.h"

// The report's one way to the agent daemon: typed reads of agent values by
// (value id, sub-index, object index), and the named questions the pages ask.
// Every read reuses the same command record without clearing it, so reads
// must not overlap. A value that cannot be read is "", 0 or false.
class SystemInformation : public CSwitchClient {
 public:
  // Every component count is cut down to this. No machine has that many
  // components of one kind, while an agent that answers -1 (4,294,967,295)
  // would keep the run reading for days.
  static constexpr uint32_t kMaxComponentCount = 16384;
  // RAID drives are listed per adapter, so their bounds multiply: 64
  // adapters of 1,024 drives each still finish in seconds.
  static constexpr uint32_t kMaxRaidAdapters = 64;
  static constexpr uint32_t kMaxRaidDrives = 1024;

  // Attaches to the daemon and asks for the cabinet number. When the daemon
  // cannot be reached, prints the error line and ends the process with -1.
  SystemInformation();
  ~SystemInformation() override;

  // Generic reads.
  std::string getSipStringValue(unsigned int valueId, unsigned int subIndex, unsigned int objectIndex);
  uint32_t getSipNumberValue(unsigned int valueId, unsigned int subIndex, unsigned int objectIndex);
  bool tryGetSipNumberValue(unsigned int& value, unsigned int valueId, unsigned int subIndex,
                            unsigned int objectIndex);
  bool tryGetSipStream(CDataStream& stream, unsigned int valueId, unsigned int subIndex,
                       unsigned int objectIndex);
  // Lower limit in the low 16 bits, upper limit in the high 16 bits (signed,
  // hundredths of a volt); 0 when the agent has no 4-byte block.
  uint32_t getVoltageThresholds(unsigned int voltageIndex);
  bool updateRaidSnapshot();

  // Identity.
  std::string getModelName();
  std::string getSystemSerialNumber();
  std::string getChassisID();
  std::string getAssetTag();
  std::string getUUID();
  std::string getSystemBoardSerialNumber();
  std::string getSystemBoardIdentNumber();
  std::string getBIOSVersion();
  std::string getOperatingSystemName();
  std::string getHostName();
  std::string getSystemManagementSoftwareVersion();
  std::string getSystemManagementSoftwareName();
  std::string getOVRaidSystemVersion(int n);
  std::string getCurrentPowerConsumption();
  std::string getMaximumPowerConsumption();
  uint32_t getPowerOnDurationSeconds();
  uint32_t getUptimeSeconds();

  // Fans.
  uint32_t getNumberFans();
  std::string getFanDesignation(unsigned int i);
  ComponentStatus getFanStatus(unsigned int i);
  std::string getFanType(unsigned int i);
  uint32_t getCurrentFanSpeed(unsigned int i);

  // Temperature sensors.
  uint32_t getNumberTempSensors();
  std::string getTempSensorDesignation(unsigned int i);
  ComponentStatus getTempSensorStatus(unsigned int i);
  std::string getTempSensorType(unsigned int i);
  uint32_t getCurrentTemperature(unsigned int i);

  // Power supplies.
  uint32_t getNumberPowerSupplies();
  std::string getPowerSupplyDesignation(unsigned int i);
  ComponentStatus getPowerSupplyStatus(unsigned int i);
  bool tryGetPowerSupplyCurrentPower(unsigned int& value, unsigned int i);
  bool tryGetPowerSupplyNominalPower(unsigned int& value, unsigned int i);

  // Voltages.
  uint32_t getNumberVoltages();
  std::string getVoltageDesignation(unsigned int i);
  ComponentStatus getVoltageStatus(unsigned int i);
  uint32_t getCurrentVoltage(unsigned int i);

  // Memory modules.
  uint32_t getNumberMemoryModules();
  std::string getMemoryModuleSocket(unsigned int i);
  ComponentStatus getMemoryModuleStatus(unsigned int i);
  std::string getMemoryModuleType(unsigned int i);
  uint32_t getMemoryModuleSize(unsigned int i);

  // Processors.
  uint32_t getNumberProcessors();
  std::string getProcessorSocket(unsigned int i);
  ComponentStatus getProcessorStatus(unsigned int i);
  std::string getProcessorType(unsigned int i);
  uint32_t getProcessorFrequency(unsigned int i);

  // PCI slots.
  uint32_t getNumberPciSlots();
  std::string getPciSlotDesignation(unsigned int i);
  ComponentStatus getPciSlotStatus(unsigned int i);

  // RAID adapters and drives (a = adapter, d = drive within it).
  uint32_t getNumberRaidAdapters();
  std::string getRaidAdapterDesignation(unsigned int i);
  ComponentStatus getRaidAdapterStatus(unsigned int i);
  uint32_t getNumberRaidPhysicalDrives(unsigned int a);
  std::string getRaidPhysicalDriveDesignation(unsigned int a, unsigned int d);
  ComponentStatus getRaidPhysicalDriveStatus(unsigned int a, unsigned int d);
  std::string getRaidPhysicalDriveSmartStatus(unsigned int a, unsigned int d);
  std::string getRaidPhysicalDriveInterface(unsigned int a, unsigned int d);
  uint32_t getRaidPhysicalDriveSize(unsigned int a, unsigned int d);
  uint32_t getNumberRaidLogicalDrives(unsigned int a);
  std::string getRaidLogicalDriveDesignation(unsigned int a, unsigned int d);
  ComponentStatus getRaidLogicalDriveStatus(unsigned int a, unsigned int d);
  std::string getRaidLogicalDriveLevel(unsigned int a, unsigned int d);
  uint32_t getRaidLogicalDriveSize(unsigned int a, unsigned int d);
  ComponentStatus getRaidStatus();

  // Driver Monitor components.
  std::vector<unsigned int> getDrvMonComponentIndexes(unsigned char componentClass);
  std::string getDrvMonComponentDesignation(unsigned int i);
  std::string getDrvMonComponentLocation(unsigned int i);
  ComponentStatus getDrvMonComponentStatus(unsigned int i);
  // Asks the agent to reset the stored status of every Driver Monitor
  // component; true when it accepted. The program's only write.
  bool clearDriverMonitorStatus();

  // Overall statuses, as the agent's bare codes.
  uint32_t getEnvironmentOverallStatus();
  uint32_t getPowerSupplyOverallStatus();
  uint32_t getMassStorageOverallStatus();
  uint32_t getSystemBoardOverallStatus();
  uint32_t getNetworkOverallStatus();
  uint32_t getMassStorageAdapterOverallStatus();
  uint32_t getRaidOverallStatus();
  uint32_t getRaidAdapterOverallStatus();
  uint32_t getRaidLogicalDrivesOverallStatus();
  uint32_t getRaidPhysicalDrivesOverallStatus();
  uint32_t getCoolingDevicesOverallStatus();
  uint32_t getTemperatureOverallStatus();
  uint32_t getPowerSupplyUnitsOverallStatus();
  uint32_t getVoltagesOverallStatus();
  uint32_t getMemoryModulesOverallStatus();
  uint32_t getSystemProcessorsOverallStatus();
  uint32_t getPciSlotsOverallStatus();
  uint32_t getNetworkAdaptersOverallStatus();

  // The host's management addresses (at most two), slot 0 first.
  std::vector<std::string> getIpAddresses();

  uint32_t getCabinetNumber() const { return m_CabinetNumber; }

 private:
  // Fills the current command with a read address, sends it and returns
  // whether the reply's status is 0.
  bool sendRead(unsigned int valueId, unsigned int subIndex, unsigned int objectIndex);
  // A component count at (valueId, subIndex, 0), at most `bound`; a larger
  // one is traced.
  uint32_t readCount(unsigned int valueId, unsigned int subIndex, uint32_t bound = kMaxComponentCount);
  // Sends the record as it stands; true when the reply's status is 0.
  bool sendAndCheckStatus();
  // The reply checks every read shares after the status: accepted status,
  // some data, and for other than plain JSON types a non-empty "DA".
  bool replyHasData() const;
  int cmdIndex() const { return m_Cmd.GetCmdIndex(); }

  SipJson m_Cmd;
  TextMap m_TextMap;
  [[maybe_unused]] uint32_t m_Reserved;  // set, never read: part of the layout
  uint32_t m_CabinetNumber;
  uint16_t m_RequestTimeout;
};
