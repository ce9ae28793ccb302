// The web server in front of the responder: each URL form that clients use
// reaches the responder with the query its routing expects. Every HTTP reply
// is compared with the reply to that query sent straight to the responder,
// so a wrong rewrite shows whatever the route answers (the unknown-query
// reply even echoes the query it got).
#include "e2e/harness.h"

#include <gtest/gtest.h>

#include <strings.h>

namespace {

using namespace e2e;

struct Reply {
    std::string status_line;
    std::string content_type;
    std::string body;
};

Reply parse_http(const std::string& resp) {
    Reply r;
    const size_t eol = resp.find("\r\n");
    r.status_line = resp.substr(0, eol);
    const size_t end = resp.find("\r\n\r\n");
    if (end == std::string::npos) return r;
    const std::string headers = resp.substr(0, end + 2);
    for (size_t pos = eol + 2; pos < headers.size();) {
        const size_t next = headers.find("\r\n", pos);
        const std::string line = headers.substr(pos, next - pos);
        if (line.size() > 13 && strncasecmp(line.c_str(), "Content-Type:", 13) == 0)
            r.content_type = line.substr(line.find_first_not_of(' ', 13));
        pos = next + 2;
    }
    r.body = resp.substr(end + 4);
    return r;
}

// The CGI reply's own status ("Status: 204 No Content") or 200.
std::string cgi_status(const std::string& reply) {
    const size_t pos = reply.find("Status: ");
    if (pos == std::string::npos) return "200 OK";
    return reply.substr(pos + 8, reply.find("\r\n", pos) - pos - 8);
}

struct RewriteRow {
    const char* url;    // as a client sends it
    const char* query;  // what the responder must receive
};

// Queries whose answers do not depend on the camera's moving state.
constexpr RewriteRow kRewrites[] = {
    {"/cgi-bin/web.fcgi?nonsense", "nonsense"},
    {"/cgi-bin/web.fcgi?func=get%7B%22image%22:%7B%22focus_mode%22:true%7D%7D",
     "func=get%7B%22image%22:%7B%22focus_mode%22:true%7D%7D"},
    {"/cgi-bin/aw_ptz?cmd=%23D1&res=1", "aw_ptz?cmd=%23D1&res=1"},
    {"/cgi-bin/aw_ptz?cmd=%23O&res=1", "aw_ptz?cmd=%23O&res=1"},
    {"/cgi-bin/aw_cam?cmd=QID&res=1", "aw_cam?cmd=QID&res=1"},
    {"/cgi-bin/event?connect=start&my_port=31004&uid=0", "event?connect=start&my_port=31004&uid=0"},
    {"/cgi-bin/man_session?command=get", "man_session?command=get"},
    {"/live/camdata.html", "camdata"},
    {"/live/camdata.html?x=1", "camdata"},
    {"/mw-api/v1/device/summary", "path=/mw-api/v1/device/summary"},
    {"/controlhub", "controlhub"},
};

TEST(Rewrite, EachClientUrlReachesItsRoute) {
    for (const auto& row : kRewrites) {
        SCOPED_TRACE(row.url);
        const std::string direct = get(row.query);
        ASSERT_FALSE(direct.empty()) << "no reply from the responder for " << row.query;
        const Reply http = parse_http(http_get(row.url));
        EXPECT_EQ(http.status_line, "HTTP/1.0 " + cgi_status(direct));
        EXPECT_EQ(http.body, body_of(direct));
    }
}

// Exchanges whose answer through the web server is fixed: the status line,
// the content type and the body (nullptr: not compared).
TEST(Rewrite, FixedAnswersThroughTheWebServer) {
    struct Row {
        const char* url;
        const char* post;  // the body of a POST, nullptr for a GET
        const char* status;
        const char* type;
        const char* body;
    };
    const Row rows[] = {
        {"/cgi-bin/web.fcgi?nonsense", nullptr, "200 OK", "application/json", "{\"status\":-1,\"message\":nonsense}"},
        {"/mw-api/v1/preview/image", nullptr, "200 OK", "image/jpeg", nullptr},
        // a movement type that sends nothing
        {"/cgi-bin/web.fcgi?path=sendPTZ", "{\"type\":12,\"speed\":1}", "200 OK", "application/json",
         "{\"status\":1,\"type\":12,\"speed\":1}"},
        // an unknown name: the body drained and the error envelope sent
        {"/cgi-bin/web.fcgi?path=nothere", "{\"a\":1}", "200 OK", "application/json",
         "{\"status\":-1,\"message\":Error params.\n}"},
        {"/cgi-bin/aw_other?cmd=x", nullptr, "404 Not Found", nullptr, nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.url);
        const Reply r = parse_http(row.post ? http_post(row.url, row.post) : http_get(row.url));
        EXPECT_EQ(r.status_line, std::string("HTTP/1.0 ") + row.status);
        if (row.type) {
            EXPECT_EQ(r.content_type, row.type);
        }
        if (row.body) {
            EXPECT_EQ(r.body, row.body);
        }
    }
}

}  // namespace
