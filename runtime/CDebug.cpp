#include "runtime/CDebug.h"

// Stub body: tracing stays off until the trace log lands.
CDebug g_Debug("Zentrix");

CDebug::CDebug() = default;
CDebug::CDebug(const char* name) { Init(name); }
CDebug::~CDebug() = default;
bool CDebug::Init(const char*) { return true; }
void CDebug::Print(unsigned, const char*, ...) {}
void CDebug::PrintAlways(const char*, ...) {}
void CDebug::PrintAlways(unsigned, const char*, ...) {}
void CDebug::PrintAlwaysV(const char*, va_list, const char*) {}
void CDebug::ClientPrintV(const char*, va_list, const char*) {}
void CDebug::PrintV(unsigned, const char*, va_list) {}
