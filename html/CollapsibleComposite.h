#pragma once

#include <string>

#include "html/HTMLComposite.h"

// A titled section the reader folds open and shut. Its colour comes from the
// status its builder sets (an overall status of the agent), never from the
// children.
class CollapsibleComposite : public HTMLComposite {
 public:
  CollapsibleComposite() = default;

  void setStatus(ComponentStatusValue status) override { status_ = status; }
  std::string renderContent() override;
  void renderInto(std::string& html) override;

  // " status-normal", " status-warning", " status-error" or "".
  std::string statusToCssClass() const;

 private:
  ComponentStatusValue status_ = STATUS_NOT_PRESENT;
};
