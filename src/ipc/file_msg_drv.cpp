// The system information store. The segment is attached once for the life of
// the process; readers poll it without a lock, writes are announced to the
// system server on the store's queue and answered there.
#include "ipc/file_msg_drv.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/shm.h>

#include "ipc/msg_util.h"
#include "records/records.h"
#include "ipc/sem_util.h"
#include "ipc/share_mem.h"
#include "platform/platform.h"
#include "support/log.h"
#include "support/support.h"

namespace {

enum FileCmd : int32_t { kStop = 0, kWrite = 1, kReset = 2, kSaveDef = 3 };
enum Section : int { kStreamSection = 1, kNetSection = 2, kAudioSection = 4 };

constexpr int kDefaultPolls = 1000;  // 1000 polls of 10 ms: 10 s
constexpr int kWholeMsg = static_cast<int>(sizeof(FileMsg));
constexpr int kReopenAfter = 3;
constexpr int kLineMax = 512;  // lines of at most 511 characters

SemHandl_t g_sem = nullptr;
int g_qid = -1;
int g_key = 0;
int g_shm_id = -1;
SysStore* g_store = nullptr;
int g_client_id = 0;
int g_fail_count = 0;
int g_poll_budget = kDefaultPolls;

void sleep_10ms() {
    timespec ts{0, 10 * 1000 * 1000};
    nanosleep(&ts, nullptr);
}

// The server writes the segment while we read it: every poll reloads.
uint32_t load_word(const void* p) {
    return __atomic_load_n(static_cast<const uint32_t*>(p), __ATOMIC_ACQUIRE);
}
uint8_t load_byte(const void* p) { return __atomic_load_n(static_cast<const uint8_t*>(p), __ATOMIC_ACQUIRE); }

// Polls `ready` every 10 ms against `budget` (negative: no limit), which is
// shared by successive waits. True once ready.
template <class Ready>
bool poll_until(Ready ready, int& budget) {
    for (;;) {
        if (ready()) return true;
        if (budget == 0) return false;
        if (budget > 0) --budget;
        sleep_10ms();
    }
}

bool info_valid() { return load_word(&g_store->info.magic) == kInfoMagic; }
bool state_valid() { return load_word(&g_store->state.magic) == kInfoMagic; }

// One request/reply exchange on the store's queue; true when the server
// answered with the size of the settings record.
bool store_request(int32_t cmd, int section) {
    FileMsg msg{};
    msg.type = 1;
    msg.cmd = cmd;
    msg.src = g_client_id;
    msg.shmid = g_shm_id;
    msg.result = 0;
    msg.section = cmd == kWrite ? section : 0;

    if (SemWait(g_sem) != 0) return false;
    Msg_Drain(g_qid, g_client_id);
    Msg_Send(g_qid, &msg, kWholeMsg);
    Msg_Rcv(g_qid, g_client_id, &msg, kWholeMsg);
    SemRelease(g_sem);
    return msg.result == static_cast<int32_t>(sizeof(SysInfo));
}

// Writes one field of the settings record and announces the change.
template <class T>
int set_field(T SysInfo::*field, T value, int section = kNetSection) {
    if (g_store == nullptr) return -1;
    g_store->info.*field = value;
    return SetSysInfo(section);
}

// Writes a whole block unless it is already stored as it is.
int set_block(void* stored, const void* block, size_t size, int section) {
    if (std::memcmp(stored, block, size) == 0) return 0;
    std::memcpy(stored, block, size);
    return SetSysInfo(section);
}

int replace_port_line(const char* path, const char* prefix, const char* format, unsigned port) {
    char line[64];
    std::snprintf(line, sizeof line, format, port);
    return ReplaceConfigLine(path, prefix, line);
}

struct FileCloser {
    void operator()(FILE* f) const { std::fclose(f); }
};
using File = std::unique_ptr<FILE, FileCloser>;

}  // namespace

void SetFileMsgPollBudget(int polls) { g_poll_budget = polls < 0 ? kDefaultPolls : polls; }

int InitFileMsgDrv(int key, int client_id) {
    if (g_sem == nullptr) {
        g_sem = MakeSem();
        if (g_sem == nullptr) {
            LOG_ERR("Semaphore create fail!!!\n");
            return -1;
        }
    }
    LOG_DBG("Semaphore Addr: %p\n", g_sem);
    g_qid = Msg_Init(key);
    if (g_qid < 0) {
        LOG_ERR("Message init fail\n");
        DestroySem(g_sem);
        g_sem = nullptr;
        return -1;
    }
    g_key = key;
    g_shm_id = pShareMemInit(key);
    shmid_ds ds{};
    void* addr = reinterpret_cast<void*>(-1);
    if (g_shm_id >= 0 && shmctl(g_shm_id, IPC_STAT, &ds) == 0 && ds.shm_segsz >= sizeof(SysStore))
        addr = shmat(g_shm_id, nullptr, 0);
    if (g_shm_id < 0 || addr == reinterpret_cast<void*>(-1)) {
        // A segment too small for the store or one we cannot attach is no
        // better than none.
        LOG_ERR("Share memory id error\n");
        Msg_Kill(g_qid);
        g_qid = -1;
        DestroySem(g_sem);
        g_sem = nullptr;
        return -1;
    }
    LOG_DBG("Share Memory id : %d\n", g_shm_id);
    g_store = static_cast<SysStore*>(addr);
    LOG_DBG("Share Memory Address:%p\n", addr);
    g_client_id = client_id;
    return 0;
}

int CleanupFileMsgDrv() {
    if (g_store != nullptr) shmdt(g_store);
    g_store = nullptr;
    const int r = DestroySem(g_sem);
    g_sem = nullptr;
    return r;
}

SysInfo* GetSysInfo() {
    if (g_store == nullptr) return nullptr;
    int budget = g_poll_budget;
    if (!poll_until(info_valid, budget)) {
        LOG_ERR("Timeout!\n");
        return nullptr;
    }
    return &g_store->info;
}

SysState* GetSysState(int wait) {
    if (g_store == nullptr) return nullptr;
    if (wait == 0) return &g_store->state;
    int budget = g_poll_budget;
    if (!poll_until(state_valid, budget)) {
        LOG_ERR("Timeout!\n");
        return nullptr;
    }
    return &g_store->state;
}

int WaitSysReady(int poll_limit) {
    if (g_store == nullptr) return 0;
    int budget = poll_limit < 0 ? -1 : poll_limit;
    if (!poll_until(info_valid, budget) || !poll_until(state_valid, budget)) return 0;
    poll_until([] { return load_byte(&g_store->state.ready) != 0; }, budget);
    return load_byte(&g_store->state.ready);
}

CamInfo* GetCamInfoParams() { return g_store == nullptr ? nullptr : &g_store->cam; }

CamInfo* WaitCamInfoParams(int poll_limit) {
    int budget = poll_limit < 0 ? -1 : poll_limit;
    if (!poll_until([] { return g_store != nullptr; }, budget)) return nullptr;
    poll_until([] { return load_word(&g_store->cam.word[994]) == kCamInfoMarker; }, budget);
    return &g_store->cam;
}

AiInfo* GetAiInfoParams() { return g_store == nullptr ? nullptr : &g_store->ai; }

void* GetExtInfoParams() { return g_store == nullptr ? nullptr : g_store->ext; }

MotorInfo* GetMotorInfoParams() {
    if (g_store == nullptr) return nullptr;
    constexpr int end = static_cast<int>(offsetof(SysStore, motor) + sizeof(MotorInfo));
    if (end > PROC_MEM_SIZE) {
        LOG_ERR("Motor_Info_Params Overflow! temp %d PROC_MEM_SIZE %d\n", end, PROC_MEM_SIZE);
        return nullptr;
    }
    return &g_store->motor;
}

int SetSysInfo(int section) {
    if (g_fail_count >= kReopenAfter) {
        g_fail_count = 0;
        g_qid = Msg_Init(g_key);
    }
    if (store_request(kWrite, section)) return 0;
    LOG_ERR("Data write error\n");
    ++g_fail_count;
    return -1;
}

int fResetSysInfo() {
    if (store_request(kReset, 0)) return 0;
    LOG_ERR("FILE_MSG_RESET fail\n");
    return -1;
}

int fSaveSysDefInfo() {
    if (store_request(kSaveDef, 0)) return 0;
    LOG_ERR("FILE_MSG_SAVE_DEF fail\n");
    return -1;
}

// Tells the server this client is going away; nothing is answered.
int SendFileMsgStop() {
    if (g_qid < 0) return -1;
    FileMsg msg{};
    msg.type = 1;
    msg.cmd = kStop;
    msg.src = g_client_id;
    msg.shmid = g_shm_id;
    return Msg_Send(g_qid, &msg, kWholeMsg) < 0 ? -1 : 0;
}

int fSetIpAddr(uint32_t ip) { return set_field(&SysInfo::ip, ip); }
int fSetNetMask(uint32_t mask) { return set_field(&SysInfo::netmask, mask); }
int fSetGateway(uint32_t gateway) { return set_field(&SysInfo::gateway, gateway); }
int fSetDns(uint32_t dns) { return set_field(&SysInfo::dns, dns); }
int fSetDhcpEnable(uint8_t enable) { return set_field(&SysInfo::dhcp, enable); }
int fSetRtspPort(uint16_t port) { return set_field(&SysInfo::rtspPort, port); }
int fSetRtspEncrypt(uint16_t enable) { return set_field(&SysInfo::rtspEncrypt, enable); }
int fSetWebPort(uint16_t port) { return set_field(&SysInfo::webPort, port); }
int fSetViscaPort(uint16_t port) { return set_field(&SysInfo::viscaPort, port); }
int fSetOnvifPort(uint16_t port) { return set_field(&SysInfo::onvifPort, port); }
int fSetControlHubPort(uint16_t port) { return set_field(&SysInfo::controlHubPort, port); }
int fSetSsdpEnable(uint8_t enable) { return set_field(&SysInfo::ssdp, enable); }

int fSetMAC(const char* mac_text) {
    if (g_store == nullptr || mac_text == nullptr) return -1;
    unsigned b[6];
    if (std::sscanf(mac_text, "%02x:%02x:%02x:%02x:%02x:%02x", &b[0], &b[1], &b[2], &b[3], &b[4], &b[5]) != 6)
        return -1;
    for (int i = 0; i < 6; ++i) g_store->info.mac[i] = static_cast<uint8_t>(b[i]);
    return SetSysInfo(kNetSection);
}

// The streaming and web servers read their ports from their own files: those
// are rewritten first, and a failed rewrite still updates the record.
int fSetRtmpPort(uint16_t port) {
    if (g_store == nullptr) return -1;
    replace_port_line(platform_path("/etc/srs.conf").c_str(), "listen", "listen\t\t%d;\n", port);
    return set_field(&SysInfo::rtmpPort, port);
}

int fSetHttpPort(uint16_t port) {
    if (g_store == nullptr) return -1;
    replace_port_line(platform_path("/opt/ipnc/www/config/lighttpd.conf").c_str(),
                      "server.port =", "server.port = %d\n", port);
    return set_field(&SysInfo::httpPort, port);
}

int fSetStreamParams(const StreamParams* params, int index) {
    if (g_store == nullptr || params == nullptr || index < 0 || index >= 4) return -1;
    return set_block(&g_store->info.stream[index], params, sizeof(StreamParams), kStreamSection);
}

int fSetAudioParams(const AudioParams* params) {
    if (g_store == nullptr || params == nullptr) return -1;
    return set_block(&g_store->info.audio, params, sizeof(AudioParams), kAudioSection);
}

int ReplaceConfigLine(const char* path, const char* prefix, const char* new_line) {
    if (path == nullptr || prefix == nullptr || new_line == nullptr) return -1;
    const std::string work = std::string(path) + ".bak";
    File in(std::fopen(path, "rb"));
    if (!in) return -1;
    File out(std::fopen(work.c_str(), "wb"));
    if (!out) return -1;

    const size_t prefix_len = std::strlen(prefix);
    char line[kLineMax];
    bool at_line_start = true;  // a line longer than 511 comes in pieces
    bool dropping = false;      // the rest of a line that was replaced
    while (std::fgets(line, sizeof line, in.get()) != nullptr) {
        const bool ends_line = std::strchr(line, '\n') != nullptr;
        if (at_line_start) {
            dropping = std::strncmp(line, prefix, prefix_len) == 0;
            if (dropping) std::fputs(new_line, out.get());
        }
        if (!dropping) std::fputs(line, out.get());
        at_line_start = ends_line;
    }
    in.reset();
    out.reset();

    const std::string command = "rm " + std::string(path) + ";mv " + work + " " + path;
    pox_system(command.c_str());
    return 0;
}

uint32_t XorChecksum(const uint8_t* data, int length) {
    if (data == nullptr || length <= 0) return 0;
    uint32_t sum = 0;
    const uint8_t* p = data;
    const uint8_t* const end = data + length;
    while (p < end && reinterpret_cast<uintptr_t>(p) % 4 != 0) sum ^= *p++;
    while (end - p >= 4) {
        sum ^= static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
               static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
        p += 4;
    }
    while (p < end) sum ^= *p++;
    return sum;
}
