// End-to-end harness: a small FastCGI client talking straight to the
// responder's socket, a plain HTTP client for the web server in front, and
// readers of the simulated camera's journals.
#include "e2e/harness.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <netinet/in.h>
#include <arpa/inet.h>
#include <unistd.h>
#include <poll.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

namespace e2e {
namespace {

// Record types and roles of the FastCGI wire protocol.
enum class RecType : uint8_t {
    BeginRequest = 1,
    AbortRequest = 2,
    EndRequest = 3,
    Params = 4,
    Stdin = 5,
    Stdout = 6,
    Stderr = 7,
};
constexpr uint8_t kVersion = 1;
constexpr uint16_t kRequestId = 1;
constexpr uint16_t kRoleResponder = 1;
constexpr size_t kMaxContent = 65535;
// Replies are bounded by the slowest endpoint (the preview waits up to ~3 s);
// this only keeps a hung responder from hanging the whole suite.
constexpr int kReplyTimeoutMs = 20000;

// Owns a socket descriptor.
class Fd {
public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    ~Fd() { if (fd_ >= 0) ::close(fd_); }
    Fd(Fd&& o) noexcept : fd_(o.fd_) { o.fd_ = -1; }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    Fd& operator=(Fd&&) = delete;
    int get() const { return fd_; }
    bool ok() const { return fd_ >= 0; }

private:
    int fd_;
};

bool write_all(int fd, const void* data, size_t len) {
    const auto* p = static_cast<const char*>(data);
    while (len > 0) {
        ssize_t n = ::send(fd, p, len, MSG_NOSIGNAL);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        p += n;
        len -= static_cast<size_t>(n);
    }
    return true;
}

// Reads exactly len bytes; false on EOF, error or time-out.
bool read_exact(int fd, void* data, size_t len, int timeout_ms) {
    auto* p = static_cast<char*>(data);
    while (len > 0) {
        pollfd pfd{fd, POLLIN, 0};
        int r = ::poll(&pfd, 1, timeout_ms);
        if (r < 0 && errno == EINTR) continue;
        if (r <= 0) return false;
        ssize_t n = ::recv(fd, p, len, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        p += n;
        len -= static_cast<size_t>(n);
    }
    return true;
}

void append_record(std::string& out, RecType type, std::string_view content) {
    const size_t len = content.size();
    const size_t pad = (8 - len % 8) % 8;
    const char header[8] = {
        static_cast<char>(kVersion),
        static_cast<char>(type),
        static_cast<char>(kRequestId >> 8),
        static_cast<char>(kRequestId & 0xFF),
        static_cast<char>((len >> 8) & 0xFF),
        static_cast<char>(len & 0xFF),
        static_cast<char>(pad),
        0,
    };
    out.append(header, sizeof header);
    out.append(content);
    out.append(pad, '\0');
}

// A stream (PARAMS or STDIN): the data in records of at most 65535 bytes,
// then the empty record that ends the stream.
void append_stream(std::string& out, RecType type, std::string_view data) {
    while (!data.empty()) {
        size_t n = std::min(data.size(), kMaxContent);
        append_record(out, type, data.substr(0, n));
        data.remove_prefix(n);
    }
    append_record(out, type, {});
}

void append_length(std::string& out, size_t len) {
    if (len < 128) {
        out.push_back(static_cast<char>(len));
    } else {
        out.push_back(static_cast<char>(0x80 | ((len >> 24) & 0x7F)));
        out.push_back(static_cast<char>((len >> 16) & 0xFF));
        out.push_back(static_cast<char>((len >> 8) & 0xFF));
        out.push_back(static_cast<char>(len & 0xFF));
    }
}

std::string encode_params(const std::map<std::string, std::string>& env) {
    std::string out;
    for (const auto& [name, value] : env) {
        append_length(out, name.size());
        append_length(out, value.size());
        out += name;
        out += value;
    }
    return out;
}

std::string socket_path() { return run_path("web.sock"); }

Fd connect_unix(const std::string& path) {
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (path.size() >= sizeof addr.sun_path) {
        std::fprintf(stderr, "harness: socket path too long: %s\n", path.c_str());
        return Fd{};
    }
    std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    // The responder may be restarting (a test kills it on purpose): retry a
    // little before giving up.
    for (int attempt = 0; attempt < 100; ++attempt) {
        Fd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (!fd.ok()) return Fd{};
        if (::connect(fd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0)
            return fd;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    std::fprintf(stderr, "harness: cannot connect to %s: %s\n", path.c_str(), std::strerror(errno));
    return Fd{};
}

}  // namespace

const std::string& run_dir() {
    static const std::string dir = [] {
        const char* env = std::getenv("CAMERA_RUN_DIR");
        if (env && *env) return std::string(env);
        std::fprintf(stderr, "harness: CAMERA_RUN_DIR is not set; using ./run\n");
        return std::string("run");
    }();
    return dir;
}

std::string run_path(std::string_view rel) {
    std::string p = run_dir();
    if (!p.empty() && p.back() != '/') p.push_back('/');
    p.append(rel);
    return p;
}

std::string fcgi(const std::map<std::string, std::string>& env, std::string_view body) {
    Fd fd = connect_unix(socket_path());
    if (!fd.ok()) return {};

    std::string request;
    const char begin[8] = {
        static_cast<char>(kRoleResponder >> 8), static_cast<char>(kRoleResponder & 0xFF),
        0 /* flags: close the connection after the request */, 0, 0, 0, 0, 0,
    };
    append_record(request, RecType::BeginRequest, std::string_view(begin, sizeof begin));
    append_stream(request, RecType::Params, encode_params(env));
    append_stream(request, RecType::Stdin, body);

    // The request is written from a second thread while the reply is read, so
    // a large body cannot dead-lock against a responder that answers early.
    std::string reply;
    bool write_ok = true;
    std::thread writer([&] { write_ok = write_all(fd.get(), request.data(), request.size()); });

    for (;;) {
        unsigned char h[8];
        if (!read_exact(fd.get(), h, sizeof h, kReplyTimeoutMs)) break;
        const auto type = static_cast<RecType>(h[1]);
        const size_t len = (static_cast<size_t>(h[4]) << 8) | h[5];
        const size_t pad = h[6];
        std::string content(len + pad, '\0');
        if (!read_exact(fd.get(), content.data(), content.size(), kReplyTimeoutMs)) break;
        content.resize(len);
        if (type == RecType::Stdout) {
            reply += content;
        } else if (type == RecType::Stderr) {
            std::fprintf(stderr, "responder stderr: %s", content.c_str());
        } else if (type == RecType::EndRequest) {
            break;
        }
    }
    ::shutdown(fd.get(), SHUT_RDWR);
    writer.join();
    if (!write_ok) std::fprintf(stderr, "harness: request not fully written\n");
    return reply;
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
    if (pos != std::string::npos) return reply.substr(pos + 2);
    return {};
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

namespace {

std::string http_request(std::string_view method, std::string_view target,
                         const std::string* body) {
    const char* port_env = std::getenv("WEB_HTTP_PORT");
    const int port = port_env ? std::atoi(port_env) : 0;
    if (port <= 0 || port > 65535) {
        std::fprintf(stderr, "harness: WEB_HTTP_PORT is not set\n");
        return {};
    }
    Fd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd.ok()) return {};
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
        std::fprintf(stderr, "harness: cannot connect to port %d: %s\n", port, std::strerror(errno));
        return {};
    }
    std::string req(method);
    req += ' ';
    req.append(target);
    req += " HTTP/1.0\r\nHost: 127.0.0.1\r\n";
    if (body) {
        req += "Content-Type: application/json\r\nContent-Length: " + std::to_string(body->size()) + "\r\n";
    }
    req += "\r\n";
    if (body) req += *body;
    if (!write_all(fd.get(), req.data(), req.size())) return {};
    std::string resp;
    char buf[4096];
    for (;;) {
        pollfd pfd{fd.get(), POLLIN, 0};
        int r = ::poll(&pfd, 1, kReplyTimeoutMs);
        if (r < 0 && errno == EINTR) continue;
        if (r <= 0) break;
        ssize_t n = ::recv(fd.get(), buf, sizeof buf, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        resp.append(buf, static_cast<size_t>(n));
    }
    return resp;
}

}  // namespace

std::string http_get(std::string_view target) { return http_request("GET", target, nullptr); }

std::string http_post(std::string_view target, std::string_view body) {
    const std::string data(body);
    return http_request("POST", target, &data);
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
    const std::string tmp = path + ".tmp";
    {
        std::ofstream out(tmp, std::ios::binary | std::ios::trunc);
        out << text;
        if (!text.empty() && text.back() != '\n') out << '\n';
    }
    // Rename so a simulator never reads a half-written switch file.
    if (std::rename(tmp.c_str(), path.c_str()) != 0)
        std::fprintf(stderr, "harness: cannot write %s\n", path.c_str());
}

}  // namespace e2e
