#include "ipc/sys_port.h"

#include <cstring>

#include "ipc/file_msg_drv.h"
#include "ipc/sys_msg_drv.h"
#include "platform/platform.h"

int sys_command(uint32_t cmd, void* data, int length, int* capacity) {
    return platform_pick(&Platform::sys_command, TransmitMsg2Sys)(cmd, data, length, capacity);
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

SysInfo* sys_info() { return platform_pick(&Platform::sys_info, GetSysInfo)(); }
SysState* sys_state(int wait) { return platform_pick(&Platform::sys_state, GetSysState)(wait); }
CamInfo* sys_cam_info() { return platform_pick(&Platform::cam_info, GetCamInfoParams)(); }
AiInfo* sys_ai_info() { return platform_pick(&Platform::ai_info, GetAiInfoParams)(); }
SavedCodecs* sys_saved_codecs() {
    return static_cast<SavedCodecs*>(platform_pick(&Platform::ext_info, GetExtInfoParams)());
}
