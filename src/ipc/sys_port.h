// The system-server boundary as the handlers see it: system commands and the
// store's readers. By default they are the real command channel and the
// shared segment; tests install a port of their own (an in-memory record and
// a journal of commands) for as long as they need it.
#pragma once

#include <cstdint>

#include "records/records.h"

struct SysPort {
    int (*command)(uint32_t cmd, void* data, int length, int* capacity);
    SysInfo* (*info)();
    SysState* (*state)(int wait);
    CamInfo* (*cam)();
    AiInfo* (*ai)();
    void* (*ext)();
};

// Installs `port` (null: the real channel and store again). A null member
// of an installed port also falls back to the real one.
void sys_port_install(const SysPort* port);

// TransmitMsg2Sys through the port: the reply length, or a negative value.
int sys_command(uint32_t cmd, void* data, int length, int* capacity);
// A command whose reply carries no data: 0 when the server took it, -1 when
// the send failed or the server refused it (a negative reply length).
int sys_send(uint32_t cmd, const void* data, int length);
// The same for a number sent as its low `width` bytes (1 to 4), little-endian,
// and for a text sent without its terminator.
int sys_send_number(uint32_t cmd, uint32_t value, int width);
int sys_send_text(uint32_t cmd, const char* text);
SysInfo* sys_info();
SysState* sys_state(int wait);
CamInfo* sys_cam_info();
AiInfo* sys_ai_info();
// The encoder records the system server saved per codec (in the further area).
SavedCodecs* sys_saved_codecs();
