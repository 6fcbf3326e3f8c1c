// VLCInstanceQRV's log routing and its exit handler.
#pragma once

#include "plugin/host_abi.h"

void ClearLog(REALobject self);
void SetLogFile(REALobject self, REALfolderItem file);
void SetLogEvent(REALobject self);

REALobject GetExitHandler(REALobject self);
void SetExitHandler(REALobject self, REALobject handler);
