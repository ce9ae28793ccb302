// The system-server boundary as the handlers see it: system commands and the
// store's readers. They are the real command channel and the shared segment
// unless the installed platform record names others.
#pragma once

#include <cstdint>

#include "ipc/sys_commands.h"
#include "records/records.h"

// TransmitMsg2Sys through the port: the reply length, or a negative value.
int sys_command(uint32_t cmd, void* data, int length, int* capacity);
// A command whose reply carries no data: 0 when the server took it, -1 when
// the send failed or the server refused it (a negative reply length), or
// when `length` is not the command's width (a text command takes any).
int sys_send(SysCmd cmd, const void* data, int length);
// A number sent as its low bytes, as many as the command's width (1 to 4),
// little-endian; and a text sent without its terminator. -1 for a command
// of another kind.
int sys_send_number(SysCmd cmd, uint32_t value);
int sys_send_text(SysCmd cmd, const char* text);
// A block of the command's exact width: another size does not compile.
template <SysCmd C, typename Block>
int sys_send_block(const Block& block) {
    static_assert(sizeof(Block) == static_cast<size_t>(sys_cmd_width(C)),
                  "the block is not the command's width");
    return sys_send(C, &block, static_cast<int>(sizeof(Block)));
}
// A number to a command of 1 to 4 bytes, checked when it compiles.
template <SysCmd C>
int sys_send_number(uint32_t value) {
    static_assert(sys_cmd_width(C) >= 1 && sys_cmd_width(C) <= 4, "the command carries no number");
    return sys_send_number(C, value);
}
SysInfo* sys_info();
SysState* sys_state(int wait);
CamInfo* sys_cam_info();
AiInfo* sys_ai_info();
// The encoder records the system server saved per codec (in the further area).
SavedCodecs* sys_saved_codecs();
