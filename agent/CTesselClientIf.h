#pragma once

#include "agent/CTesselClientEventIf.h"
#include "agent/CTesselClientRequestIf.h"

// The complete agent client interface: requests first, then events.
class CTesselClientIf : public CTesselClientRequestIf, public CTesselClientEventIf {
 public:
  ~CTesselClientIf() override = default;
};
