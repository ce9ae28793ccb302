// The system command channel: a command id and a data block through the
// process's own slice of segment 14073, the command itself on queue 14073.
#pragma once

#include <cstdint>

int InitSysMsgDrv(int link_id);
int CleanupSysMsgDrv();
// Reply data (if any) is written back into `data`; `capacity` may be null.
int TransmitMsg2Sys(uint32_t cmd, void* data, int length, int* capacity);
