// VLCInstanceQRV's log routing and its exit handler.
#pragma once

#include "plugin/host_abi.h"

void ClearLog(REALobject self);
void SetLogFile(REALobject self, REALfolderItem file);
void SetLogEvent(REALobject self);

// For the instance destructor, before it lets go of libvlc: stops libvlc's
// log forwarding and exit calls, and drops the log lines and exit requests
// still queued for this instance.
void EndInstanceDeliveries(REALobject self);

// The target exit requests of this instance are delivered through.
struct DeliveryTarget;
DeliveryTarget* ExitDeliveryTarget(REALobject instance);

REALobject GetExitHandler(REALobject self);
void SetExitHandler(REALobject self, REALobject handler);
