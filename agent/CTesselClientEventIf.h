#pragma once

class SipJson;

// Event side of an agent client: handlers called for records the daemon pushes.
class CTesselClientEventIf {
 public:
  using EventHandler = void (*)(SipJson& event, void* context);

  virtual ~CTesselClientEventIf() = default;

  virtual bool EnableEvents(bool enable, bool unused) = 0;
  virtual bool RegisterEventHandler(EventHandler handler, void* context) = 0;
  virtual bool UnregisterEventHandler(EventHandler handler) = 0;
};
