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

#include "platform/platform.h"
#include "support/log.h"
#include "support/owners.h"

#ifndef BUILD_NUMBER
#define BUILD_NUMBER ""
#endif

namespace {

constexpr long long kLogFileLimit = 2097152;  // 2 MiB

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

}  // namespace

int pox_system(const char* command) {
    if (!command) {
        LOG_ERR("Exec %s failed!\n", "NULL");
        return -1;
    }
    if (const auto shell = platform().shell) return shell(command);
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
    if (const auto read = platform().shell_read) return read(command, out, size);
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
