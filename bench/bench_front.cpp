// Micro-benchmark of the request front end's hot paths, all without a camera:
// query decoding, the JSON get dispatcher answering image keys that come from
// constants (and sections that are not served), and the remote-control
// interpreters refusing a command they do not know.
//
// Build and run (built with the project, linked with the product library):
//   cmake --build --preset default --target bench_front && build/bench_front
// Optional argument: a scale factor for the iteration counts (default 1).
// Prints one line per case: name, iterations, nanoseconds per operation.
// Replies are written into an OutputCapture and thrown away, so nothing goes
// to the FastCGI streams and no IPC channel is needed.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "cgi/output.h"
#include "cgi/reply.h"
#include "json/json_ctrl_func.h"
#include "remote/aw_cam.h"
#include "remote/aw_ptz.h"
#include "support/elog.h"

namespace {

// Keeps the compiler from dropping work whose result is otherwise unused.
volatile size_t g_sink = 0;

template <typename Body>
void run_case(const char* name, long iterations, Body&& body) {
    body();  // warm-up: first-touch allocations and table set-up
    const auto start = std::chrono::steady_clock::now();
    for (long i = 0; i < iterations; ++i) body();
    const auto elapsed = std::chrono::steady_clock::now() - start;
    const double ns =
        static_cast<double>(std::chrono::duration_cast<std::chrono::nanoseconds>(elapsed).count());
    std::printf("%-34s %8ld  %10.1f ns/op\n", name, iterations, ns / static_cast<double>(iterations));
}

// Typical GET queries as a browser or a controller sends them.
const std::vector<std::string> kQueries{
    "func=get%7B%22image%22:%7B%22focus_mode%22:true%7D%7D",
    "func=set{\"image\":{\"mirror\":1,\"flip\":0}}",
    "aw_ptz?cmd=%23P50&res=1",
    "aw_cam?cmd=OSD:48:1&res=1",
    "path=/mw-api/v1/device/summary",
    "func=get%7B%22system%22%3A%7B%22login%22%3A%22admin%3Aadmin%22%7D%2C%22key%22%3A12%7D",
};

}  // namespace

int main(int argc, char** argv) {
    const long scale = argc > 1 ? std::max(1L, std::strtol(argv[1], nullptr, 10)) : 1;
    g_print_level = 0;  // the debug trace of every printed reply would dominate
    setenv("REQUEST_METHOD", "GET", 1);

    std::vector<char> decoded(2048 + 1);
    run_case("url_decode (6 typical queries)", 20000 * scale, [&] {
        for (const std::string& q : kQueries) {
            url_decode(q.c_str(), decoded.data());
            g_sink = g_sink + static_cast<size_t>(decoded[0]);
        }
    });

    OutputCapture capture;
    auto dispatch = [&](const char* text) {
        capture.clear();
        json_get_ctrl(text);
        g_sink = g_sink + capture.text().size();
    };
    run_case("json_get_ctrl image constants", 5000 * scale,
             [&] { dispatch("{\"image\":{\"digital_zoom_limit\":true,\"DC_iris_support\":true}}"); });
    run_case("json_get_ctrl unknown sections", 5000 * scale,
             [&] { dispatch("{\"camera\":{\"a\":1},\"file ctrl\":true,\"ai\":true,\"KEY\":1}"); });
    run_case("json_get_ctrl not json", 5000 * scale, [&] { dispatch("{\"image\":"); });

    run_case("aw_ptz unknown command", 20000 * scale, [&] {
        capture.clear();
        aw_ptz("cmd=#XYZ12&res=1");
        g_sink = g_sink + capture.text().size();
    });
    run_case("aw_cam unknown command", 20000 * scale, [&] {
        capture.clear();
        aw_cam("cmd=ZZZ:99:1&res=1");
        g_sink = g_sink + capture.text().size();
    });
    return 0;
}
