#include "sysinfo/SystemInformation.h"

#include <cstdio>
#include <cstdlib>

#include "runtime/CDebug.h"
#include "sysinfo/CIPAddress.h"

namespace {

// Seconds each read may take, handed to Request.
constexpr uint16_t kRequestTimeout = 10;

// Value ids that are not part of a component family.
constexpr unsigned kIdentityStrings = 0x0C00;
constexpr unsigned kVoltageThresholds = 0x0523;
constexpr unsigned kRaidSnapshot = 0x21DF;
constexpr unsigned kDrvMonCount = 0x1800;
constexpr unsigned kDrvMonClass = 0x1805;
constexpr unsigned kDrvMonClearStatus = 0x180A;
constexpr unsigned kIpAddress = 0xE108;
constexpr unsigned kIpAddressSlots = 2;
constexpr unsigned kOverallStatus = 0x2301;
constexpr unsigned kGroupStatus = 0x2306;

}  // namespace

SystemInformation::SystemInformation() : m_Reserved(0), m_CabinetNumber(0), m_RequestTimeout(kRequestTimeout) {
  m_Cmd.JsonInit();
  if (!Attach(nullptr, false, 0)) {
    // The process ends here without unwinding. The record's JSON blocks are
    // released first only because their packed pointers look like leaks to
    // the leak checker, which would replace the exit status with its own.
    m_Cmd.Document().SetObject();
    puts("\n ERROR: Orvana Agentless Service could not be connected");
    exit(-1);
  }
  unsigned cabinet = 0;
  if (GetServerCabinetNumber(cabinet)) m_CabinetNumber = cabinet;
}

SystemInformation::~SystemInformation() { Detach(); }

// ---------------------------------------------------------------------------
// Request and reply

bool SystemInformation::sendAndCheckStatus() {
  // Request's own result is the same "ST" (or a transport code written into
  // it), so only the reply is judged.
  Request(m_Cmd, m_RequestTimeout);
  return m_Cmd.GetCmdElemValue(cmdIndex(), "ST", SipJson::kStatusAbsent) == SipJson::kStatusOk;
}

bool SystemInformation::sendRead(unsigned int valueId, unsigned int subIndex, unsigned int objectIndex) {
  SipJson::GenericValue& cmd = m_Cmd.GetCmd();
  SipJson::SetCmdElemValue(cmd, "OC", valueId, false);
  SipJson::SetCmdElemValue(cmd, "OE", subIndex, true);
  SipJson::SetCmdElemValue(cmd, "OI", objectIndex, true);
  SipJson::SetCmdElemValue(cmd, "CA", m_CabinetNumber, false);
  return sendAndCheckStatus();
}

uint32_t SystemInformation::readCount(unsigned int valueId, unsigned int subIndex, uint32_t bound) {
  const uint32_t count = getSipNumberValue(valueId, subIndex, 0);
  if (count <= bound) return count;
  if (g_Debug.IsEnabled()) {
    g_Debug.Print(1, "\nSystemInformation::readCount: value 0x%04X (sub-index %u) counts %u components, only %u read",
                  valueId, subIndex, count, bound);
  }
  return bound;
}

bool SystemInformation::replyHasData() const {
  // The record's own rule; its accepted-status test is redundant after the
  // status-0 test of the request and kept as a second guard.
  return m_Cmd.HasReplyData();
}

std::string SystemInformation::getSipStringValue(unsigned int valueId, unsigned int subIndex,
                                                 unsigned int objectIndex) {
  std::string result;
  if (!sendRead(valueId, subIndex, objectIndex) || !replyHasData()) return result;
  if (m_Cmd.GetCmdDataType(cmdIndex()) == rapidjson::kStringType) m_Cmd.GetCmdDataString(cmdIndex(), result, 0);
  return result;
}

uint32_t SystemInformation::getSipNumberValue(unsigned int valueId, unsigned int subIndex,
                                              unsigned int objectIndex) {
  unsigned int value = 0;
  return tryGetSipNumberValue(value, valueId, subIndex, objectIndex) ? value : 0;
}

bool SystemInformation::tryGetSipNumberValue(unsigned int& value, unsigned int valueId,
                                             unsigned int subIndex, unsigned int objectIndex) {
  if (!sendRead(valueId, subIndex, objectIndex) || !replyHasData()) return false;
  if (m_Cmd.GetCmdDataType(cmdIndex()) != rapidjson::kNumberType) return false;
  // A number reply always sets the value, to 0 when it does not fit.
  value = 0;
  return m_Cmd.GetCmdUIntData(cmdIndex(), value);
}

bool SystemInformation::tryGetSipStream(CDataStream& stream, unsigned int valueId, unsigned int subIndex,
                                        unsigned int objectIndex) {
  if (!sendRead(valueId, subIndex, objectIndex)) return false;
  const SipJson::GenericValue* data = m_Cmd.FindCmdMember(cmdIndex(), "DA");
  if (data == nullptr || !data->IsObject() || !data->HasMember("RAW")) return false;
  std::vector<unsigned char> bytes;
  if (!m_Cmd.GetCmdDataStream(cmdIndex(), bytes)) return false;
  stream.assign(std::move(bytes));
  return true;
}

uint32_t SystemInformation::getVoltageThresholds(unsigned int voltageIndex) {
  // Only the value id and the index are written: "OE" and "CA" go out as the
  // previous exchange left them in the shared record.
  SipJson::GenericValue& cmd = m_Cmd.GetCmd();
  SipJson::SetCmdElemValue(cmd, "OC", kVoltageThresholds, false);
  SipJson::SetCmdElemValue(cmd, "OI", voltageIndex, true);
  std::vector<unsigned char> block;
  if (sendAndCheckStatus() && replyHasData()) m_Cmd.GetCmdDataStream(cmdIndex(), block);
  CDataStream stream(std::move(block));
  uint32_t limits = 0;
  if (stream.size() != 4 || !stream.readUInt32(limits)) return 0;
  return limits;
}

bool SystemInformation::updateRaidSnapshot() {
  unsigned int ignored = 0;
  return tryGetSipNumberValue(ignored, kRaidSnapshot, 0, 0);
}

// ---------------------------------------------------------------------------
// Identity

std::string SystemInformation::getModelName() { return getSipStringValue(kIdentityStrings, 0x0608, 0); }
std::string SystemInformation::getSystemSerialNumber() { return getSipStringValue(kIdentityStrings, 0x0600, 0); }
std::string SystemInformation::getChassisID() { return getSipStringValue(kIdentityStrings, 0x0108, 0); }
std::string SystemInformation::getAssetTag() { return getSipStringValue(0xE001, 0x0210, 0); }
std::string SystemInformation::getUUID() { return getSipStringValue(kIdentityStrings, 0x1510, 0); }
std::string SystemInformation::getSystemBoardSerialNumber() { return getSipStringValue(kIdentityStrings, 0x0200, 0); }
std::string SystemInformation::getSystemBoardIdentNumber() { return getSipStringValue(kIdentityStrings, 0x0201, 0); }
std::string SystemInformation::getBIOSVersion() { return getSipStringValue(kIdentityStrings, 0xA006, 0); }
std::string SystemInformation::getOperatingSystemName() { return getSipStringValue(kIdentityStrings, 0xA708, 0); }
std::string SystemInformation::getHostName() { return getSipStringValue(0xE107, 0, 0); }
std::string SystemInformation::getSystemManagementSoftwareVersion() {
  return getSipStringValue(kIdentityStrings, 0xA806, 0);
}
std::string SystemInformation::getSystemManagementSoftwareName() { return "Orvana Agentless Service"; }
std::string SystemInformation::getOVRaidSystemVersion(int n) {
  return getSipStringValue(kIdentityStrings, static_cast<unsigned int>(n), 0);
}
std::string SystemInformation::getCurrentPowerConsumption() { return getSipStringValue(0x0931, 0, 0); }
std::string SystemInformation::getMaximumPowerConsumption() { return getSipStringValue(0x0930, 0, 0); }
uint32_t SystemInformation::getPowerOnDurationSeconds() { return getSipNumberValue(0xE001, 0x1010, 0); }
uint32_t SystemInformation::getUptimeSeconds() { return getSipNumberValue(0x011E, 0, 0); }

// ---------------------------------------------------------------------------
// Components

uint32_t SystemInformation::getNumberFans() { return readCount(0x0300, 0); }
std::string SystemInformation::getFanDesignation(unsigned int i) { return getSipStringValue(0x0304, 0, i); }
ComponentStatus SystemInformation::getFanStatus(unsigned int i) {
  return TextMap::lookup(m_TextMap.fanStatusMap, getSipNumberValue(0x0301, 0, i));
}
std::string SystemInformation::getFanType(unsigned int i) {
  return TextMap::lookup(m_TextMap.fanTypeMap, getSipNumberValue(0x0303, 0, i));
}
uint32_t SystemInformation::getCurrentFanSpeed(unsigned int i) { return getSipNumberValue(0x0302, 0, i); }

uint32_t SystemInformation::getNumberTempSensors() { return readCount(0x0400, 0); }
std::string SystemInformation::getTempSensorDesignation(unsigned int i) { return getSipStringValue(0x0404, 0, i); }
ComponentStatus SystemInformation::getTempSensorStatus(unsigned int i) {
  return TextMap::lookup(m_TextMap.tempSensorStatusMap, getSipNumberValue(0x0401, 0, i));
}
std::string SystemInformation::getTempSensorType(unsigned int i) {
  return TextMap::lookup(m_TextMap.tempSensorTypeMap, getSipNumberValue(0x0403, 0, i));
}
uint32_t SystemInformation::getCurrentTemperature(unsigned int i) { return getSipNumberValue(0x0402, 0, i); }

uint32_t SystemInformation::getNumberPowerSupplies() { return readCount(0x0500, 0); }
std::string SystemInformation::getPowerSupplyDesignation(unsigned int i) { return getSipStringValue(0x0504, 0, i); }
ComponentStatus SystemInformation::getPowerSupplyStatus(unsigned int i) {
  return TextMap::lookup(m_TextMap.powerSupplyStatusMap, getSipNumberValue(0x0501, 0, i));
}
bool SystemInformation::tryGetPowerSupplyCurrentPower(unsigned int& value, unsigned int i) {
  return tryGetSipNumberValue(value, 0x0506, 0, i);
}
bool SystemInformation::tryGetPowerSupplyNominalPower(unsigned int& value, unsigned int i) {
  return tryGetSipNumberValue(value, 0x0507, 0, i);
}

uint32_t SystemInformation::getNumberVoltages() { return readCount(0x0520, 0); }
std::string SystemInformation::getVoltageDesignation(unsigned int i) { return getSipStringValue(0x0522, 0, i); }
ComponentStatus SystemInformation::getVoltageStatus(unsigned int i) {
  return TextMap::lookup(m_TextMap.voltageStatusMap, getSipNumberValue(0x0521, 0, i));
}
uint32_t SystemInformation::getCurrentVoltage(unsigned int i) { return getSipNumberValue(0x0524, 0, i); }

uint32_t SystemInformation::getNumberMemoryModules() { return readCount(0x0700, 0); }
std::string SystemInformation::getMemoryModuleSocket(unsigned int i) { return getSipStringValue(0x0702, 0, i); }
ComponentStatus SystemInformation::getMemoryModuleStatus(unsigned int i) {
  return TextMap::lookup(m_TextMap.memoryModuleStatusMap, getSipNumberValue(0x0701, 0, i));
}
std::string SystemInformation::getMemoryModuleType(unsigned int i) {
  // Both parts and the blank between them, even when a part is missing.
  std::string type = getSipStringValue(0x070B, 0, i);
  return type + " " + getSipStringValue(0x070D, 0, i);
}
uint32_t SystemInformation::getMemoryModuleSize(unsigned int i) { return getSipNumberValue(0x070A, 0, i); }

uint32_t SystemInformation::getNumberProcessors() { return readCount(0x0600, 0); }
std::string SystemInformation::getProcessorSocket(unsigned int i) { return getSipStringValue(0x0602, 0, i); }
ComponentStatus SystemInformation::getProcessorStatus(unsigned int i) {
  return TextMap::lookup(m_TextMap.processorStatusMap, getSipNumberValue(0x0601, 0, i));
}
std::string SystemInformation::getProcessorType(unsigned int i) { return getSipStringValue(0x0605, 0, i); }
uint32_t SystemInformation::getProcessorFrequency(unsigned int i) { return getSipNumberValue(0x061D, 0, i); }

uint32_t SystemInformation::getNumberPciSlots() { return readCount(0x1480, 0); }
std::string SystemInformation::getPciSlotDesignation(unsigned int i) { return getSipStringValue(0x1043, 0x28, i); }
ComponentStatus SystemInformation::getPciSlotStatus(unsigned int i) {
  return TextMap::lookup(m_TextMap.pciSlotStatusMap, getSipNumberValue(0x1042, 0x28, i));
}

uint32_t SystemInformation::getNumberRaidAdapters() { return readCount(0x2110, 0, kMaxRaidAdapters); }
std::string SystemInformation::getRaidAdapterDesignation(unsigned int i) { return getSipStringValue(0x2111, 0, i); }
ComponentStatus SystemInformation::getRaidAdapterStatus(unsigned int i) {
  return TextMap::lookup(m_TextMap.raidAdapterStatusMap, getSipNumberValue(0x2116, 0, i));
}
uint32_t SystemInformation::getNumberRaidPhysicalDrives(unsigned int a) { return readCount(0x2130, a, kMaxRaidDrives); }
std::string SystemInformation::getRaidPhysicalDriveDesignation(unsigned int a, unsigned int d) {
  return getSipStringValue(0x2133, a, d);
}
ComponentStatus SystemInformation::getRaidPhysicalDriveStatus(unsigned int a, unsigned int d) {
  return TextMap::lookup(m_TextMap.raidPhysicalDriveStatusMap, getSipNumberValue(0x2131, a, d));
}
std::string SystemInformation::getRaidPhysicalDriveSmartStatus(unsigned int a, unsigned int d) {
  return TextMap::lookup(m_TextMap.raidPhysicalDriveSmartStatusMap, getSipNumberValue(0x2132, a, d));
}
std::string SystemInformation::getRaidPhysicalDriveInterface(unsigned int a, unsigned int d) {
  return TextMap::lookup(m_TextMap.raidPhysicalDriveInterfaceMap, getSipNumberValue(0x2134, a, d));
}
uint32_t SystemInformation::getRaidPhysicalDriveSize(unsigned int a, unsigned int d) {
  return getSipNumberValue(0x2135, a, d);
}
uint32_t SystemInformation::getNumberRaidLogicalDrives(unsigned int a) { return readCount(0x2150, a, kMaxRaidDrives); }
std::string SystemInformation::getRaidLogicalDriveDesignation(unsigned int a, unsigned int d) {
  return getSipStringValue(0x2152, a, d);
}
ComponentStatus SystemInformation::getRaidLogicalDriveStatus(unsigned int a, unsigned int d) {
  return TextMap::lookup(m_TextMap.raidLogicalDriveStatusMap, getSipNumberValue(0x2151, a, d));
}
std::string SystemInformation::getRaidLogicalDriveLevel(unsigned int a, unsigned int d) {
  return getSipStringValue(0x2155, a, d);
}
uint32_t SystemInformation::getRaidLogicalDriveSize(unsigned int a, unsigned int d) {
  return getSipNumberValue(0x2153, a, d);
}
ComponentStatus SystemInformation::getRaidStatus() {
  return TextMap::lookup(m_TextMap.raidStatusMap, getSipNumberValue(0x2120, 0, 0));
}

// ---------------------------------------------------------------------------
// Driver Monitor

std::vector<unsigned int> SystemInformation::getDrvMonComponentIndexes(unsigned char componentClass) {
  std::vector<unsigned int> indexes;
  const uint32_t count = readCount(kDrvMonCount, 0);
  for (uint32_t i = 0; i < count; ++i) {
    if (getSipNumberValue(kDrvMonClass, 0, i) == componentClass) indexes.push_back(i);
  }
  return indexes;
}
std::string SystemInformation::getDrvMonComponentDesignation(unsigned int i) {
  return getSipStringValue(0x1803, 0, i);
}
std::string SystemInformation::getDrvMonComponentLocation(unsigned int i) { return getSipStringValue(0x1804, 0, i); }
ComponentStatus SystemInformation::getDrvMonComponentStatus(unsigned int i) {
  return TextMap::lookup(m_TextMap.drvMonComponentStatusMap, getSipNumberValue(0x1801, 0, i));
}

bool SystemInformation::clearDriverMonitorStatus() {
  SipJson::GenericValue& cmd = m_Cmd.GetCmd();
  SipJson::SetCmdElemValue(cmd, "OC", kDrvMonClearStatus, false);
  auto data = cmd.FindMember("DA");
  if (data != cmd.MemberEnd()) {
    data->value.SetUint(1);
  } else {
    cmd.AddMember("DA", 1u, m_Cmd.Document().GetAllocator());
  }
  // The reset is the one request that carries a status field.
  SipJson::SetCmdElemValue(cmd, "ST", 0, false);
  SipJson::SetCmdElemValue(cmd, "CA", m_CabinetNumber, false);
  return sendAndCheckStatus() && replyHasData();
}

// ---------------------------------------------------------------------------
// Overall statuses. The temperature group keeps its selector in the object
// index, and the mass-storage adapters live apart under 0x1820.

uint32_t SystemInformation::getEnvironmentOverallStatus() { return getSipNumberValue(kOverallStatus, 0, 0); }
uint32_t SystemInformation::getPowerSupplyOverallStatus() { return getSipNumberValue(kOverallStatus, 1, 0); }
uint32_t SystemInformation::getMassStorageOverallStatus() { return getSipNumberValue(kOverallStatus, 2, 0); }
uint32_t SystemInformation::getSystemBoardOverallStatus() { return getSipNumberValue(kOverallStatus, 3, 0); }
uint32_t SystemInformation::getNetworkOverallStatus() { return getSipNumberValue(kOverallStatus, 5, 0); }
uint32_t SystemInformation::getMassStorageAdapterOverallStatus() { return getSipNumberValue(0x1820, 3, 0); }
uint32_t SystemInformation::getRaidOverallStatus() { return getSipNumberValue(0x2120, 0, 0); }
uint32_t SystemInformation::getRaidAdapterOverallStatus() { return getSipNumberValue(0x2121, 0, 0); }
uint32_t SystemInformation::getRaidLogicalDrivesOverallStatus() { return getSipNumberValue(0x2122, 0, 0); }
uint32_t SystemInformation::getRaidPhysicalDrivesOverallStatus() { return getSipNumberValue(0x2123, 0, 0); }
uint32_t SystemInformation::getCoolingDevicesOverallStatus() { return getSipNumberValue(kGroupStatus, 0, 0); }
uint32_t SystemInformation::getTemperatureOverallStatus() { return getSipNumberValue(kGroupStatus, 0, 2); }
uint32_t SystemInformation::getPowerSupplyUnitsOverallStatus() { return getSipNumberValue(kGroupStatus, 1, 0); }
uint32_t SystemInformation::getVoltagesOverallStatus() { return getSipNumberValue(kGroupStatus, 3, 0); }
uint32_t SystemInformation::getMemoryModulesOverallStatus() { return getSipNumberValue(kGroupStatus, 3, 1); }
uint32_t SystemInformation::getSystemProcessorsOverallStatus() { return getSipNumberValue(kGroupStatus, 3, 2); }
uint32_t SystemInformation::getPciSlotsOverallStatus() { return getSipNumberValue(kGroupStatus, 3, 4); }
uint32_t SystemInformation::getNetworkAdaptersOverallStatus() { return getSipNumberValue(kGroupStatus, 5, 0); }

// ---------------------------------------------------------------------------
// Network addresses

std::vector<std::string> SystemInformation::getIpAddresses() {
  std::vector<std::string> addresses;
  for (unsigned int slot = 0; slot < kIpAddressSlots; ++slot) {
    // Slot 1 changes only the sub-index: the value id stays from slot 0, and
    // neither read writes an object index or a cabinet number.
    SipJson::GenericValue& cmd = m_Cmd.GetCmd();
    if (slot == 0) SipJson::SetCmdElemValue(cmd, "OC", kIpAddress, false);
    SipJson::SetCmdElemValue(cmd, "OE", slot, true);
    if (!sendAndCheckStatus() || !replyHasData()) continue;
    std::vector<unsigned char> block;
    if (!m_Cmd.GetCmdDataStream(cmdIndex(), block)) continue;
    CIPAddress address(block);
    addresses.push_back(address.text());
  }
  return addresses;
}
