// Fuzz target for the whole request front end: routing of GET and POST
// queries (the JSON dialect, the remote-control interpreters, the session
// endpoints, the device endpoints), POST names, CONTENT_LENGTH and body
// reading, sendPTZ and sendPreset, and the firmware upload (armed, into
// /dev/null), against the fakes of fuzz_fakes.h.
//
// Input: byte 0 picks the method (bits 0-1: GET, POST, HEAD, none) and how
// CONTENT_LENGTH relates to the body (bits 2-4: exact, absent, 0, larger,
// smaller, negative, not a number, huge); byte 1 is the number of bytes at
// the end that feed the camera's replies; the query runs to the first
// newline, the body is the rest.
// Checks that a reply is printed for every GET and POST and that every
// packet sent is well framed.

#include "camera/image_ctrl.h"
#include "cgi/output.h"
#include "cgi/upload.h"
#include "front/web.h"
#include "fuzz_fakes.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::install();
    static const bool to_null = [] {
        std::error_code ignored;
        std::filesystem::create_symlink("/dev/null", fuzz::root() + "/tmp/update.bin", ignored);
        return true;
    }();
    (void)to_null;
    upload_set_armed(true);
    if (size < 2) return 0;
    const char* methods[] = {"GET", "POST", "HEAD", nullptr};
    const char* method = methods[data[0] & 3];
    const size_t reply_bytes = data[1] < size - 2 ? data[1] : size - 2;
    const std::string rest(reinterpret_cast<const char*>(data + 2), size - 2 - reply_bytes);
    fuzz::replies_from(data + size - reply_bytes, reply_bytes);
    image_ctrl_request_begin();

    const size_t newline = rest.find('\n');
    std::string query = rest.substr(0, newline);
    query = query.substr(0, query.find('\0'));
    const std::string body = newline == std::string::npos ? std::string() : rest.substr(newline + 1);
    std::string length;
    switch ((data[0] >> 2) & 7) {
    case 0: length = std::to_string(body.size()); break;
    case 1: break;
    case 2: length = "0"; break;
    case 3: length = std::to_string(body.size() + 100); break;
    case 4: length = std::to_string(body.size() / 2); break;
    case 5: length = "-5"; break;
    case 6: length = "abc"; break;
    default: length = "99999999999999999999"; break;
    }

    // putenv of buffers of our own: setenv would keep every value ever set.
    static char method_var[32], query_var[2200], length_var[64];
    std::snprintf(method_var, sizeof method_var, "REQUEST_METHOD=%s", method != nullptr ? method : "");
    std::snprintf(query_var, sizeof query_var, "QUERY_STRING=%s", query.c_str());
    std::snprintf(length_var, sizeof length_var, "CONTENT_LENGTH=%s", length.c_str());
    if (method != nullptr)
        putenv(method_var);
    else
        unsetenv("REQUEST_METHOD");
    putenv(query_var);
    if ((data[0] >> 2 & 7) == 1)
        unsetenv("CONTENT_LENGTH");
    else
        putenv(length_var);
    OutputCapture capture(body);
    web_handle_request();
    return 0;
}

#include "replay_main.h"
