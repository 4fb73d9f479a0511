#pragma once

#include <map>
#include <string>

#include "html/ComponentStatus.h"

// The report's vocabulary for the small numeric codes the agent delivers:
// status maps give a row status plus its word, text maps give a plain text.
// The rows are fixed and built in code once per TextMap.
class TextMap {
 public:
  using StatusMap = std::map<unsigned int, ComponentStatus>;
  using TextTable = std::map<unsigned int, std::string>;

  TextMap();
  ~TextMap() = default;

  void initializeMaps();

  // Lookups return a copy. An unknown code is inserted with the default
  // (status 0 and empty text, or the empty string) so that it is remembered
  // and answers the same way next time.
  static ComponentStatus lookup(StatusMap& map, unsigned int code) { return map[code]; }
  static std::string lookup(TextTable& map, unsigned int code) { return map[code]; }

  StatusMap fanStatusMap;
  TextTable fanTypeMap;
  StatusMap tempSensorStatusMap;
  TextTable tempSensorTypeMap;
  StatusMap powerSupplyStatusMap;
  StatusMap raidAdapterStatusMap;
  StatusMap raidPhysicalDriveStatusMap;
  TextTable raidPhysicalDriveSmartStatusMap;
  TextTable raidPhysicalDriveInterfaceMap;
  StatusMap raidPhysicalDriveFailureMap;  // filled but consulted by no getter
  StatusMap raidLogicalDriveStatusMap;
  StatusMap drvMonComponentStatusMap;
  StatusMap voltageStatusMap;
  StatusMap memoryModuleStatusMap;
  StatusMap processorStatusMap;
  StatusMap pciSlotStatusMap;
  StatusMap raidStatusMap;
};
