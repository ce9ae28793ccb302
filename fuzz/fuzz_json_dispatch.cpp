// Fuzz target for the JSON control API's dispatchers, run against the fakes
// of fuzz_fakes.h: write handlers get past their refusals, and the camera
// answers every inquiry from the input.
//
// Input: the first byte picks the dispatcher (even: get, odd: set), the
// second the number of bytes after the JSON text that feed the camera's
// replies; the JSON text follows. Both dispatchers run with the method GET.
// Checks that every reply starts with the JSON header block, that a reply
// printed for a usable object ends with a "status" member, and (in the
// fakes) that every packet sent is well framed.
// See fuzz/README.md for building and running.

#include "camera/image_ctrl.h"
#include "cgi/output.h"
#include "cgi/reply.h"
#include "fuzz_fakes.h"
#include "json/json_ctrl_func.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::install();
    if (size < 2) return 0;
    const bool set = (data[0] & 1) != 0;
    const size_t reply_bytes = data[1] < size - 2 ? data[1] : size - 2;
    const size_t text_end = size - reply_bytes;
    fuzz::replies_from(data + text_end, reply_bytes);
    image_ctrl_request_begin();
    // Requests reach the dispatchers as zero-terminated text of at most 2048 bytes.
    std::string text(reinterpret_cast<const char*>(data + 2), text_end - 2);
    text = text.substr(0, text.find('\0')).substr(0, 2048);

    setenv("REQUEST_METHOD", "GET", 1);
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
