// The camera command channel. Requests go to the camera-control server with
// message type 1; each reply comes back with this client's id as its type
// and repeats the request's sequence number.
#include "ipc/CamMsgDrv.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/time.h>
#include <unistd.h>

#include "ipc/msg_util.h"
#include "records/records.h"
#include "ipc/sem_util.h"
#include "support/log.h"
#include "support/support.h"

namespace {

constexpr int kMaxId = 26;
constexpr int kServerId = 1;
constexpr int kWholeMsg = static_cast<int>(sizeof(CamMsg));
constexpr int kPacketField = static_cast<int>(sizeof(CamMsg::packet));

int g_own_id = 1;
SemHandl_t g_sem = nullptr;
int g_qid = -1;
uint32_t g_seq = 0;

bool channel_ready() { return g_sem != nullptr && g_qid >= 0; }

// A monotonic clock in microseconds: the time-outs are measured on it, so
// that setting the camera's date neither stretches nor cuts one.
int64_t now_us() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}

// Space-separated hex of a packet, as the traces print it.
std::string hex_bytes(const uint8_t* bytes, int count) {
    std::string out;
    char cell[4];
    for (int i = 0; i < count; ++i) {
        std::snprintf(cell, sizeof cell, "%02x ", bytes[i]);
        out += cell;
    }
    return out;
}

// The request record; the caller keeps packets within the packet field.
CamMsg make_request(const uint8_t* packet, int length) {
    CamMsg msg{};
    msg.type = kServerId;
    msg.src = g_own_id;
    msg.seq = static_cast<int32_t>(g_seq++);
    msg.length = length;
    std::memcpy(msg.packet, packet, static_cast<size_t>(std::clamp(length, 0, kPacketField)));
    return msg;
}

// The reply length as the caller may take it: the smaller of its capacity
// and the record's length, never below zero nor beyond the packet field.
int clip_reply(int capacity, int length) { return std::clamp(std::min(capacity, length), 0, kPacketField); }

bool packet_ok(const uint8_t* packet, int length) {
    return packet != nullptr && length >= 0 && length <= kPacketField;
}

int recv_from_cam(uint8_t* buffer, int* capacity, int timeout_ms, int* seq, const char* name) {
    if (!channel_ready()) return -1;
    CamMsg reply{};
    // The wait sleeps in the kernel until a record or the time-out.
    SemWait(g_sem);
    const int got = Msg_Rcv_Until(g_qid, g_own_id, &reply, kWholeMsg, timeout_ms);
    SemRelease(g_sem);
    if (got < 0) return got == -2 ? -2 : -1;

    const int shown = std::clamp(reply.length, 0, kPacketField);
    if (seq != nullptr)
        LOG_DBG("%s %d:%s\n", name, reply.seq, hex_bytes(reply.packet, shown).c_str());
    else
        LOG_DBG("%s:%s\n", name, hex_bytes(reply.packet, shown).c_str());
    int n = reply.length;
    if (capacity != nullptr) {
        n = clip_reply(*capacity, reply.length);
        if (buffer != nullptr) std::memcpy(buffer, reply.packet, static_cast<size_t>(n));
        *capacity = n;
    }
    if (seq != nullptr) *seq = reply.seq;
    return n;
}

}  // namespace

int CamMsgTimeout(const uint8_t* packet, int length) {
    constexpr int kLong = 40000, kInquiry = 5000, kDefault = 10000;
    if (packet == nullptr || length < 2) return kDefault;
    const uint8_t category = length >= 3 ? packet[2] : 0;
    const uint8_t item = length >= 4 ? packet[3] : 0;
    if (packet[1] == 0x01 && length >= 3 && category == 0x06) return kLong;  // pan-tilt
    if (packet[1] == 0x01 && length >= 4 && category == 0x04 && (item == 0x3F || item == 0x24))
        return kLong;  // the two slow lens commands
    if (packet[1] == 0x09) return kInquiry;
    return kDefault;
}

int CamMsgCltInit(int id) {
    if (id < 1 || id > kMaxId) {
        LOG_ERR("Invalid Parameter\n");
        return -1;
    }
    g_own_id = id;
    if (g_sem == nullptr) {
        g_sem = MakeSem();
        if (g_sem == nullptr) {
            LOG_ERR("No more memory to create semaphore\n");
            g_own_id = 1;
            return -1;
        }
    }
    g_qid = Msg_Init(kCamMsgKey);
    if (g_qid < 0) {
        DestroySem(g_sem);
        g_sem = nullptr;
        g_own_id = 1;
        LOG_ERR("Msg_Init fail\n");
        return -1;
    }
    // Each process numbers its requests from its own start, so a reply meant
    // for an earlier responder with the same id never matches one of ours.
    g_seq = static_cast<uint32_t>(getpid()) << 16;
    FlushMsgFromCam();
    return 0;
}

void CamMsgCltExit() {
    g_own_id = 1;
    if (g_sem != nullptr) DestroySem(g_sem);
    g_sem = nullptr;
}

int CamMsgSvrInit() {
    g_own_id = kServerId;
    if (g_sem == nullptr) {
        g_sem = MakeSem();
        if (g_sem == nullptr) {
            LOG_ERR("MakeSem error!\n");
            return -1;
        }
    }
    g_qid = Msg_Init(kCamMsgKey);
    if (g_qid < 0) {
        DestroySem(g_sem);
        g_sem = nullptr;
        LOG_ERR("Msg_Init fail\n");
        return -1;
    }
    return 0;
}

void CamMsgSvrExit() {
    Msg_Kill(kCamMsgKey);  // the key, not the queue id: kept as it always was
    if (g_sem != nullptr) DestroySem(g_sem);
    g_sem = nullptr;
}

namespace {
bool g_last_timed_out = false;
}  // namespace

int CamMsgLastTimedOut() { return g_last_timed_out ? 1 : 0; }

int TramsMsg2Cam(uint8_t* packet, int length, int* capacity) {
    if (!channel_ready()) return -1;
    const int64_t start = now_us();
    if (length > kViscaMax || !packet_ok(packet, length)) return -1;
    const int timeout_ms = CamMsgTimeout(packet, length);

    // Two system calls when the reply comes in time: the send and the
    // receive. Replies to earlier requests still queued are passed over by
    // their sequence numbers as they come.
    SemWait(g_sem);
    const CamMsg request = make_request(packet, length);
    CamMsg msg = request;

    int result = -1;
    bool timed_out = false;
    if (Msg_Send(g_qid, &msg, kWholeMsg) >= 0) {
        // The wait sleeps in the kernel until the reply or the time-out.
        for (;;) {
            const int left = timeout_ms - static_cast<int>((now_us() - start) / 1000);
            const int got = Msg_Rcv_Until(g_qid, g_own_id, &msg, kWholeMsg, left);
            if (got >= 0) {
                if (msg.seq != request.seq) continue;  // a late reply to an older request
                if (capacity != nullptr) {
                    result = clip_reply(*capacity, msg.length);
                    *capacity = result;
                    std::memcpy(packet, msg.packet, static_cast<size_t>(result));
                } else {
                    result = static_cast<int>(got);
                }
                break;
            }
            timed_out = got == -2;
            break;
        }
    }
    g_last_timed_out = timed_out;

    if (result == -1 && g_print_level >= 3)
        LOG_INFO("%s error:%s\n", "TramsMsg2Cam", hex_bytes(request.packet, length).c_str());
    SemRelease(g_sem);
    return result;
}

int TramsMsg2CamNowait(const uint8_t* packet, int length) {
    if (packet != nullptr && length >= 0)
        LOG_DBG("TramsMsg2CamNowait:%s\n", hex_bytes(packet, std::min(length, kPacketField)).c_str());
    if (!channel_ready()) return -1;
    if (!packet_ok(packet, length)) return -1;
    FlushMsgFromCam();
    SemWait(g_sem);
    CamMsg msg = make_request(packet, length);
    const int result = Msg_Send(g_qid, &msg, kWholeMsg);
    SemRelease(g_sem);
    return result;
}

int TramsMsg2CamNowait1(const uint8_t* packet, int length, int* seq) {
    if (packet != nullptr && length >= 0)
        LOG_DBG("TramsMsg2CamNowait1 %d:%s\n", static_cast<int>(g_seq),
                hex_bytes(packet, std::min(length, kPacketField)).c_str());
    if (!channel_ready()) return -1;
    if (!packet_ok(packet, length)) return -1;
    SemWait(g_sem);
    CamMsg msg = make_request(packet, length);
    const int result = Msg_Send(g_qid, &msg, kWholeMsg);
    if (seq != nullptr) *seq = msg.seq;
    SemRelease(g_sem);
    return result;
}

int RecvMsgFromCam(uint8_t* buffer, int* capacity, int timeout_ms) {
    return recv_from_cam(buffer, capacity, timeout_ms, nullptr, "RecvMsgFromCam");
}

int RecvMsgFromCam1(uint8_t* buffer, int* capacity, int timeout_ms, int* seq) {
    int dummy = 0;
    return recv_from_cam(buffer, capacity, timeout_ms, seq != nullptr ? seq : &dummy, "RecvMsgFromCam1");
}

void FlushMsgFromCam() {
    if (!channel_ready()) return;
    SemWait(g_sem);
    Msg_Drain(g_qid, g_own_id);
    SemRelease(g_sem);
}

int SendMsg2CamClt(long type, const uint8_t* data, int length, int seq) {
    if (length > kViscaMax || g_qid < 0) return -1;
    if (length < 0 || (data == nullptr && length > 0)) return -1;
    if (msg_size_check(g_qid, kWholeMsg) != 0) return -1;
    CamMsg msg{};
    msg.type = type;
    msg.src = g_own_id;
    msg.seq = seq;
    msg.length = length;
    if (length > 0) std::memcpy(msg.packet, data, static_cast<size_t>(length));
    return Msg_Send(g_qid, &msg, kWholeMsg) < 0 ? -1 : 0;
}

int RecvMsgFromCamClt(uint8_t* buffer, int* length, int* seq) {
    if (g_qid < 0) return -1;
    CamMsg msg{};
    if (Msg_Rcv(g_qid, g_own_id, &msg, kWholeMsg) < 0) return -1;  // retries interrupts
    const int n = std::clamp(msg.length, 0, kViscaMax);
    if (buffer != nullptr) std::memcpy(buffer, msg.packet, static_cast<size_t>(n));
    if (length != nullptr) *length = n;
    if (seq != nullptr) *seq = msg.seq;
    return msg.src;
}
