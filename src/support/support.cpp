// Shell, process and storage utilities.
#include "support/support.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "support/log.h"
#include "support/owners.h"

#ifndef BUILD_NUMBER
#define BUILD_NUMBER ""
#endif

namespace {

constexpr long long kLogFileLimit = 2097152;  // 2 MiB
constexpr size_t kIniLineMax = 1024;

// While it lives, SIGCHLD has its default action, so that a child-exit
// handler installed elsewhere cannot reap the shell before system() or
// pclose() collects its status.
class DefaultChildSignal {
public:
    DefaultChildSignal() {
        struct sigaction dfl {};
        dfl.sa_handler = SIG_DFL;
        sigemptyset(&dfl.sa_mask);
        saved_ = ::sigaction(SIGCHLD, &dfl, &old_) == 0;
    }
    ~DefaultChildSignal() {
        if (saved_) ::sigaction(SIGCHLD, &old_, nullptr);
    }
    DefaultChildSignal(const DefaultChildSignal&) = delete;
    DefaultChildSignal& operator=(const DefaultChildSignal&) = delete;

private:
    struct sigaction old_ {};
    bool saved_ = false;
};

std::string format_cmd(const char* format, const char* arg) {
    int n = std::snprintf(nullptr, 0, format, arg);
    if (n < 0) return {};
    std::string cmd(static_cast<size_t>(n) + 1, '\0');
    std::snprintf(cmd.data(), cmd.size(), format, arg);
    cmd.resize(static_cast<size_t>(n));
    return cmd;
}

void write_timestamp(FILE* fp) {
    struct timeval tv {};
    ::gettimeofday(&tv, nullptr);
    std::fprintf(fp, "[%d.%06d]", static_cast<int>(tv.tv_sec), static_cast<int>(tv.tv_usec));
}

// The last non-empty line of `text`.
std::string_view last_line(std::string_view text) {
    while (!text.empty() && text.back() == '\n') text.remove_suffix(1);
    size_t nl = text.rfind('\n');
    return nl == std::string_view::npos ? text : text.substr(nl + 1);
}

// Layout shared by hex_print and hex_dump: 16 bytes a line, a line end after
// the last byte too.
template <typename Byte, typename End>
void hex_layout(const uint8_t* data, int count, Byte on_byte, End on_line_end) {
    for (int i = 0; i < count; ++i) {
        on_byte(data[i]);
        if ((i + 1) % 16 == 0 || i + 1 == count) on_line_end();
    }
}

// ---- section-and-key files ------------------------------------------------

struct IniLine {
    enum class Kind { Other, Section, Entry } kind = Kind::Other;
    std::string_view name;   // section name or key
    std::string_view value;  // entry value
};

constexpr std::string_view kBlanks = " \t\r\n";

std::string_view trim(std::string_view s) {
    size_t b = s.find_first_not_of(kBlanks);
    if (b == std::string_view::npos) return {};
    size_t e = s.find_last_not_of(kBlanks);
    return s.substr(b, e - b + 1);
}

IniLine classify(std::string_view raw) {
    IniLine out;
    if (raw.size() > kIniLineMax) return out;  // too long to be ours: kept, never matched
    std::string_view s = trim(raw);
    if (s.size() >= 2 && s.front() == '[' && s.back() == ']') {
        out.kind = IniLine::Kind::Section;
        out.name = s.substr(1, s.size() - 2);
        return out;
    }
    size_t eq = s.find('=');
    if (eq == std::string_view::npos) return out;
    std::string_view key = trim(s.substr(0, eq));
    if (key.empty()) return out;
    out.kind = IniLine::Kind::Entry;
    out.name = key;
    out.value = trim(s.substr(eq + 1));
    return out;
}

// Whole file as lines without their line ends; false when it cannot be read.
bool read_lines(const char* path, std::vector<std::string>& lines) {
    FilePtr fp(std::fopen(path, "r"));
    if (!fp) return false;
    char* buf = nullptr;
    size_t cap = 0;
    ssize_t n;
    while ((n = ::getline(&buf, &cap, fp.get())) >= 0) {
        std::string_view line(buf, static_cast<size_t>(n));
        if (!line.empty() && line.back() == '\n') line.remove_suffix(1);
        lines.emplace_back(line);
    }
    std::free(buf);
    return true;
}

struct IniScan {
    bool readable = false;
    bool key_found = false;
    std::string value;
};

// Fed the lines in file order, tells which of them is an entry of the key
// inside the section.
class KeyInSection {
public:
    KeyInSection(std::string_view section, std::string_view key) : section_(section), key_(key) {}
    bool operator()(const IniLine& l) {
        if (l.kind == IniLine::Kind::Section) inside_ = l.name == section_;
        return inside_ && l.kind == IniLine::Kind::Entry && l.name == key_;
    }

private:
    std::string_view section_;
    std::string_view key_;
    bool inside_ = false;
};

IniScan ini_scan(const std::vector<std::string>& lines, std::string_view section, std::string_view key) {
    IniScan scan;
    scan.readable = true;
    KeyInSection is_key(section, key);
    for (const auto& raw : lines) {
        const IniLine l = classify(raw);
        if (is_key(l)) {
            scan.key_found = true;
            scan.value = l.value;
            break;
        }
    }
    return scan;
}

bool args_ok(const char* a, const char* b) { return a && b && *a && *b; }

// Names and values that would break the line structure of the file.
bool bad_text(std::string_view s, std::string_view forbidden) {
    return s.find_first_of(forbidden) != std::string_view::npos;
}

int sync_file(FILE* fp) {
    if (std::fflush(fp) != 0) return -1;
    int fd = fileno(fp);
    if (::fsync(fd) != 0) return -1;
    ::syncfs(fd);
    return 0;
}

// Replaces the file by `lines` (each written with its line end): through a
// temporary beside the file and a rename, so the file is never half written;
// every failure removes the temporary again. Lines are written byte for
// byte, NUL bytes included. The file keeps its mode (a new one gets 0644).
int ini_write_lines(const char* path, const std::vector<std::string_view>& lines) {
    std::string tmp = std::string(path) + ".XXXXXX";
    const int fd = ::mkstemp(tmp.data());
    if (fd < 0) return -EAGAIN;
    struct stat st {};
    ::fchmod(fd, ::stat(path, &st) == 0 ? st.st_mode & 07777 : 0644);
    FilePtr fp(::fdopen(fd, "w"));
    if (!fp) {
        ::close(fd);
        ::unlink(tmp.c_str());
        return -EAGAIN;
    }
    bool written = true;
    for (const auto line : lines)
        written = written && std::fwrite(line.data(), 1, line.size(), fp.get()) == line.size() &&
                  std::fputc('\n', fp.get()) != EOF;
    written = written && sync_file(fp.get()) == 0;
    const bool closed = std::fclose(fp.release()) == 0;
    if (!written || !closed || ::rename(tmp.c_str(), path) != 0) {
        ::unlink(tmp.c_str());
        LOG_ERR("ini rewrite of %s failed\n", path);
        return -EAGAIN;
    }
    return 0;
}

// A missing key is appended with its section header at the end, even when
// the section exists already: readers find it in the second block. A last
// line without its line end gets one, so the header never joins it.
int ini_append_section(const char* path, const std::vector<std::string>& lines, const char* section,
                       const char* key, const char* value) {
    std::vector<std::string_view> out(lines.begin(), lines.end());
    const std::string header = std::string("[") + section + "]";
    const std::string entry = std::string(key) + "=" + value;
    out.push_back(header);
    out.push_back(entry);
    return ini_write_lines(path, out);
}

// Rewrites the file with the key's line in that section replaced (value
// null: removed), every other line kept.
int ini_rewrite(const char* path, const std::vector<std::string>& lines, std::string_view section,
                std::string_view key, const char* value) {
    std::vector<std::string_view> out;
    out.reserve(lines.size());
    const std::string entry = value ? std::string(key) + "=" + value : std::string();
    KeyInSection is_key(section, key);
    for (const auto& raw : lines) {
        if (is_key(classify(raw))) {
            if (value) out.push_back(entry);
            continue;
        }
        out.push_back(raw);
    }
    return ini_write_lines(path, out);
}

}  // namespace

namespace {
int (*g_shell)(const char* command) = nullptr;
}

void pox_system_set_runner(int (*runner)(const char* command)) { g_shell = runner; }

int pox_system(const char* command) {
    if (!command) {
        LOG_ERR("Exec %s failed!\n", "NULL");
        return -1;
    }
    if (g_shell != nullptr) return g_shell(command);
    int status;
    {
        DefaultChildSignal guard;
        status = std::system(command);
    }
    if (status == -1) LOG_ERR("Exec %s failed!\n", command);
    return status;
}

int pox_popen(const char* command, char* out, size_t size) {
    if (out && size > 0) out[0] = '\0';
    if (!command) return -1;
    DefaultChildSignal guard;
    FILE* fp = ::popen(command, "r");
    if (!fp) {
        LOG_ERR("Exec %s failed!\n", command);
        return -1;
    }
    size_t len = 0;
    char buf[512];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof(buf), fp)) > 0) {
        if (out && size > 0 && len < size - 1) {
            size_t take = std::min(n, size - 1 - len);
            std::memcpy(out + len, buf, take);
            len += take;
            out[len] = '\0';
        }
    }
    return ::pclose(fp);
}

void process_info_print(const char* program_path) {
    const char* name = nullptr;
    if (program_path) {
        const char* slash = std::strrchr(program_path, '/');
        name = slash ? slash + 1 : program_path;
        if (!*name) name = nullptr;
    }
    if (!name) name = "NULL";
    const std::string_view build = BUILD_NUMBER;
    const std::string version = std::string(kWebVersion) + "." + (build.empty() ? "1" : std::string(build));
    const int pid = static_cast<int>(::getpid());
    if (g_print_level >= 3) {
        std::fprintf(stderr, "%s%s\n%s", tint(Tint::red), name, tint(Tint::end));
        std::fprintf(stderr, "%s%s %s\t%s\t%d\n%s", tint(Tint::magenta), __DATE__, __TIME__, version.c_str(),
                     pid, tint(Tint::end));
    }
    elog_output(ELOG_LVL_INFO, "NO_TAG", __FILE_NAME__, __func__, __LINE__, "%s\n", name);
    elog_output(ELOG_LVL_INFO, "NO_TAG", __FILE_NAME__, __func__, __LINE__, "%s %s\t%s\t%d\n", __DATE__,
                __TIME__, version.c_str(), pid);
}

int get_process_name(char* out, size_t size) {
    if (!out || size == 0) return -1;
    char cmd[128];
    std::snprintf(cmd, sizeof(cmd), "cat /proc/%1d/status | grep Name: | awk '{print $2}'",
                  static_cast<int>(::getpid()));
    char text[256];
    if (pox_popen(cmd, text, sizeof(text)) == -1 || text[0] == '\0') {
        out[0] = '\0';
        return -1;
    }
    size_t n = std::strcspn(text, "\n");
    n = std::min(n, size - 1);
    std::memcpy(out, text, n);
    out[n] = '\0';
    return 0;
}

int process_is_running(const char* name) {
    if (!name || !*name) return 0;
    std::string cmd = format_cmd("ps -ef | grep -w \"%s\" | grep -v \"grep\"", name);
    std::string text(16384, '\0');
    if (pox_popen(cmd.c_str(), text.data(), text.size()) == -1) return 0;
    return std::strstr(text.c_str(), name) ? 1 : 0;
}

int process_get_pid(const char* name) {
    if (!name || !*name) return -1;
    std::string cmd = format_cmd("ps -ef | grep -w \"%s\" | grep -v \"grep\" | awk '{print $1}'", name);
    std::string text(16384, '\0');
    if (pox_popen(cmd.c_str(), text.data(), text.size()) == -1) return -1;
    std::string last(last_line(text.c_str()));
    char* end = nullptr;
    errno = 0;
    long pid = std::strtol(last.c_str(), &end, 10);
    if (last.empty() || end == last.c_str() || errno != 0 || pid <= 0) return -1;
    return static_cast<int>(pid);
}

int hex_print(const uint8_t* data, int count) {
    if (g_print_level < 4) return g_print_level;
    if (!data || count <= 0) return 0;
    std::string row;
    hex_layout(
        data, count,
        [&](uint8_t b) {
            std::fprintf(stderr, "%s%02x  %s", tint(Tint::blue), b, tint(Tint::end));
            char cell[8];
            std::snprintf(cell, sizeof(cell), "%02x  ", b);
            row += cell;
        },
        [&] {
            std::fputc('\n', stderr);
            elog_output(ELOG_LVL_INFO, "NO_TAG", __FILE_NAME__, __func__, __LINE__, "%s\n", row.c_str());
            row.clear();
        });
    return count;
}

int hex_dump(const uint8_t* data, int count) {
    if (!data || count <= 0) return 0;
    hex_layout(
        data, count, [](uint8_t b) { std::printf("%s%02x  %s", tint(Tint::blue, 1), b, tint(Tint::end, 1)); },
        [] { std::putchar('\n'); });
    std::fflush(stdout);
    return count;
}

void print_timestamp() {
    struct timeval tv {};
    ::gettimeofday(&tv, nullptr);
    std::fprintf(stderr, "%s[%d.%06d] %s", tint(Tint::bold_red), static_cast<int>(tv.tv_sec),
                 static_cast<int>(tv.tv_usec), tint(Tint::end));
}

int log_file_limit(const char* path) {
    if (!path) return 0;
    struct stat st {};
    if (::stat(path, &st) == 0 && st.st_size > kLogFileLimit) {
        // The previous .bak is overwritten.
        std::string cmd = "mv  " + std::string(path) + "  " + path + ".bak";
        std::system(cmd.c_str());
    }
    return 0;
}

int log_append_hex(const char* path, const uint8_t* data, int count, const char* label) {
    if (!path) return -1;
    log_file_limit(path);
    FILE* fp = std::fopen(path, "ab+");
    if (!fp) return -1;
    write_timestamp(fp);
    if (label) std::fprintf(fp, "%s:", label);
    for (int i = 0; data && i < count; ++i) std::fprintf(fp, "%02x  ", data[i]);
    std::fputc('\n', fp);
    return std::fclose(fp);
}

int log_append_text(const char* path, const char* text, int length, const char* label) {
    if (!path) return -1;
    log_file_limit(path);
    FILE* fp = std::fopen(path, "a+");
    if (!fp) return -1;
    write_timestamp(fp);
    std::fprintf(fp, "%s:\n", label ? label : "");
    size_t n = text && length > 0 ? strnlen(text, static_cast<size_t>(length)) : 0;
    if (n > 0) std::fwrite(text, 1, n, fp);
    if (n == 0 || text[n - 1] != '\n') std::fputc('\n', fp);
    return std::fclose(fp);
}

int log_append_line(const char* path, const char* text) {
    if (!path) return -1;
    log_file_limit(path);
    FILE* fp = std::fopen(path, "a+");
    if (!fp) return -1;
    std::fprintf(fp, "%s\n", text ? text : "");
    return std::fclose(fp);
}

int file_in_use(const char* path) {
    if (!path) return -1;
    std::string cmd = format_cmd("fuser %s", path) + " 2>/dev/null";
    char text[256];
    int status = pox_popen(cmd.c_str(), text, sizeof(text));
    if (status == -1) return -1;
    // fuser exits 127 from the shell when it is not installed at all.
    if (WIFEXITED(status) && WEXITSTATUS(status) == 127) return -1;
    return std::strspn(text, " \t\n") < std::strlen(text) ? 1 : 0;
}

long file_read_text(const char* path, char* buffer, size_t size) {
    if (path == nullptr || buffer == nullptr || size == 0) return -1;
    FilePtr fp(std::fopen(path, "r"));
    if (!fp) return -1;
    const size_t n = std::fread(buffer, 1, size - 1, fp.get());
    buffer[n] = '\0';
    return static_cast<long>(n);
}

int daemonize() {
    std::fflush(nullptr);  // nothing buffered gets written twice
    pid_t pid = ::fork();
    if (pid < 0) return -1;
    if (pid > 0) std::exit(0);
    return ::setsid() < 0 ? -1 : 0;
}

long long free_space_check(const char* path) {
    struct statvfs st {};
    if (!path || ::statvfs(path, &st) != 0) {
        LOG_ERR("statvfs error.\n");
        return -1;
    }
    return static_cast<long long>(st.f_bavail) * static_cast<long long>(st.f_frsize);
}

// A queue more than half full counts as full, to leave room for replies.
int msg_size_check(int qid, int size) {
    struct msqid_ds ds {};
    if (::msgctl(qid, IPC_STAT, &ds) != 0) {
        LOG_ERR("msgctl error.\n");
        return -1;
    }
    const unsigned long long limit = ds.msg_qbytes;
    const unsigned long long queued = ds.msg_cbytes;
    const unsigned long long wanted = size > 0 ? static_cast<unsigned long long>(size) : 0;
    if (limit >= 2 * queued && limit >= queued + wanted) return 0;
    LOG_ERR("msg buffer overflow.\n");
    return -1;
}

// ---- section-and-key files ------------------------------------------------

int ini_get_value(const char* path, const char* section, const char* key, char* out, size_t out_size) {
    if (!path || !section || !key || !out || out_size == 0) return -ECHILD;
    out[0] = '\0';
    std::vector<std::string> lines;
    if (!read_lines(path, lines)) return -ECHILD;
    IniScan scan = ini_scan(lines, section, key);
    if (!scan.key_found) return -ENOENT;
    size_t n = std::min(scan.value.size(), out_size - 1);
    std::memcpy(out, scan.value.data(), n);
    out[n] = '\0';
    return 1;
}

int ini_set_value(const char* path, const char* section, const char* key, const char* value) {
    if (!path || !args_ok(section, key)) return -ECHILD;
    if (bad_text(section, "]\r\n") || bad_text(key, "=[\r\n") || (value && bad_text(value, "\r\n")))
        return -ECHILD;
    std::vector<std::string> lines;
    if (!read_lines(path, lines)) {
        // A file that is not there yet is an empty one; one we may not read is an error.
        if (errno != ENOENT) return -ECHILD;
        if (!value) return -ENOENT;
        return ini_append_section(path, {}, section, key, value);
    }
    IniScan scan = ini_scan(lines, section, key);
    if (scan.key_found && value && scan.value == trim(value)) return 0;  // unchanged: no write
    if (!scan.key_found && !value) return -ENOENT;
    if (!scan.key_found) return ini_append_section(path, lines, section, key, value);
    return ini_rewrite(path, lines, section, key, value);
}

int ini_get_sections(const char* path, char (*out)[64], int max) {
    if (!path || !out || max <= 0) return -ECHILD;
    std::vector<std::string> lines;
    if (!read_lines(path, lines)) return -ECHILD;
    int count = 0;
    for (const auto& raw : lines) {
        IniLine l = classify(raw);
        if (l.kind != IniLine::Kind::Section) continue;
        if (count == max) break;
        size_t n = std::min(l.name.size(), sizeof(out[0]) - 1);
        std::memcpy(out[count], l.name.data(), n);
        out[count][n] = '\0';
        ++count;
    }
    return count;
}

int ini_get_keys(const char* path, const char* section, char (*out)[64], int max) {
    if (!path || !section || !out || max <= 0) return -ECHILD;
    std::vector<std::string> lines;
    if (!read_lines(path, lines)) return -ECHILD;
    int count = 0;
    bool inside = false;
    bool found = false;
    for (const auto& raw : lines) {
        IniLine l = classify(raw);
        if (l.kind == IniLine::Kind::Section) {
            inside = l.name == section;
            found |= inside;
        } else if (inside && l.kind == IniLine::Kind::Entry && count < max) {
            size_t n = std::min(l.name.size(), sizeof(out[0]) - 1);
            std::memcpy(out[count], l.name.data(), n);
            out[count][n] = '\0';
            ++count;
        }
    }
    return found ? count : -ENOENT;
}

int ini_copy_file(const char* from, const char* to) {
    if (!from || !to) return -1;
    FilePtr in(std::fopen(from, "rb"));
    if (!in) return -1;
    FilePtr out(std::fopen(to, "wb"));
    if (!out) return -1;
    char buf[4096];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof(buf), in.get())) > 0)
        if (std::fwrite(buf, 1, n, out.get()) != n) return -1;
    if (std::ferror(in.get()) || sync_file(out.get()) != 0) return -1;
    return std::fclose(out.release()) == 0 ? 0 : -1;
}
