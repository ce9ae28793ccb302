// Port of the logger to this system: the output lock, the sinks (console,
// file plug-in, log collector queue) and the time, process and thread pieces.
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>

#include "records/records.h"
#include "support/elog.h"
#include "support/plugins/file/elog_file.h"

namespace {

constexpr long kLogMsgType = 1;
constexpr size_t kLogHeaderSize = offsetof(LogMsg, text) - offsetof(LogMsg, header);  // 5
static_assert(sizeof(LogMsg::text) == ELOG_LINE_BUF_SIZE);

struct PortConfig {
    bool queue_on = true;
    int queue_key = kLogMsgKey;
    std::string file_name;  // empty: no log file
    size_t file_max_size = 0;
    int file_max_rotate = 0;
};

PortConfig g_cfg;
int g_qid = -1;
bool g_file_on = false;
// Recursive so that an assertion raised inside a sink can still log.
std::recursive_mutex g_output_mutex;
LogMsg g_line{};

// Lines the collector could not take: counted, and reported on standard
// output at most once a minute so that a stalled collector cannot flood it.
unsigned long g_dropped = 0;
time_t g_dropped_told = 0;
constexpr time_t kDropReportGap = 60;

void count_drop(const char* reason) {
    ++g_dropped;
    const time_t now = ::time(nullptr);
    if (g_dropped_told != 0 && now - g_dropped_told < kDropReportGap) return;
    g_dropped_told = now;
    std::printf("%s\n%lu log lines dropped\n", reason, g_dropped);
    std::fflush(stdout);
}

// Sends one line to the collector queue, refusing when the queue is more than
// half full (the same rule as for the command channels, so the collector
// never starves the camera's own traffic). The send never blocks: with
// several writers the room seen a moment ago may be gone, and a full queue
// costs the line, not the request.
void queue_send(const char* log, size_t size) {
    LogMsg local;
    LogMsg* msg = &g_line;
    size = std::min(size, sizeof(g_line.text));
    if (log != g_line.text) {
        local.header = g_line.header;
        std::memcpy(local.text, log, size);
        msg = &local;
    }
    msg->type = kLogMsgType;
    msg->length = static_cast<uint32_t>(size);

    struct msqid_ds ds {};
    if (::msgctl(g_qid, IPC_STAT, &ds) != 0) {
        count_drop("msgctl error.");
        return;
    }
    const unsigned long queued = ds.msg_cbytes;
    if (ds.msg_qbytes < 2 * queued || ds.msg_qbytes < queued + kLogHeaderSize + size ||
        ::msgsnd(g_qid, msg, size + kLogHeaderSize, IPC_NOWAIT) != 0)
        count_drop("msg buffer overflow.");
}

bool g_console_on = false;

void copy_piece(char* dst, size_t capacity, const char* src) {
    size_t n = strnlen(src, capacity - 1);
    std::memcpy(dst, src, n);
    dst[n] = '\0';
}

}  // namespace

void elog_port_set_queue(bool enabled, int key) {
    g_cfg.queue_on = enabled;
    g_cfg.queue_key = key;
}

void elog_port_set_file(const char* name, size_t max_size, int max_rotate) {
    g_cfg.file_name = name ? name : "";
    g_cfg.file_max_size = max_size;
    g_cfg.file_max_rotate = max_rotate;
}

int elog_port_init() {
    if (!g_cfg.file_name.empty())
        g_file_on = elog_file_init(g_cfg.file_name.c_str(), g_cfg.file_max_size, g_cfg.file_max_rotate) == 0;
    if (g_cfg.queue_on) {
        g_qid = ::msgget(g_cfg.queue_key, 0);
        if (g_qid < 0) {
            g_qid = ::msgget(g_cfg.queue_key, IPC_CREAT | 0666);
            std::printf("msg queue %d isn't exist\n", g_cfg.queue_key);
            std::fflush(stdout);
        }
    }
    return 0;
}

void elog_port_deinit() {
    std::lock_guard lock(g_output_mutex);
    if (g_file_on) elog_file_deinit();
    g_file_on = false;
    g_qid = -1;  // the queue belongs to the collector: only let go of it
}

void elog_port_output(const char* log, size_t size) {
    if (!log) return;
    if (g_console_on) {
        std::fwrite(log, 1, size, stdout);
        std::fflush(stdout);
    }
    if (g_file_on) elog_file_write(log, size);
    if (g_qid >= 0) queue_send(log, size);
}

void elog_console_enabled(bool enabled) { g_console_on = enabled; }

void elog_port_output_lock() { g_output_mutex.lock(); }
void elog_port_output_unlock() { g_output_mutex.unlock(); }

char* elog_port_line_buf() { return g_line.text; }
void elog_port_set_header(unsigned char header) { g_line.header = header; }
int elog_port_queue_id() { return g_qid; }

const char* elog_port_get_time() {
    static thread_local char text[32 + 1];
    struct timeval tv {};
    ::gettimeofday(&tv, nullptr);
    struct tm tm {};
    ::localtime_r(&tv.tv_sec, &tm);
    size_t n = std::strftime(text, sizeof(text), "%Y-%m-%d %T", &tm);
    std::snprintf(text + n, sizeof(text) - n, " %06d", static_cast<int>(tv.tv_usec));
    return text;
}

// Process and thread pieces are at most 9 characters, like their slots in the line.
const char* elog_port_get_p_info() {
    static thread_local char text[9 + 1];
    char full[32];
    std::snprintf(full, sizeof(full), "pid:%04d", static_cast<int>(::getpid()));
    copy_piece(text, sizeof(text), full);
    return text;
}

const char* elog_port_get_t_info() {
    static thread_local char text[9 + 1];
    char full[32];
    std::snprintf(full, sizeof(full), "tid:%04ld", static_cast<long>(::gettid()));
    copy_piece(text, sizeof(text), full);
    return text;
}
