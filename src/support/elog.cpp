// The logger core: filters, line layout and the copy utilities. The sinks
// and the lock live in elog_port.cpp.
#include "support/elog.h"

#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "support/log.h"

int g_print_level = 3;

namespace {
// Whether standard output and standard error are terminals: asked once each
// (-1 until then).
int g_terminal[3] = {-1, -1, -1};
}  // namespace

const char* tint(Tint t, int fd) {
    static constexpr const char* kEscapes[] = {"\033[0;31m", "\033[1;31m", "\033[0;35m",
                                               "\033[0;34m", "\033[0;36m", "\033[0m"};
    if (fd < 1 || fd > 2) return "";
    if (g_terminal[fd] < 0) g_terminal[fd] = isatty(fd) ? 1 : 0;
    return g_terminal[fd] != 0 ? kEscapes[static_cast<int>(t)] : "";
}

void tint_force(int fd, int on) {
    if (fd >= 1 && fd <= 2) g_terminal[fd] = on;
}

namespace {

constexpr std::array<std::string_view, ELOG_LVL_VERBOSE + 1> kLevelMark = {"[A]", "[E]", "[W]",
                                                                           "[I]", "[D]", "[V]"};

// Line end; the line always has room for it and for a terminating NUL.
constexpr std::string_view kNewline = "\n";
constexpr size_t kTextLimit = ELOG_LINE_BUF_SIZE - kNewline.size() - 1;

struct TagLevel {
    char tag[ELOG_FILTER_TAG_MAX_LEN + 1];
    int level;
    bool in_use;
};

struct Filter {
    int level = ELOG_LVL_VERBOSE;
    char tag[ELOG_FILTER_TAG_MAX_LEN + 1] = {};
    char keyword[ELOG_FILTER_KW_MAX_LEN + 1] = {};
    std::array<TagLevel, ELOG_FILTER_TAG_LVL_MAX_NUM> tag_levels{};
};

struct Logger {
    Filter filter;
    std::array<int, ELOG_LVL_VERBOSE + 1> fmt{};
    bool output_enabled = false;
    bool lock_enabled = true;
    bool initialised = false;
};

Logger g_log;
void (*g_assert_hook)(const char*, const char*, size_t) = nullptr;
// Set while this thread is inside elog_output, so that an assertion raised by
// a sink does not rebuild the line it is sending.
thread_local bool t_in_output = false;

bool has_fmt(int level, int bit) { return (g_log.fmt[level] & bit) != 0; }

void copy_bounded(char* dst, size_t capacity, const char* src) {
    if (!src) src = "";
    size_t n = strnlen(src, capacity - 1);
    std::memcpy(dst, src, n);
    dst[n] = '\0';
}

// Appends to the line, never past kTextLimit.
class LineWriter {
public:
    explicit LineWriter(char* buf) : buf_(buf) {}
    void put(std::string_view s) {
        size_t n = std::min(s.size(), kTextLimit - len_);
        std::memcpy(buf_ + len_, s.data(), n);
        len_ += n;
    }
    void vformat(const char* format, va_list args) {
        size_t room = kTextLimit - len_;
        int n = std::vsnprintf(buf_ + len_, room + 1, format, args);
        if (n > 0) len_ += std::min(static_cast<size_t>(n), room);
    }
    size_t size() const { return len_; }
    // Ends the line: exactly one line end, whether or not the message brought one.
    size_t finish() {
        if (len_ > 0 && buf_[len_ - 1] == '\n') --len_;
        std::memcpy(buf_ + len_, kNewline.data(), kNewline.size());
        len_ += kNewline.size();
        buf_[len_] = '\0';
        return len_;
    }

private:
    char* buf_;
    size_t len_ = 0;
};

void emit(int level, const char* tag, const char* file, const char* func, long line, const char* format,
          va_list args) {
    char* buf = elog_port_line_buf();
    LineWriter w(buf);
    if (has_fmt(level, ELOG_FMT_LVL)) w.put(kLevelMark[level]);
    if (has_fmt(level, ELOG_FMT_TAG)) {
        if (has_fmt(level, ELOG_FMT_LVL)) w.put("/");
        w.put(tag);
    }
    if (w.size() > 0) w.put(" ");

    // Time, process and thread: "[time pid:.. tid:..] "
    const bool any_info =
        has_fmt(level, ELOG_FMT_TIME) || has_fmt(level, ELOG_FMT_P_INFO) || has_fmt(level, ELOG_FMT_T_INFO);
    if (any_info) {
        w.put("[");
        const char* sep = "";
        if (has_fmt(level, ELOG_FMT_TIME)) {
            w.put(elog_port_get_time());
            sep = " ";
        }
        if (has_fmt(level, ELOG_FMT_P_INFO)) {
            w.put(sep);
            w.put(elog_port_get_p_info());
            sep = " ";
        }
        if (has_fmt(level, ELOG_FMT_T_INFO)) {
            w.put(sep);
            w.put(elog_port_get_t_info());
        }
        w.put("] ");
    }

    // Source position: "(file func:line) "
    const bool any_pos =
        has_fmt(level, ELOG_FMT_DIR) || has_fmt(level, ELOG_FMT_FUNC) || has_fmt(level, ELOG_FMT_LINE);
    if (any_pos) {
        w.put("(");
        const char* sep = "";
        if (has_fmt(level, ELOG_FMT_DIR)) {
            w.put(file ? file : "");
            sep = " ";
        }
        if (has_fmt(level, ELOG_FMT_FUNC)) {
            w.put(sep);
            w.put(func ? func : "");
            sep = ":";
        }
        if (has_fmt(level, ELOG_FMT_LINE)) {
            w.put(has_fmt(level, ELOG_FMT_FUNC) ? ":" : sep);
            char num[24];
            std::snprintf(num, sizeof(num), "%ld", line);
            w.put(num);
        }
        w.put(") ");
    }

    w.vformat(format ? format : "", args);
    size_t len = w.finish();

    if (g_log.filter.keyword[0] != '\0' && !std::strstr(buf, g_log.filter.keyword)) return;
    elog_port_set_header(static_cast<unsigned char>(level));
    elog_port_output(buf, len);
}

}  // namespace

int elog_init(int print_level) {
    elog_port_init();
    g_log.filter = Filter{};
    g_log.lock_enabled = true;
    for (int lvl = ELOG_LVL_ASSERT; lvl <= ELOG_LVL_VERBOSE; ++lvl)
        g_log.fmt[lvl] = lvl <= ELOG_LVL_WARN
                             ? ELOG_FMT_LVL | ELOG_FMT_TIME | ELOG_FMT_P_INFO | ELOG_FMT_FUNC | ELOG_FMT_LINE
                             : ELOG_FMT_LVL | ELOG_FMT_TIME | ELOG_FMT_P_INFO;
    elog_set_filter_lvl(print_level);
    g_log.initialised = true;
    elog_start();
    return 0;
}

void elog_deinit() {
    if (!g_log.initialised) return;
    elog_stop();
    elog_port_deinit();
    g_log.initialised = false;
}

void elog_start() { g_log.output_enabled = true; }
void elog_stop() { g_log.output_enabled = false; }
void elog_set_output_enabled(bool enabled) { g_log.output_enabled = enabled; }
bool elog_get_output_enabled() { return g_log.output_enabled; }
void elog_output_lock_enabled(bool enabled) { g_log.lock_enabled = enabled; }

void elog_set_fmt(int level, int set) {
    ELOG_ASSERT(level >= 0 && level <= ELOG_LVL_VERBOSE);
    if (level < 0 || level > ELOG_LVL_VERBOSE) return;
    g_log.fmt[level] = set;
}

void elog_set_filter(int level, const char* tag, const char* keyword) {
    elog_set_filter_lvl(level);
    elog_set_filter_tag(tag);
    elog_set_filter_kw(keyword);
}

void elog_set_filter_lvl(int level) {
    ELOG_ASSERT(level >= 0 && level <= ELOG_LVL_VERBOSE);
    if (level < 0 || level > ELOG_LVL_VERBOSE) return;
    g_log.filter.level = level;
}

void elog_set_filter_tag(const char* tag) { copy_bounded(g_log.filter.tag, sizeof(g_log.filter.tag), tag); }

void elog_set_filter_kw(const char* keyword) {
    copy_bounded(g_log.filter.keyword, sizeof(g_log.filter.keyword), keyword);
}

// A tag set back to verbose needs no entry and frees its slot; a new tag
// takes the first free slot and is ignored when all five are taken.
void elog_set_filter_tag_lvl(const char* tag, int level) {
    ELOG_ASSERT(tag);
    ELOG_ASSERT(level >= 0 && level <= ELOG_LVL_VERBOSE);
    if (!tag || level < 0 || level > ELOG_LVL_VERBOSE) return;
    TagLevel* free_slot = nullptr;
    for (auto& e : g_log.filter.tag_levels) {
        if (e.in_use && std::strncmp(e.tag, tag, ELOG_FILTER_TAG_MAX_LEN) == 0) {
            if (level == ELOG_LVL_VERBOSE)
                e = TagLevel{};
            else
                e.level = level;
            return;
        }
        if (!e.in_use && !free_slot) free_slot = &e;
    }
    if (level == ELOG_LVL_VERBOSE || !free_slot) return;
    copy_bounded(free_slot->tag, sizeof(free_slot->tag), tag);
    free_slot->level = level;
    free_slot->in_use = true;
}

int elog_get_filter_tag_lvl(const char* tag) {
    ELOG_ASSERT(tag);
    if (!tag) return ELOG_LVL_VERBOSE;
    for (const auto& e : g_log.filter.tag_levels)
        if (e.in_use && std::strncmp(e.tag, tag, ELOG_FILTER_TAG_MAX_LEN) == 0) return e.level;
    return ELOG_LVL_VERBOSE;
}

void elog_output(int level, const char* tag, const char* file, const char* func, long line,
                 const char* format, ...) {
    ELOG_ASSERT(level <= ELOG_LVL_VERBOSE);
    if (level < 0 || level > ELOG_LVL_VERBOSE) return;
    if (!tag) tag = "";
    if (!g_log.output_enabled || level > g_log.filter.level) return;
    if (level > elog_get_filter_tag_lvl(tag)) return;
    if (g_log.filter.tag[0] != '\0' && !std::strstr(tag, g_log.filter.tag)) return;
    if (t_in_output) return;  // a sink reporting on itself: never recurse into the sinks

    const bool lock = g_log.lock_enabled;
    if (lock) elog_port_output_lock();
    t_in_output = true;
    va_list args;
    va_start(args, format);
    emit(level, tag, file, func, line, format, args);
    va_end(args);
    t_in_output = false;
    if (lock) elog_port_output_unlock();
}

void elog_assert_set_hook(void (*hook)(const char*, const char*, size_t)) { g_assert_hook = hook; }

void elog_assert_failed(const char* expr, const char* func, long line) {
    if (g_assert_hook) {
        g_assert_hook(expr, func, static_cast<size_t>(line));
        return;
    }
    if (t_in_output) {
        // The failure is inside a sink: the line buffer is in use, say it directly.
        std::fprintf(stderr, "(%s) has assert failed at %s:%ld.\n", expr, func, line);
    } else {
        elog_output(ELOG_LVL_ASSERT, "elog", __FILE_NAME__, func, line, "(%s) has assert failed at %s:%ld.",
                    expr, func, line);
    }
    for (;;) ::pause();
}

int elog_find_lvl(const char* log) {
    ELOG_ASSERT(log);
    if (!log) return -1;
    for (int lvl = ELOG_LVL_ASSERT; lvl <= ELOG_LVL_VERBOSE; ++lvl)
        if (std::strncmp(log, kLevelMark[lvl].data(), kLevelMark[lvl].size()) == 0) return lvl;
    return -1;
}

const char* elog_find_tag(const char* log, int lvl, size_t* tag_len) {
    ELOG_ASSERT(log);
    ELOG_ASSERT(tag_len);
    ELOG_ASSERT(lvl >= 0 && lvl <= ELOG_LVL_VERBOSE);
    if (!log || !tag_len || lvl < 0 || lvl > ELOG_LVL_VERBOSE || !has_fmt(lvl, ELOG_FMT_TAG)) return nullptr;
    const char* start = log;
    if (has_fmt(lvl, ELOG_FMT_LVL)) {
        const auto& mark = kLevelMark[lvl];
        if (std::strncmp(log, mark.data(), mark.size()) != 0 || log[mark.size()] != '/') return nullptr;
        start = log + mark.size() + 1;
    }
    const char* end = std::strchr(start, ' ');
    if (!end) return nullptr;
    *tag_len = static_cast<size_t>(end - start);
    return start;
}

size_t elog_strcpy(size_t cur_len, char* dst, const char* src) {
    ELOG_ASSERT(dst);
    ELOG_ASSERT(src);
    if (!dst || !src) return 0;
    size_t n = 0;
    while (src[n] != '\0' && cur_len + n < ELOG_LINE_BUF_SIZE) {
        dst[n] = src[n];
        ++n;
    }
    return n;
}

size_t elog_cpyln(char* line, const char* log, size_t len) {
    ELOG_ASSERT(line);
    ELOG_ASSERT(log);
    if (!line || !log) return 0;
    size_t n = 0;
    while (n < len && log[n] != '\0') {
        line[n] = log[n];
        if (log[n++] == '\n') break;
    }
    return n;
}

void* elog_memcpy(void* dst, const void* src, size_t count) {
    ELOG_ASSERT(dst);
    ELOG_ASSERT(src);
    if (!dst || !src) return dst;
    return std::memmove(dst, src, count);
}

void elog_load_print_level(const char* process_name, const char* path) {
    if (!process_name || !*process_name || !path) return;
    FILE* fp = std::fopen(path, "r");
    if (!fp) return;
    struct Rule {
        std::string_view word;
        int print_level;
        int filter_level;
    };
    // "verbose" opens the logger fully but keeps the console quiet.
    static constexpr std::array<Rule, 5> kRules = {{
        {"debug", 4, 4},
        {"info", 3, 3},
        {"warn", 2, 2},
        {"error", 1, 1},
        {"verbose", 1, 5},
    }};
    char line[256];
    while (std::fgets(line, sizeof(line), fp)) {
        if (!std::strstr(line, process_name)) continue;
        for (const auto& r : kRules) {
            if (std::strstr(line, r.word.data())) {
                g_print_level = r.print_level;
                elog_set_filter_lvl(r.filter_level);
                break;
            }
        }
        break;
    }
    std::fclose(fp);
}
