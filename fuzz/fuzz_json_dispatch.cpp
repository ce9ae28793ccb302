// Fuzz target for the JSON control API's dispatchers, run without a camera
// (no IPC channel exists, so every camera or system-server call fails fast).
//
// The first input byte picks the request's shape, the rest is the JSON text:
//   even: the get dispatcher with the method GET (every read handler runs);
//   odd:  the set dispatcher with the method POST. Without a settings record
//         there is no access key and no login succeeds, so only parsing and
//         the refusal reply run; write handlers are never reached, which
//         keeps shell commands of maintenance actions out of a fuzzing run.
// Some read handlers run fixed firmware commands through the shell (such as
// linking the feature images into the web root); PATH is emptied so that on
// a development machine none of them is found.
// Checks that every reply starts with the JSON header block and that a reply
// printed for a usable object ends with a "status" member.
// See fuzz/README.md for building and running.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "cgi/output.h"
#include "cgi/reply.h"
#include "json/json_ctrl_func.h"
#include "support/elog.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool quiet = [] {
        g_print_level = 0;
        setenv("PATH", "/nonexistent", 1);
        return true;
    }();
    (void)quiet;
    if (size == 0) return 0;
    const bool set = (data[0] & 1) != 0;
    // Requests reach the dispatchers as zero-terminated text of at most 2048 bytes.
    std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    text = text.substr(0, text.find('\0')).substr(0, 2048);

    setenv("REQUEST_METHOD", set ? "POST" : "GET", 1);
    OutputCapture capture;
    const int result = set ? json_set_ctrl(text.c_str()) : json_get_ctrl(text.c_str());

    const std::string& reply = capture.text();
    if (reply.compare(0, kHdrJson.size(), kHdrJson) != 0) __builtin_trap();
    if (result == 0) {
        const std::string_view tail = std::string_view(reply).substr(kHdrJson.size());
        if (tail.find("\"status\":\t") == std::string_view::npos || !tail.ends_with("}\n")) __builtin_trap();
    }
    return 0;
}

#include "replay_main.h"
