#pragma once

#include <string>

class SipJson;

// Request side of an agent client: attach, send command records, errors.
class CTesselClientRequestIf {
 public:
  virtual ~CTesselClientRequestIf() = default;

  virtual bool Attach(const char* serverName, bool withEvents, unsigned flags) = 0;
  virtual void Detach() = 0;
  virtual unsigned Request(SipJson& cmd, unsigned timeout) = 0;
  virtual bool GetServerCabinetNumber(unsigned& cabinet) = 0;
  virtual bool SetApplicationName(const char* name) = 0;
  virtual bool SetLogonUser(const char* user, const char* password, const char* domain) = 0;
  virtual bool SetRequestMethod(const char* method) = 0;
  virtual bool GetCurrentRequestMethod(std::string& method) const = 0;
  virtual unsigned GetLastError() const = 0;
  virtual std::string GetLastErrorMsg(std::string& msg) const = 0;
};
