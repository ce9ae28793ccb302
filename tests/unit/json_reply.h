// The reply of a JSON dispatcher to one request made with the method GET
// (no key needed), as compact text: headers dropped, the printed tree
// printed again without its tabs and line breaks.
#pragma once

#include <gtest/gtest.h>

#include <cjson/cJSON.h>

#include <cstdlib>
#include <string>

#include "cgi/output.h"
#include "support/owners.h"

inline std::string json_reply(int (*dispatcher)(const char*), const std::string& request) {
    setenv("REQUEST_METHOD", "GET", 1);
    OutputCapture capture;
    EXPECT_EQ(dispatcher(request.c_str()), 0) << request;
    const std::string& out = capture.text();
    const size_t body = out.find("\r\n\r\n");
    JsonTree reply(body != std::string::npos ? cJSON_Parse(out.c_str() + body + 4) : nullptr);
    JsonText compact(reply ? cJSON_PrintUnformatted(reply.get()) : nullptr);
    return compact ? compact.get() : "(unparsable)";
}
