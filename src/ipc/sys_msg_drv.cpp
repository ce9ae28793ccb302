// The system command channel. The request data goes through this process's
// slice of segment 14073, the command on queue 14073; the server answers on
// the same queue with the sender's link id as the message type.
#include "ipc/sys_msg_drv.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <sys/ipc.h>
#include <sys/msg.h>

#include "ipc/msg_util.h"
#include "records/records.h"
#include "ipc/sem_util.h"
#include "ipc/share_mem.h"
#include "support/log.h"

namespace {

constexpr int kMaxLinkId = 26;
constexpr uint32_t kCmdLimit = 71;  // ids 0 to 70

int g_link_id = 0;
// How long a command waits for the server's reply. The slowest commands the
// handlers send (factory reset, snapshot) are answered within a few seconds;
// 10 s is the patience the store's readers have too. A reply that comes
// later is a stale one and is drained before the next command.
int g_deadline_ms = kSysReplyDeadlineMs;
int g_qid = -1;
SemHandl_t g_sem = nullptr;

int slice_offset(int link_id) { return (link_id - 2) * PROC_MEM_SIZE; }

int init_fail(const char* text) {
    g_link_id = 1;
    std::fputs(text, stderr);
    return -1;
}

}  // namespace

int InitSysMsgDrv(int link_id) {
    if (link_id < 1 || link_id > kMaxLinkId) return init_fail("Error:Invalid Parameter\n");
    g_link_id = link_id;
    if (ShareMemInit(kSysMsgKey) < 0) return init_fail("Error:Share Memory init fail\n");
    if (g_sem == nullptr) {
        g_sem = MakeSem();
        if (g_sem == nullptr) return init_fail("Error:No more memory to create semaphore\n");
    }
    g_qid = Msg_Init(kSysMsgKey);
    if (g_qid < 0) {
        DestroySem(g_sem);
        g_sem = nullptr;
        return init_fail("Error:Msg_Init fail\n");
    }
    return 0;
}

int CleanupSysMsgDrv() {
    g_link_id = 1;
    if (g_sem != nullptr) DestroySem(g_sem);
    g_sem = nullptr;
    return 0;
}

int TransmitMsg2Sys(uint32_t cmd, void* data, int length, int* capacity) {
    if (data == nullptr || cmd >= kCmdLimit) return -1;

    SysMsg msg{};
    msg.type = 1;
    msg.cmd = static_cast<int32_t>(cmd);
    msg.src = g_link_id;
    msg.length = length;
    msg.offset = slice_offset(g_link_id);

    if (SemWait(g_sem) != 0) return -1;
    ShareMemWrite(msg.offset, data, length);
    Msg_Drain(g_qid, g_link_id);

    int result = Msg_Send(g_qid, &msg, sizeof msg);
    if (result >= 0) {
        result = Msg_Rcv_Until(g_qid, g_link_id, &msg, sizeof msg, g_deadline_ms);
        if (result == -2) LOG_ERR("system server did not answer command %u\n", cmd);
        if (result >= 0 && capacity != nullptr && msg.length >= 0) {
            const int room = std::max(*capacity, 0);
            if (static_cast<uint32_t>(msg.length) > static_cast<uint32_t>(room)) {
                LOG_DBG("%s:Recive buf too small!\n", "TransmitMsg2Sys");
                ShareMemRead(msg.offset, data, room);
            } else {
                ShareMemRead(msg.offset, data, msg.length);
                *capacity = msg.length;
            }
        }
        if (result >= 0) result = msg.length;
    }
    SemRelease(g_sem);
    return result;
}

void SetSysMsgDeadline(int ms) { g_deadline_ms = ms > 0 ? ms : kSysReplyDeadlineMs; }
