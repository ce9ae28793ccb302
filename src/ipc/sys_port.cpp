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
int sys_send(uint32_t cmd, const void* data, int length) {
    if (data == nullptr || length < 0) return -1;
    return sys_command(cmd, const_cast<void*>(data), length, nullptr) < 0 ? -1 : 0;
}

int sys_send_number(uint32_t cmd, uint32_t value, int width) {
    if (width < 1 || width > 4) return -1;
    uint8_t payload[4];
    for (int i = 0; i < 4; ++i) payload[i] = static_cast<uint8_t>(value >> (8 * i));
    return sys_send(cmd, payload, width);
}

int sys_send_text(uint32_t cmd, const char* text) {
    return text != nullptr ? sys_send(cmd, text, static_cast<int>(std::strlen(text))) : -1;
}

SysInfo* sys_info() { return pick(&SysPort::info, GetSysInfo)(); }
SysState* sys_state(int wait) { return pick(&SysPort::state, GetSysState)(wait); }
CamInfo* sys_cam_info() { return pick(&SysPort::cam, GetCamInfoParams)(); }
AiInfo* sys_ai_info() { return pick(&SysPort::ai, GetAiInfoParams)(); }
SavedCodecs* sys_saved_codecs() {
    return static_cast<SavedCodecs*>(pick(&SysPort::ext, GetExtInfoParams)());
}
