// The soak's driver: requests number FROM to TO-1 of one long, fixed mix of
// every dialect, every section read, writes, uploads and previews, through
// the web server on 127.0.0.1:PORT, with the simulators' fault switches
// (RUN_DIR/camsim.ctl, RUN_DIR/syssim.ctl) switched on and off at fixed
// places of the sequence. Every reply is checked: outside a fault, for what
// its row says; inside one, for an answer at all.
//
//   soak PORT RUN_DIR FROM TO TOTAL   run a stretch of the sequence
//   soak PORT RUN_DIR verify TOTAL    the written members hold the values
//                                     the sequence wrote last
//   soak PORT RUN_DIR save FILE       the written members' values, kept
//   soak PORT RUN_DIR restore FILE    and written back
// Prints one line of figures; exits 1 on any unexpected reply.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cjson/cJSON.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace {

enum class Check { json_ok, envelope, text, jpeg, no_content, upload };

struct Row {
    const char* name;
    const char* method;
    std::string target;
    std::string body;
    Check check;
    const char* expect = "";  // text rows: the answer's beginning
};

std::string enc(std::string s) {
    std::string out;
    for (char c : s) {
        if (c == '{' || c == '}' || c == '"' || c == ' ' || c == ',' || c == ':' || c == '[' || c == ']') {
            char hex[4];
            std::snprintf(hex, sizeof hex, "%%%02X", static_cast<unsigned char>(c));
            out += hex;
        } else {
            out += c;
        }
    }
    return out;
}
std::string get_json(const std::string& json) { return "/cgi-bin/web.fcgi?func=get" + enc(json); }
std::string set_json(const std::string& json) { return "/cgi-bin/web.fcgi?func=set" + enc(json); }

// A member the sequence writes: its request for value v, and how to read it.
struct Written {
    const char* name;
    std::string (*request)(long v);
    const char* read;  // JSON read request
    const char* path;  // section/member(/member) in the answer
    long (*value)(size_t index);
};
constexpr Written kWritten[] = {
    {"audio volume", [](long v) { return "{\"audio\":{\"volume\":" + std::to_string(v) + "}}"; },
     R"({"audio":{"volume":true}})", "audio/volume", [](size_t i) { return static_cast<long>(i % 101); }},
    {"NTP interval", [](long v) { return "{\"NTP\":{\"update interval\":" + std::to_string(v) + "}}"; },
     R"({"NTP":{"update interval":true}})", "NTP/update interval",
     [](size_t i) { return static_cast<long>(60 + i % 3600); }},
    {"record task0 start",
     [](long v) { return "{\"record\":{\"task0\":{\"start\":" + std::to_string(v) + "}}}"; },
     R"({"record":{"task0":true}})", "record/task0/start",
     [](size_t i) { return static_cast<long>(i % 1440); }},
    {"multicast port",
     [](long v) { return "{\"rtp multicast\":{\"main\":{\"port\":" + std::to_string(v) + "}}}"; },
     R"({"rtp multicast":{"main":{"port":true}}})", "rtp multicast/main/port",
     [](size_t i) { return static_cast<long>(5000 + i % 1000); }},
    {"image brightness", [](long v) { return "{\"image\":{\"brightness\":" + std::to_string(v) + "}}"; },
     R"({"image":{"brightness":true}})", "image/brightness",
     [](size_t i) { return static_cast<long>(i % 15); }},
};
constexpr size_t kWrittenRows = sizeof kWritten / sizeof kWritten[0];

// The rows of the mix, in three weights: answers of the responder alone,
// a camera exchange or two, and whole section reads.
struct Mix {
    std::vector<Row> light, camera, sections;
};
Mix rows() {
    Mix m;
    m.light = {
        {"unknown query", "GET", "/cgi-bin/web.fcgi?nonsense", "", Check::envelope},
        {"device summary", "GET", "/controlhub", "", Check::json_ok},
        {"summary path", "GET", "/mw-api/v1/device/summary", "", Check::json_ok},
        {"aw_ptz power", "GET", "/cgi-bin/aw_ptz?cmd=%23O&res=1", "", Check::text, "p"},
        {"event", "GET", "/cgi-bin/event?connect=start&my_port=31004&uid=0", "", Check::no_content},
        {"session", "GET", "/cgi-bin/man_session?command=get", "", Check::text, "\"Event session:"},
        {"sendPTZ no-op", "POST", "/cgi-bin/web.fcgi?path=sendPTZ", R"({"type":12,"speed":1})",
         Check::json_ok},
        {"system read", "GET", get_json(R"({"system":{"device_name":true,"support":true,"TZ":true}})"), "",
         Check::json_ok},
    };
    m.camera = {
        {"status dump", "GET", "/live/camdata.html", "", Check::text, "p1"},
        {"aw_ptz position", "GET", "/cgi-bin/aw_ptz?cmd=%23APC&res=1", "", Check::text, "aPC"},
        {"aw_cam shutter", "GET", "/cgi-bin/aw_cam?cmd=QSH&res=1", "", Check::text, "QSH:"},
        {"image position", "GET", get_json(R"({"image":{"zoom":true,"pan":true,"tilt":true,"focus":true}})"),
         "", Check::json_ok},
        {"preview", "GET", "/mw-api/v1/preview/image", "", Check::jpeg},
    };
    for (
        const char* json :
        {R"({"image":{"WB_mode":true,"exposure_mode":true,"brightness":true,"gamma":true,"vo_support":true}})",
         R"({"system":{"sd":true,"power_ctrl":true}})", R"({"ethernet":{"eth0":true}})",
         R"({"venc":{"main":true,"sub":true},"VencAbility":{"main":true}})",
         R"({"rtmp":{"main":true},"rtp multicast":{"sub":true}})", R"({"full ndi":true})",
         R"({"audio":true})", R"({"record":true})", R"({"gb28181":true})", R"({"FreeD":true})",
         R"({"NTP":true})"})
        m.sections.push_back({"section read", "GET", get_json(json), "", Check::json_ok});
    return m;
}

// What request `index` of the sequence is: every 10th a write of the next
// written member, every 20th a whole section read, every 10th a camera
// exchange, every 1000th an upload (armed by the one before); the rest
// answers of the responder alone.
struct Step {
    const Row* row = nullptr;
    Row made;
};
Step step_at(size_t index, const Mix& mix) {
    Step s;
    if (index % 1000 == 999) {
        static const std::string kImage(4096, 'U');
        s.made = {"upload", "POST", "/cgi-bin/web.fcgi?path=update", kImage, Check::upload};
    } else if (index % 1000 == 998) {
        s.made = {"arm", "GET", set_json(R"({"system":{"post_update":"start"}})"), "", Check::json_ok};
    } else if (index % 10 == 5) {
        const Written& w = kWritten[(index / 10) % kWrittenRows];
        s.made = {w.name, "GET", set_json(w.request(w.value(index))), "", Check::json_ok};
    } else if (index % 20 == 7) {
        s.row = &mix.sections[(index / 20) % mix.sections.size()];
    } else if (index % 10 == 3) {
        s.row = &mix.camera[(index / 10) % mix.camera.size()];
    } else {
        s.row = &mix.light[index % mix.light.size()];
    }
    if (s.row == nullptr) s.row = &s.made;
    return s;
}

// The fault switches: where in the sequence of TOTAL each is on.
struct Fault {
    const char* file;
    const char* line;
    double at;      // share of the sequence where it starts
    size_t length;  // requests it lasts
};
constexpr Fault kFaults[] = {
    {"camsim.ctl", "late 20", 0.05, 300}, {"camsim.ctl", "silent", 0.25, 20},
    {"syssim.ctl", "silent", 0.40, 20},   {"camsim.ctl", "wrongseq", 0.60, 300},
    {"camsim.ctl", "silent", 0.75, 20},   {"syssim.ctl", "silent", 0.90, 20},
};
const Fault* fault_at(size_t index, size_t total) {
    for (const Fault& f : kFaults) {
        const auto start = static_cast<size_t>(f.at * static_cast<double>(total));
        if (index >= start && index < start + f.length) return &f;
    }
    return nullptr;
}
// A fault's effects can outlast its switch by one request (a late reply).
bool near_fault(size_t index, size_t total) {
    return fault_at(index, total) != nullptr || (index > 0 && fault_at(index - 1, total) != nullptr);
}

// ---- HTTP/1.1 over one kept-alive connection -------------------------------------------

class Http {
public:
    explicit Http(int port) : port_(port) {}
    ~Http() { close_fd(); }
    // One exchange: status code, content type, body; false when the
    // connection failed (it is opened again for the next).
    bool exchange(const Row& row, int& status, std::string& type, std::string& body) {
        for (int attempt = 0; attempt < 2; ++attempt) {
            if (fd_ < 0 && !connect_fd()) return false;
            std::string req = std::string(row.method) + " " + row.target + " HTTP/1.1\r\nHost: 127.0.0.1\r\n";
            if (!row.body.empty() || std::strcmp(row.method, "POST") == 0)
                req += "Content-Length: " + std::to_string(row.body.size()) + "\r\n";
            req += "\r\n" + row.body;
            if (send_all(req) && read_reply(status, type, body)) return true;
            close_fd();  // the server closed a kept connection: once more on a new one
        }
        return false;
    }

private:
    bool connect_fd() {
        fd_ = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(static_cast<uint16_t>(port_));
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        timeval tv{60, 0};
        setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
        int one = 1;
        setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        if (connect(fd_, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) close_fd();
        buf_.clear();
        return fd_ >= 0;
    }
    void close_fd() {
        if (fd_ >= 0) close(fd_);
        fd_ = -1;
    }
    bool send_all(const std::string& s) {
        for (size_t done = 0; done < s.size();) {
            const ssize_t n = send(fd_, s.data() + done, s.size() - done, MSG_NOSIGNAL);
            if (n <= 0) return false;
            done += static_cast<size_t>(n);
        }
        return true;
    }
    bool fill() {
        char chunk[16384];
        const ssize_t n = recv(fd_, chunk, sizeof chunk, 0);
        if (n <= 0) return false;
        buf_.append(chunk, static_cast<size_t>(n));
        return true;
    }
    bool read_line(std::string& line) {
        size_t eol;
        while ((eol = buf_.find("\r\n")) == std::string::npos)
            if (!fill()) return false;
        line = buf_.substr(0, eol);
        buf_.erase(0, eol + 2);
        return true;
    }
    bool read_n(size_t n, std::string& out) {
        while (buf_.size() < n)
            if (!fill()) return false;
        out.append(buf_, 0, n);
        buf_.erase(0, n);
        return true;
    }
    bool read_reply(int& status, std::string& type, std::string& body) {
        std::string line;
        if (!read_line(line) || line.size() < 12) return false;
        status = std::atoi(line.c_str() + 9);
        long length = -1;
        bool chunked = false, closes = false;
        type.clear();
        body.clear();
        while (read_line(line) && !line.empty()) {
            const size_t colon = line.find(':');
            if (colon == std::string::npos) continue;
            std::string name = line.substr(0, colon);
            for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            const std::string value = line.substr(line.find_first_not_of(' ', colon + 1));
            if (name == "content-length") length = std::atol(value.c_str());
            if (name == "content-type") type = value;
            if (name == "transfer-encoding" && value.find("chunked") != std::string::npos) chunked = true;
            if (name == "connection" && value.find("close") != std::string::npos) closes = true;
        }
        bool ok = true;
        if (chunked) {
            for (;;) {
                if (!read_line(line)) return false;
                const size_t n = std::strtoul(line.c_str(), nullptr, 16);
                if (n == 0) {
                    read_line(line);
                    break;
                }
                if (!read_n(n, body) || !read_line(line)) return false;
            }
        } else if (length >= 0) {
            ok = read_n(static_cast<size_t>(length), body);
        } else if (status != 204 && status != 304) {
            while (fill()) {}
            body.swap(buf_);
            closes = true;
        }
        if (closes) close_fd();
        return ok;
    }

    int port_;
    int fd_ = -1;
    std::string buf_;
};

// Whether a reply is what its row expects.
bool expected(const Row& row, int status, const std::string& type, const std::string& body, bool fault) {
    if (row.check == Check::no_content) return status == 204;
    if (status != 200 || body.empty()) return false;
    if (fault) return true;  // inside a fault, an answer is all that is asked
    switch (row.check) {
    case Check::envelope: return body.rfind("{\"status\":-1,\"message\":", 0) == 0;
    case Check::text: return body.rfind(row.expect, 0) == 0;
    case Check::jpeg: return type.rfind("image/jpeg", 0) == 0 && body.size() > 2 && body[0] == '\xFF';
    case Check::upload: return body.rfind("{\"status\":1,\"size\":", 0) == 0;
    case Check::json_ok: {
        cJSON* j = cJSON_Parse(body.c_str());
        const cJSON* s = cJSON_GetObjectItem(j, "status");
        const bool ok =
            (cJSON_IsTrue(s) || (cJSON_IsNumber(s) && s->valueint == 1) || cJSON_GetObjectItem(j, "device"));
        cJSON_Delete(j);
        return ok;
    }
    case Check::no_content: break;
    }
    return false;
}

void set_fault(const std::string& run, const char* file, const char* line) {
    std::ofstream(run + "/" + file, std::ios::trunc) << line << (line[0] != '\0' ? "\n" : "");
}

// The value a written member holds now (-1: none).
long holds(Http& http, const Written& w) {
    const Row row{"read back", "GET", get_json(w.read), "", Check::json_ok};
    int status = 0;
    std::string type, body;
    http.exchange(row, status, type, body);
    cJSON* j = cJSON_Parse(body.c_str());
    const cJSON* at = j;
    const std::string path = w.path;
    for (size_t start = 0, slash; at != nullptr; start = slash + 1) {
        slash = path.find('/', start);
        at = cJSON_GetObjectItem(at, path.substr(start, slash - start).c_str());
        if (slash == std::string::npos) break;
    }
    const long got = cJSON_IsNumber(at) ? static_cast<long>(at->valuedouble) : -1;
    cJSON_Delete(j);
    return got;
}

// Every written member holds the last value the sequence wrote to it.
int verify(Http& http, size_t total) {
    int wrong = 0;
    for (size_t k = 0; k < kWrittenRows; ++k) {
        long want = -1;
        for (size_t i = total; i-- > 0;) {
            if (i % 1000 >= 998 || i % 10 != 5 || (i / 10) % kWrittenRows != k) continue;
            want = kWritten[k].value(i);
            break;
        }
        const long got = holds(http, kWritten[k]);
        std::printf("soak: %s holds %ld, the last value written %ld\n", kWritten[k].name, got, want);
        if (got != want) ++wrong;
    }
    return wrong;
}

// save: the written members' values into FILE; restore: written back.
int save_or_restore(Http& http, bool save, const std::string& file) {
    if (save) {
        std::ofstream out(file);
        for (const Written& w : kWritten) out << holds(http, w) << "\n";
        return out ? 0 : 1;
    }
    std::ifstream in(file);
    int failed = 0;
    for (const Written& w : kWritten) {
        long v = -1;
        in >> v;
        const Row row{"restore", "GET", set_json(w.request(v)), "", Check::json_ok};
        int status = 0;
        std::string type, body;
        if (v < 0 || !http.exchange(row, status, type, body) || !expected(row, status, type, body, false))
            ++failed;
    }
    return failed == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 5) {
        std::fprintf(stderr, "usage: soak PORT RUN_DIR FROM TO TOTAL | soak PORT RUN_DIR verify TOTAL\n");
        return 2;
    }
    const int port = std::atoi(argv[1]);
    const std::string run = argv[2];
    Http http(port);
    if (std::strcmp(argv[3], "verify") == 0)
        return verify(http, std::strtoul(argv[4], nullptr, 10)) == 0 ? 0 : 1;
    if (std::strcmp(argv[3], "save") == 0 || std::strcmp(argv[3], "restore") == 0)
        return save_or_restore(http, argv[3][0] == 's', argv[4]);
    if (argc < 6) return 2;
    const size_t from = std::strtoul(argv[3], nullptr, 10), to = std::strtoul(argv[4], nullptr, 10);
    const size_t total = std::strtoul(argv[5], nullptr, 10);
    const Mix table = rows();
    size_t unexpected = 0, faulty = 0;
    const Fault* on = nullptr;
    const auto start = std::chrono::steady_clock::now();
    for (size_t i = from; i < to; ++i) {
        const Fault* f = fault_at(i, total);
        if (f != on) {
            if (on != nullptr) set_fault(run, on->file, "");
            if (f != nullptr) set_fault(run, f->file, f->line);
            on = f;
        }
        const Step s = step_at(i, table);
        int status = 0;
        std::string type, body;
        const bool answered = http.exchange(*s.row, status, type, body);
        const bool fault = near_fault(i, total);
        faulty += fault ? 1 : 0;
        if (!answered || !expected(*s.row, status, type, body, fault)) {
            if (++unexpected <= 10)
                std::printf("soak: request %zu (%s %s): HTTP %d, %.120s\n", i, s.row->name,
                            s.row->target.c_str(), answered ? status : 0, body.c_str());
        }
    }
    if (on != nullptr) set_fault(run, on->file, "");
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("soak: requests %zu to %zu: %zu unexpected, %zu inside faults, %.0f s, %.0f requests/s\n",
                from, to, unexpected, faulty, seconds, static_cast<double>(to - from) / seconds);
    return unexpected == 0 ? 0 : 1;
}
