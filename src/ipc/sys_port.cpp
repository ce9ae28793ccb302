#include "ipc/sys_port.h"

#include <cstring>

#include "ipc/file_msg_drv.h"
#include "ipc/sys_msg_drv.h"

namespace {

const SysPort* g_port = nullptr;

template <typename Fn>
Fn pick(Fn SysPort::*member, Fn real) {
    return g_port != nullptr && g_port->*member != nullptr ? g_port->*member : real;
}

}  // namespace

void sys_port_install(const SysPort* port) { g_port = port; }

int sys_command(uint32_t cmd, void* data, int length, int* capacity) {
    return pick(&SysPort::command, TransmitMsg2Sys)(cmd, data, length, capacity);
}

// Without a reply capacity the channel copies nothing back into the
// buffer, so the caller's block stays as it was.
int sys_send(SysCmd cmd, const void* data, int length) {
    const int width = sys_cmd_width(cmd);
    if (data == nullptr || length < 0 || width == 0 || (width != kSysText && length != width)) return -1;
    return sys_command(static_cast<uint32_t>(cmd), const_cast<void*>(data), length, nullptr) < 0 ? -1 : 0;
}

int sys_send_number(SysCmd cmd, uint32_t value) {
    const int width = sys_cmd_width(cmd);
    if (width < 1 || width > 4) return -1;
    uint8_t payload[4];
    for (int i = 0; i < 4; ++i) payload[i] = static_cast<uint8_t>(value >> (8 * i));
    return sys_send(cmd, payload, width);
}

int sys_send_text(SysCmd cmd, const char* text) {
    if (text == nullptr || sys_cmd_width(cmd) != kSysText) return -1;
    return sys_send(cmd, text, static_cast<int>(std::strlen(text)));
}

SysInfo* sys_info() { return pick(&SysPort::info, GetSysInfo)(); }
SysState* sys_state(int wait) { return pick(&SysPort::state, GetSysState)(wait); }
CamInfo* sys_cam_info() { return pick(&SysPort::cam, GetCamInfoParams)(); }
AiInfo* sys_ai_info() { return pick(&SysPort::ai, GetAiInfoParams)(); }
SavedCodecs* sys_saved_codecs() { return static_cast<SavedCodecs*>(pick(&SysPort::ext, GetExtInfoParams)()); }
