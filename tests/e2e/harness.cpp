// End-to-end harness. Requests reach the responder through the system's own
// FastCGI client (cgi-fcgi) and the web server through curl; the journals
// of the simulated camera are read as files.
#include "e2e/harness.h"

#include <signal.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

namespace e2e {

std::string run_program(const std::vector<std::string>& argv, std::string_view input,
                        const std::vector<std::string>* env) {
    // The input goes through a memory file, so a large body never dead-locks
    // against a reader that answers before it has read it all.
    const int in = ::memfd_create("e2e-input", MFD_CLOEXEC);
    int out[2];
    if (in < 0 || ::pipe2(out, O_CLOEXEC) != 0) return {};
    if (::write(in, input.data(), input.size()) != static_cast<ssize_t>(input.size())) return {};
    ::lseek(in, 0, SEEK_SET);
    std::vector<char*> args, vars;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    if (env)
        for (const std::string& v : *env) vars.push_back(const_cast<char*>(v.c_str()));
    vars.push_back(nullptr);
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::dup2(in, 0);
        ::dup2(out[1], 1);
        if (env)
            ::execve(args[0], args.data(), vars.data());
        else
            ::execvp(args[0], args.data());
        ::_exit(127);
    }
    ::close(in);
    ::close(out[1]);
    std::string text;
    char buf[4096];
    for (ssize_t n; (n = ::read(out[0], buf, sizeof buf)) != 0;) {
        if (n > 0)
            text.append(buf, static_cast<size_t>(n));
        else if (errno != EINTR)
            break;
    }
    ::close(out[0]);
    if (pid > 0) ::waitpid(pid, nullptr, 0);
    return text;
}

const std::string& run_dir() {
    static const std::string dir = [] {
        const char* env = std::getenv("CAMERA_RUN_DIR");
        if (env && *env) return std::string(env);
        std::fprintf(stderr, "harness: CAMERA_RUN_DIR is not set; using ./run\n");
        return std::string("run");
    }();
    return dir;
}

std::string run_path(std::string_view rel) { return run_dir() + "/" + std::string(rel); }

// The responder may be restarting (a test kills it on purpose): wait until its
// socket takes connections again, for up to five seconds.
static void await_socket(const std::string& path) {
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, path.c_str(), sizeof addr.sun_path - 1);
    for (int attempt = 0; attempt < 100; ++attempt) {
        const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const bool up = ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
        ::close(fd);
        if (up) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

std::string fcgi(const std::map<std::string, std::string>& env, std::string_view body) {
    const std::string socket = run_path("web.sock");
    await_socket(socket);
    std::vector<std::string> vars;
    for (const auto& [name, value] : env) vars.push_back(name + "=" + value);
    // A hung responder costs the suite 20 s, not the whole run.
    return run_program({"/usr/bin/timeout", "20", "/usr/bin/cgi-fcgi", "-bind", "-connect", socket}, body,
                       &vars);
}

std::string get(std::string_view query) {
    return fcgi({{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", std::string(query)}});
}

std::string post(std::string_view query, std::string_view body) {
    return fcgi({{"REQUEST_METHOD", "POST"},
                 {"QUERY_STRING", std::string(query)},
                 {"CONTENT_LENGTH", std::to_string(body.size())}},
                body);
}

std::string body_of(const std::string& reply) {
    size_t pos = reply.find("\r\n\r\n");
    if (pos != std::string::npos) return reply.substr(pos + 4);
    pos = reply.find("\n\n");
    return pos == std::string::npos ? std::string() : reply.substr(pos + 2);
}

std::string read_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

bool has_line(const std::vector<std::string>& lines, std::string_view part) {
    for (const std::string& l : lines)
        if (l.find(part) != std::string::npos) return true;
    return false;
}

std::string compact(std::string_view query) {
    std::string out;
    for (char c : body_of(get(query)))
        if (c != '\t' && c != '\n') out += c;
    return out;
}

static std::string http(std::string_view target, const std::string* body, const char* port_var) {
    const char* port = std::getenv(port_var);
    if (!port) return {};
    std::vector<std::string> argv{"curl", "-s", "-i", "--http1.0", "--max-time", "20"};
    if (body) argv.insert(argv.end(), {"-H", "Content-Type: application/json", "--data-binary", "@-"});
    argv.push_back("http://127.0.0.1:" + std::string(port) + std::string(target));
    return run_program(argv, body ? *body : std::string_view());
}

std::string http_get(std::string_view target) { return http(target, nullptr, "WEB_HTTP_PORT"); }

std::string http_post(std::string_view target, std::string_view body) {
    const std::string data(body);
    return http(target, &data, "WEB_HTTP_PORT");
}

Journal::Journal(std::string name) : path_(run_path(name)) { mark(); }

void Journal::mark() {
    std::ifstream in(path_, std::ios::binary | std::ios::ate);
    offset_ = in ? static_cast<long>(in.tellg()) : 0;
}

std::vector<std::string> Journal::since() const {
    std::vector<std::string> lines;
    std::ifstream in(path_, std::ios::binary);
    if (!in) return lines;
    in.seekg(0, std::ios::end);
    const long size = static_cast<long>(in.tellg());
    // A journal recreated since the mark is read from its start.
    in.seekg(size >= offset_ ? offset_ : 0);
    std::string data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    // Only complete lines count: a writer may be half-way through one.
    size_t start = 0;
    for (size_t nl; (nl = data.find('\n', start)) != std::string::npos; start = nl + 1)
        lines.emplace_back(data.substr(start, nl - start));
    return lines;
}

std::vector<std::string> Journal::wait_lines(size_t count, int timeout_ms) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    for (;;) {
        auto lines = since();
        if (lines.size() >= count || std::chrono::steady_clock::now() >= deadline) return lines;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

std::vector<std::string> Journal::take(size_t count, int timeout_ms) {
    auto lines = wait_lines(count, timeout_ms);
    mark();
    return lines;
}

std::vector<std::string> visca_until_sentinel(Journal& visca) {
    constexpr std::string_view kSentinel = "81 09 04 da ff";
    get("aw_cam?cmd=OFT&res=1");
    std::vector<std::string> got = visca.wait_lines(1);
    for (int i = 0; i < 30 && (got.empty() || got.back() != kSentinel); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        got = visca.since();
    }
    visca.mark();
    if (!got.empty() && got.back() == kSentinel) got.pop_back();
    return got;
}

void fault_set(const std::string& file, const std::string& text) {
    const std::string path = run_path(file);
    // Renamed into place, so a simulator never reads a half-written switch.
    std::ofstream(path + ".tmp", std::ios::binary | std::ios::trunc)
        << text << (text.empty() || text.back() == '\n' ? "" : "\n");
    std::rename((path + ".tmp").c_str(), path.c_str());
}

}  // namespace e2e

int e2e::end_responder_on_purpose(int pid, int signal) {
    std::ofstream(run_path("restarts.expected"), std::ios::app) << pid << " " << signal << "\n";
    return kill(pid, signal);
}
