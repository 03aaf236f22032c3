// The platform services the library needs, each asked for the way the
// library asks for it, without using it to change anything. Each probe runs
// on a thread of its own, so that the apartment it sets up never touches the
// caller's thread, and is given up on after a bounded wait: a service that
// never answers is reported as such instead of holding up the self-test.
#pragma once

#include <string>

namespace kelcli {

struct ProbeResult {
  bool passed = false;
  // What was seen, in words: the object made, or the call that failed
  // with its result.
  std::wstring seen;
};

using Probe = ProbeResult (*)();

// CoCreateInstance(CLSID_AppVisibility, CLSCTX_INPROC_SERVER) in a
// single-threaded apartment.
ProbeResult ProbeAppVisibility();
// CoCreateInstance(CLSID_ApplicationActivationManager, CLSCTX_INPROC_SERVER)
// in a single-threaded apartment, as for a launch with arguments.
ProbeResult ProbeActivationManager();
// The same with CLSCTX_LOCAL_SERVER, as for a launch without arguments: the
// activation manager's own process answers.
ProbeResult ProbeActivationManagerLocalServer();
// The current user's SID from the account name, then
// RoActivateInstance(Windows.Management.Deployment.PackageManager) in a
// single-threaded runtime apartment and the user's packages counted.
ProbeResult ProbeDeploymentService();
// CoCreateInstance(CLSID_AppxFactory, CLSCTX_INPROC_SERVER) in a
// single-threaded apartment; no manifest is read.
ProbeResult ProbeManifestReaderFactory();

// Runs `probe` on a new thread and waits at most `timeoutMs` for it. A probe
// still running then is left to finish on its own.
ProbeResult RunBounded(Probe probe, unsigned long timeoutMs);

}  // namespace kelcli
