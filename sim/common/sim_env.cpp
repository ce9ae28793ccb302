#include "common/sim_env.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sim {

namespace {

std::atomic<bool> g_stop{false};

std::string_view trim(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t' || s.front() == '\r')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) s.remove_suffix(1);
    return s;
}

}  // namespace

const std::string& run_dir() {
    static const std::string dir = [] {
        const char* env = std::getenv("CAMERA_RUN_DIR");
        return std::string(env && *env ? env : ".");
    }();
    return dir;
}

int camera_index() {
    const char* env = std::getenv("CAMERA_INDEX");
    const int n = env != nullptr ? std::atoi(env) : 1;
    return n >= 1 && n <= 78 ? n : 1;
}

std::string run_path(std::string_view name) {
    std::string p = run_dir();
    if (!p.empty() && p.back() != '/') p += '/';
    p += name;
    return p;
}

// ---- Journal ------------------------------------------------------------

Journal::Journal(std::string_view name) {
    const std::string path = run_path(name);
    fd_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd_ < 0) std::fprintf(stderr, "journal %s: %s\n", path.c_str(), std::strerror(errno));
}

Journal::~Journal() {
    if (fd_ >= 0) ::close(fd_);
}

void Journal::append(const char* data, size_t len) {
    std::lock_guard lock(mu_);
    if (fd_ < 0) return;
    while (len > 0) {
        const ssize_t n = ::write(fd_, data, len);
        if (n < 0) {
            if (errno == EINTR) continue;
            return;
        }
        data += n;
        len -= static_cast<size_t>(n);
    }
}

void Journal::line(std::string_view text) {
    std::string buf(text);
    buf += '\n';
    append(buf.data(), buf.size());  // one write: a reader never sees half a line
}

std::string hex_bytes(const uint8_t* data, size_t len) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string out;
    out.reserve(len * 3);
    for (size_t i = 0; i < len; ++i) {
        if (i) out += ' ';
        out += digits[data[i] >> 4];
        out += digits[data[i] & 0x0F];
    }
    return out;
}

// ---- control files --------------------------------------------------------

namespace {

std::vector<std::string> parse_switches(const std::string& path) {
    std::vector<std::string> out;
    FILE* f = std::fopen(path.c_str(), "r");
    if (!f) return out;
    char buf[256];
    while (std::fgets(buf, sizeof buf, f)) {
        std::string_view l(buf);
        if (!l.empty() && l.back() == '\n') l.remove_suffix(1);
        l = trim(l);
        if (!l.empty()) out.emplace_back(l);
    }
    std::fclose(f);
    return out;
}

// What a control file looked like when it was last read. While the file
// exists it is watched: the kernel queues the watch's events within the
// writer's own system call and, in the same call, signals the thread that
// reads the switches. The signal is taken before that thread's next system
// call returns, so a change made before a request is always seen when the
// request comes, and a file that did not change costs no system call at all.
std::atomic<unsigned> g_switch_signals{0};

void on_switch_signal(int) { g_switch_signals.fetch_add(1, std::memory_order_relaxed); }

// The watch's events signal the calling thread.
void signal_this_thread(int watch) {
    static const int sig = [] {
        const int n = SIGRTMIN + 3;
        struct sigaction sa {};
        sa.sa_handler = on_switch_signal;
        sigemptyset(&sa.sa_mask);
        sa.sa_flags = SA_RESTART;
        sigaction(n, &sa, nullptr);
        return n;
    }();
    const f_owner_ex owner{F_OWNER_TID, static_cast<pid_t>(::gettid())};
    ::fcntl(watch, F_SETOWN_EX, &owner);
    ::fcntl(watch, F_SETSIG, sig);
    ::fcntl(watch, F_SETFL, ::fcntl(watch, F_GETFL) | O_ASYNC);
}

struct SwitchCache {
    std::string name;
    unsigned seen = 0;      // g_switch_signals when the watch was last read
    int watch = -1;         // the inotify descriptor, once made
    bool watching = false;  // the file exists and changes are reported
    bool present = false;
    ino_t ino = 0;
    off_t size = 0;
    timespec changed{};
    std::vector<std::string> switches;
};

bool same_time(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

// File times come from a coarse clock: two writes within one tick can leave
// the same time and size behind. A file changed in the last 50 ms is read
// again whatever its times say.
bool changed_lately(const timespec& changed) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const long long ms = (static_cast<long long>(now.tv_sec) - changed.tv_sec) * 1000 +
                         (now.tv_nsec - changed.tv_nsec) / 1000000;
    return ms < 50;
}

}  // namespace

// The file is read again only when it changed.
const std::vector<std::string>& read_switches(std::string_view ctl_name) {
    thread_local std::vector<SwitchCache> caches;
    SwitchCache* c = nullptr;
    for (SwitchCache& e : caches)
        if (e.name == ctl_name) c = &e;
    if (c == nullptr) {
        c = &caches.emplace_back();
        c->name = ctl_name;
    }
    bool changed = false;
    if (c->watching) {
        const unsigned signals = g_switch_signals.load(std::memory_order_relaxed);
        if (signals == c->seen) return c->switches;
        c->seen = signals;
        alignas(inotify_event) char events[4096];
        for (ssize_t n; (n = ::read(c->watch, events, sizeof events)) > 0;) {
            changed = true;
            for (ssize_t at = 0; at < n;) {
                const auto* e = reinterpret_cast<const inotify_event*>(events + at);
                if ((e->mask & (IN_IGNORED | IN_DELETE_SELF | IN_MOVE_SELF | IN_Q_OVERFLOW)) != 0)
                    c->watching = false;
                at += static_cast<ssize_t>(sizeof(inotify_event) + e->len);
            }
        }
        if (!changed) return c->switches;
    }
    const std::string path = run_path(ctl_name);
    // The watch comes first, so that no change after the look below is missed.
    if (!c->watching) {
        if (c->watch < 0) {
            c->watch = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
            if (c->watch >= 0) signal_this_thread(c->watch);
        }
        c->seen = g_switch_signals.load(std::memory_order_relaxed);
        c->watching = c->watch >= 0 && ::inotify_add_watch(c->watch, path.c_str(),
                                                           IN_MODIFY | IN_ATTRIB | IN_CLOSE_WRITE |
                                                               IN_DELETE_SELF | IN_MOVE_SELF) >= 0;
    }
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) {
        c->present = false;
        c->switches.clear();
        return c->switches;
    }
    if (changed || !c->present || st.st_ino != c->ino || st.st_size != c->size ||
        !same_time(st.st_ctim, c->changed) || changed_lately(st.st_ctim)) {
        c->present = true;
        c->ino = st.st_ino;
        c->size = st.st_size;
        c->changed = st.st_ctim;
        c->switches = parse_switches(path);
    }
    return c->switches;
}

bool has_switch(const std::vector<std::string>& sw, std::string_view name) {
    for (const auto& s : sw)
        if (s == name) return true;
    return false;
}

long switch_value(const std::vector<std::string>& sw, std::string_view name) {
    for (const auto& s : sw) {
        std::string_view v(s);
        if (v.size() <= name.size() || v.substr(0, name.size()) != name) continue;
        v.remove_prefix(name.size());
        if (v.front() != ' ' && v.front() != '\t') continue;
        v = trim(v);
        long n = 0;
        bool any = false;
        for (char c : v) {
            if (c < '0' || c > '9') break;
            any = true;
            if (n < 1000000) n = n * 10 + (c - '0');
        }
        if (any) return n;
    }
    return -1;
}

// ---- System V -----------------------------------------------------------

int queue_open(int key) {
    int id = ::msgget(key, 0);
    if (id < 0) id = ::msgget(key, IPC_CREAT | 0666);
    if (id < 0) std::fprintf(stderr, "msgget %d: %s\n", key, std::strerror(errno));
    return id;
}

Segment::~Segment() {
    if (base_) ::shmdt(base_);
}

namespace {

bool attach_id(int id, int& id_out, uint8_t*& base, size_t& size) {
    shmid_ds ds{};
    if (::shmctl(id, IPC_STAT, &ds) < 0) return false;
    void* p = ::shmat(id, nullptr, 0);
    if (p == reinterpret_cast<void*>(-1)) return false;
    id_out = id;
    base = static_cast<uint8_t*>(p);
    size = ds.shm_segsz;
    return true;
}

}  // namespace

bool Segment::create_or_attach(int key, size_t size, int mode) {
    int id = ::shmget(key, size, IPC_CREAT | mode);
    if (id < 0) id = ::shmget(key, 0, 0);
    if (id < 0) {
        std::fprintf(stderr, "shmget %d: %s\n", key, std::strerror(errno));
        return false;
    }
    if (!attach_id(id, id_, base_, size_)) {
        std::fprintf(stderr, "shmat %d: %s\n", key, std::strerror(errno));
        return false;
    }
    return true;
}

bool Segment::wait_attach(int key) {
    while (!stop_requested()) {
        const int id = ::shmget(key, 0, 0);
        if (id >= 0 && attach_id(id, id_, base_, size_)) return true;
        sleep_ms(10);
    }
    return false;
}

uint8_t* Segment::at(long offset, long len) const {
    if (!base_ || offset < 0 || len < 0) return nullptr;
    const auto end = static_cast<unsigned long>(offset) + static_cast<unsigned long>(len);
    if (end > size_) return nullptr;
    return base_ + offset;
}

// ---- life cycle ---------------------------------------------------------

void block_stop_signals() {
    std::signal(SIGPIPE, SIG_IGN);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

void say_ready() {
    std::fputs("ready\n", stdout);
    std::fflush(stdout);
}

void wait_for_stop() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    int sig = 0;
    while (sigwait(&set, &sig) != 0) {}
    g_stop = true;
}

bool stop_requested() { return g_stop.load(); }

void sleep_ms(long ms) {
    if (ms <= 0) return;
    timespec ts{ms / 1000, (ms % 1000) * 1000000L};
    while (::nanosleep(&ts, &ts) < 0 && errno == EINTR) {}
}

}  // namespace sim
