#pragma once

#include <string>

#include "html/HTMLComposite.h"
#include "sysinfo/SystemInformation.h"

// The report's first page: what the machine is (system, system board,
// operating system, management software), as label/value panels without
// status colours. Values are read from the agent while the page renders.
class ZentrixInformation : public HTMLComposite {
 public:
  // Attaches to the agent through its own SystemInformation.
  ZentrixInformation();

  std::string renderContent() override;

  void fillSystemPanel();
  void fillSystemBoardPanel();
  void fillOperatingSystemPanel();
  void fillSystemManagementSoftwarePanel();

  // "1 days 1 hours 1 minutes"; "" for less than a minute, so the line goes.
  static std::string secondsToDaysHoursMinutes(unsigned int seconds);

 private:
  friend class HTMLComponent;  // renders through appendContent
  // Fills the page and appends what renderContent() returns; the document
  // renders the page straight into its own buffer through this.
  void appendContent(std::string& html);

  struct Field {
    std::string label;
    std::string value;
  };
  void addSection(const std::string& title, const std::vector<Field>& fields);

  SystemInformation m_SystemInformation;
};
