#include "pages/ZentrixInformation.h"

#include <cstdio>

#include "pages/PageFrame.h"
#include "html/CollapsibleComposite.h"
#include "html/PanelComponent.h"

ZentrixInformation::ZentrixInformation() {
  setTitle("System Information");
  renderDirectly<ZentrixInformation>();
}

std::string ZentrixInformation::renderContent() { return rendered(*this); }

void ZentrixInformation::appendContent(std::string& html) {
  fillSystemPanel();
  fillSystemBoardPanel();
  fillOperatingSystemPanel();
  fillSystemManagementSoftwarePanel();
  openPageFrame(html, getTitle());
  renderChildren(html);
  closePageFrame(html);
}

void ZentrixInformation::addSection(const std::string& title, const std::vector<Field>& fields) {
  HTMLComponent* panel = new PanelComponent();
  for (const Field& field : fields) panel->addField(field.label, field.value);
  HTMLComponent* section = new CollapsibleComposite();
  section->add(panel);
  section->setTitle(title);
  add(section);
}

void ZentrixInformation::fillSystemPanel() {
  SystemInformation& info = m_SystemInformation;
  // Braced lists evaluate in order, so the agent is asked line by line.
  addSection("System", {
                           {"Model", info.getModelName()},
                           {"Serial Number", info.getSystemSerialNumber()},
                           {"Chassis ID", info.getChassisID()},
                           {"Asset Tag", info.getAssetTag()},
                           {"UUID", info.getUUID()},
                           {"Power On Duration", secondsToDaysHoursMinutes(info.getPowerOnDurationSeconds())},
                       });
}

void ZentrixInformation::fillSystemBoardPanel() {
  SystemInformation& info = m_SystemInformation;
  addSection("System Board", {
                                 {"Serial Number", info.getSystemBoardSerialNumber()},
                                 {"Ident Number", info.getSystemBoardIdentNumber()},
                                 {"BIOS Version", info.getBIOSVersion()},
                             });
}

void ZentrixInformation::fillOperatingSystemPanel() {
  SystemInformation& info = m_SystemInformation;
  std::vector<Field> fields = {
      {"Name", info.getOperatingSystemName()},
      {"Uptime", secondsToDaysHoursMinutes(info.getUptimeSeconds())},
      {"Host Name", info.getHostName()},
  };
  // Only the first and the last address are shown, the last unlabelled.
  std::vector<std::string> addresses = info.getIpAddresses();
  if (!addresses.empty()) fields.push_back({"IP Address", addresses.front()});
  if (addresses.size() >= 2) fields.push_back({"", addresses.back()});
  addSection("Operating System", fields);
}

void ZentrixInformation::fillSystemManagementSoftwarePanel() {
  SystemInformation& info = m_SystemInformation;
  addSection("System Management Software",
             {{info.getSystemManagementSoftwareName(), info.getSystemManagementSoftwareVersion()}});
}

std::string ZentrixInformation::secondsToDaysHoursMinutes(unsigned int seconds) {
  if (seconds == 0) return "";
  unsigned days = seconds / 86400;
  unsigned rest = seconds - days * 86400;
  unsigned hours = rest / 3600;
  unsigned minutes = (rest - hours * 3600) / 60;
  std::string text;
  char number[16];
  // The plural words and the trailing blanks are the report's own wording.
  if (days != 0) {
    std::snprintf(number, sizeof number, "%d", static_cast<int>(days));
    text += number;
    text += " days ";
  }
  if (hours != 0) {
    std::snprintf(number, sizeof number, "%d", static_cast<int>(hours));
    text += number;
    text += " hours ";
  }
  if (minutes != 0) {
    std::snprintf(number, sizeof number, "%d", static_cast<int>(minutes));
    text += number;
    text += " minutes";
  }
  return text;
}
