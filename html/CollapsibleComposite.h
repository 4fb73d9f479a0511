#pragma once

#include <string>

#include "html/HTMLComposite.h"

// A titled section the reader folds open and shut. Its colour comes from the
// status its builder sets (an overall status of the agent), never from the
// children.
class CollapsibleComposite : public HTMLComposite {
 public:
  CollapsibleComposite();

  void setStatus(ComponentStatusValue status) override { status_ = status; }
  std::string renderContent() override;

  // " status-normal", " status-warning", " status-error" or "".
  std::string statusToCssClass() const;

 private:
  friend class HTMLComponent;  // renders through appendContent
  // Appends exactly what renderContent() of this class returns.
  void appendContent(std::string& html) const;

  ComponentStatusValue status_ = STATUS_NOT_PRESENT;
};
