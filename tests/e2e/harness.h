// End-to-end harness: FastCGI requests straight to the running responder
// (run/web.sock inside the simulated camera), plain HTTP to the web server in
// front of it, and readers of the simulated camera's journals.
//
// scripts/e2e.sh starts the simulated camera and exports CAMERA_RUN_DIR (the
// absolute path of run/) and WEB_HTTP_PORT before it runs the e2e binary.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace e2e {

// Absolute path of run/ (CAMERA_RUN_DIR).
const std::string& run_dir();
// Path inside run/, e.g. run_path("root/tmp/update.bin").
std::string run_path(std::string_view rel);

// Runs a program with `input` on its standard input and returns what it
// printed. With `env` the program (an absolute path) gets exactly that
// environment; without, it is looked up on PATH and inherits ours.
std::string run_program(const std::vector<std::string>& argv, std::string_view input = {},
                        const std::vector<std::string>* env = nullptr);

// One FastCGI request with exactly this CGI environment and body; returns the
// raw reply bytes (headers and body as the responder wrote them). A missing
// variable is simply not sent.
std::string fcgi(const std::map<std::string, std::string>& env, std::string_view body = {});
// GET with QUERY_STRING = query.
std::string get(std::string_view query);
// POST with QUERY_STRING = query and CONTENT_LENGTH = body size.
std::string post(std::string_view query, std::string_view body);
// The body after the blank line that ends the headers.
std::string body_of(const std::string& reply);
// A whole file, or "" when it cannot be read.
std::string read_file(const std::string& path);
// True when one of `lines` contains `part`.
bool has_line(const std::vector<std::string>& lines, std::string_view part);

// The body of a GET reply without the JSON printer's tabs and line breaks.
std::string compact(std::string_view query);

// HTTP/1.0 GET through the web server on 127.0.0.1:WEB_HTTP_PORT;
// returns the whole response (status line, headers, body).
std::string http_get(std::string_view target);
// HTTP/1.0 POST of `body` (Content-Length set) through the web server.
std::string http_post(std::string_view target, std::string_view body);

// A journal of the simulated camera (visca.log, syscmd.log, shell.log,
// app.log). mark() remembers its current end; since() returns the lines
// appended after the mark.
class Journal {
public:
    explicit Journal(std::string name);
    void mark();
    std::vector<std::string> since() const;
    // Waits up to timeout_ms for at least `count` new lines.
    std::vector<std::string> wait_lines(size_t count, int timeout_ms = 3000) const;
    // wait_lines(count), then the mark moved past what was returned.
    std::vector<std::string> take(size_t count, int timeout_ms = 3000);

private:
    std::string path_;
    long offset_ = 0;
};

// The VISCA packets journalled in `visca` since its mark, proven complete by a
// closing inquiry: "aw_cam?cmd=OFT" asks 81 09 04 DA FF, and its arrival shows
// that everything sent before it has arrived. The sentinel itself is dropped
// and the mark moved on.
std::vector<std::string> visca_until_sentinel(Journal& visca);

// Ends the responder with `signal` on purpose, and says so: the suite fails
// when the responder was restarted more often than the tests ended it
// (run/restarts.expected gets a line per end). 0 or the error of kill().
int end_responder_on_purpose(int pid, int signal);

// Fault switches of the simulators: writes `text` to run/<file> (for example
// fault_set("camsim.ctl", "silent")); an empty text clears the switches.
void fault_set(const std::string& file, const std::string& text);

}  // namespace e2e
