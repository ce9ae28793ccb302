// The system command channel: a command id and a data block through the
// process's own slice of segment 14073, the command itself on queue 14073.
#pragma once

#include <cstdint>

int InitSysMsgDrv(int link_id);
int CleanupSysMsgDrv();
// Reply data (if any) is written back into `data`; `capacity` may be null.
int TransmitMsg2Sys(uint32_t cmd, void* data, int length, int* capacity);

// A command waits this long for its reply and then fails as a failed send
// (-2); tests may shorten it (a value of 0 or less restores it).
inline constexpr int kSysReplyDeadlineMs = 10000;
void SetSysMsgDeadline(int ms);
