// The process logger: formats a line (level mark, time, process, thread,
// source position, message), filters it and hands it to its sinks (console,
// file plug-in, log collector queue).
#pragma once

#include <cstddef>

enum : int {
    ELOG_LVL_ASSERT = 0,
    ELOG_LVL_ERROR = 1,
    ELOG_LVL_WARN = 2,
    ELOG_LVL_INFO = 3,
    ELOG_LVL_DEBUG = 4,
    ELOG_LVL_VERBOSE = 5,
};

enum : int {
    ELOG_FMT_LVL = 1 << 0,
    ELOG_FMT_TAG = 1 << 1,
    ELOG_FMT_TIME = 1 << 2,
    ELOG_FMT_P_INFO = 1 << 3,
    ELOG_FMT_T_INFO = 1 << 4,
    ELOG_FMT_DIR = 1 << 5,
    ELOG_FMT_FUNC = 1 << 6,
    ELOG_FMT_LINE = 1 << 7,
};

inline constexpr size_t ELOG_LINE_BUF_SIZE = 512;
inline constexpr size_t ELOG_FILTER_TAG_MAX_LEN = 16;
inline constexpr size_t ELOG_FILTER_KW_MAX_LEN = 16;
inline constexpr int ELOG_FILTER_TAG_LVL_MAX_NUM = 5;

// Process-wide print level, 3 until start-up reads "/opt/params/print.conf".
extern int g_print_level;

int elog_init(int print_level);
void elog_deinit();
void elog_start();
void elog_stop();
void elog_output(int level, const char* tag, const char* file, const char* func, long line,
                 const char* format, ...) __attribute__((format(printf, 6, 7)));

void elog_set_output_enabled(bool enabled);
bool elog_get_output_enabled();
void elog_output_lock_enabled(bool enabled);
void elog_console_enabled(bool enabled);
void elog_set_fmt(int level, int set);
void elog_set_filter(int level, const char* tag, const char* keyword);
void elog_set_filter_lvl(int level);
void elog_set_filter_tag(const char* tag);
void elog_set_filter_kw(const char* keyword);
void elog_set_filter_tag_lvl(const char* tag, int level);
int elog_get_filter_tag_lvl(const char* tag);
int elog_find_lvl(const char* log);
const char* elog_find_tag(const char* log, int lvl, size_t* tag_len);
void elog_assert_set_hook(void (*hook)(const char* expr, const char* func, size_t line));

size_t elog_strcpy(size_t cur_len, char* dst, const char* src);
size_t elog_cpyln(char* line, const char* log, size_t len);
void* elog_memcpy(void* dst, const void* src, size_t count);

// Reads the level of `process_name` from "/opt/params/print.conf" (or the
// given path) into g_print_level and the filter level.
void elog_load_print_level(const char* process_name, const char* path = "/opt/params/print.conf");

// ---- assertions inside the logger -------------------------------------------
// Without a hook, a failed assertion is logged at level 0 with the tag "elog"
// and the calling thread parks for good; with a hook, the hook is called and
// the utility returns a harmless result.
void elog_assert_failed(const char* expr, const char* func, long line);
#define ELOG_ASSERT(expr)                                           \
    do {                                                            \
        if (!(expr)) elog_assert_failed(#expr, __func__, __LINE__); \
    } while (0)

// ---- port: sinks, lock and the pieces of a line -----------------------------
// Sink configuration, read by elog_init. The queue sink is on by default with
// the log collector's key; the file sink is off until a name is given.
void elog_port_set_queue(bool enabled, int key);
void elog_port_set_file(const char* name, size_t max_size, int max_rotate);
int elog_port_init();
void elog_port_deinit();
void elog_port_output(const char* log, size_t size);
void elog_port_output_lock();
void elog_port_output_unlock();
// The line buffer: ELOG_LINE_BUF_SIZE bytes of text with room for the queue
// header in front, so that a line goes to the queue without a copy. The
// header byte carries the level of the line.
char* elog_port_line_buf();
void elog_port_set_header(unsigned char header);
const char* elog_port_get_time();
const char* elog_port_get_p_info();
const char* elog_port_get_t_info();
// Id of the queue the sink sends to, -1 when the sink is closed.
int elog_port_queue_id();
