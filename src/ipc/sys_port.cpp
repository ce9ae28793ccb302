#include "ipc/sys_port.h"

#include <array>
#include <cstring>

#include "ipc/file_msg_drv.h"
#include "ipc/sys_msg_drv.h"

namespace {

const SysPort* g_port = nullptr;

template <typename Fn>
Fn pick(Fn SysPort::*member, Fn real) {
    return g_port != nullptr && g_port->*member != nullptr ? g_port->*member : real;
}

// The largest block a handler sends (the SRT settings, 616 bytes) with room
// to spare; the data is copied so that the caller's block stays const.
constexpr size_t kSendMax = 1024;

}  // namespace

void sys_port_install(const SysPort* port) { g_port = port; }

int sys_command(uint32_t cmd, void* data, int length, int* capacity) {
    return pick(&SysPort::command, TransmitMsg2Sys)(cmd, data, length, capacity);
}

int sys_send(uint32_t cmd, const void* data, int length) {
    if (data == nullptr || length < 0 || static_cast<size_t>(length) > kSendMax) return -1;
    std::array<uint8_t, kSendMax> copy{};
    std::memcpy(copy.data(), data, static_cast<size_t>(length));
    int capacity = static_cast<int>(copy.size());
    return sys_command(cmd, copy.data(), length, &capacity) < 0 ? -1 : 0;
}

SysInfo* sys_info() { return pick(&SysPort::info, GetSysInfo)(); }
SysState* sys_state(int wait) { return pick(&SysPort::state, GetSysState)(wait); }
CamInfo* sys_cam_info() { return pick(&SysPort::cam, GetCamInfoParams)(); }
AiInfo* sys_ai_info() { return pick(&SysPort::ai, GetAiInfoParams)(); }
