// The web server in front of the responder (lighttpd, and again nginx with
// the same tests): each URL form that clients use reaches the responder with
// the query its routing expects. Every HTTP reply is compared with the reply
// to that query sent straight to the responder, so a wrong rewrite shows
// whatever the route answers (the unknown-query reply even echoes the query
// it got). Then what the shipped configurations answer themselves: other
// methods, the log prefix, the pages, the access blocks.
#include "e2e/harness.h"

#include <gtest/gtest.h>

#include <strings.h>

#include <cstdlib>
#include <fstream>

namespace {

using namespace e2e;

struct Reply {
    std::string status_line;  // without the protocol version
    std::string content_type;
    std::string body;
};

Reply parse_http(const std::string& resp) {
    Reply r;
    const size_t eol = resp.find("\r\n");
    r.status_line = resp.substr(0, eol);
    if (const size_t space = r.status_line.find(' '); space != std::string::npos)
        r.status_line.erase(0, space + 1);
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
        EXPECT_EQ(http.status_line, cgi_status(direct));
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
        {"/cgi-bin/web.fcgi?nonsense", nullptr, "200 OK", "application/json",
         "{\"status\":-1,\"message\":nonsense}"},
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
        EXPECT_EQ(r.status_line, row.status);
        if (row.type) {
            EXPECT_EQ(r.content_type, row.type);
        }
        if (row.body) {
            EXPECT_EQ(r.body, row.body);
        }
    }
}

std::string curl(std::vector<std::string> args) {
    args.insert(args.begin(), {"curl", "-s", "--max-time", "10", "-o", "/dev/null", "-w", "%{http_code}"});
    return run_program(args);
}
std::string base(const char* port_var) {
    const char* port = std::getenv(port_var);
    return port != nullptr && *port != '\0' ? std::string("http://127.0.0.1:") + port : std::string();
}

// The responder answers GET and POST only; the web server answers the other
// methods of its routes itself (403 from lighttpd, 405 from nginx), so a
// health check's HEAD never reaches it.
TEST(WebServer, OtherMethodsAreAnsweredBeforeTheResponder) {
    for (const char* method : {"HEAD", "PUT", "DELETE", "OPTIONS"}) {
        for (const char* route :
             {"/cgi-bin/web.fcgi?nonsense", "/controlhub", "/cgi-bin/aw_ptz?cmd=%23O&res=1"}) {
            const std::string url = base("WEB_HTTP_PORT") + route;
            const std::string code =
                std::string(method) == "HEAD" ? curl({"-I", url}) : curl({"-X", method, url});
            EXPECT_TRUE(code == "403" || code == "405") << method << " " << route << ": " << code;
        }
    }
    EXPECT_EQ(curl({"-I", base("WEB_HTTP_PORT") + "/"}), "200");  // the pages answer HEAD
}

// The camera links /tmp into its web root for the log files: only those are
// served under that prefix.
TEST(WebServer, TheLogPrefixServesOnlyLogs) {
    { std::ofstream(run_path("root/tmp/update.bin")) << "image"; }
    ASSERT_NE(compact(R"(func=get{"system":{"log":"kernel"}})").find("/tmp/kernel.log"), std::string::npos);
    const std::string at = base("WEB_HTTP_PORT") + "/tmp/";
    for (const char* refused : {"update.bin", "snap.jpg", "sd.status", "kernel.log.bak"})
        EXPECT_EQ(curl({at + refused}), "403") << refused;
    EXPECT_EQ(curl({"--path-as-is", at + "../etc/passwd"}), "404");  // leaves the prefix: no such page
    const Reply log = parse_http(http_get("/tmp/kernel.log"));
    EXPECT_EQ(log.status_line, "200 OK");
    EXPECT_NE(log.body.find("simulated camera"), std::string::npos) << log.body;
}

TEST(WebServer, ThePagesAreServed) {
    const Reply page = parse_http(http_get("/"));
    EXPECT_EQ(page.status_line, "200 OK");
    EXPECT_NE(page.body.find("id=\"live\""), std::string::npos);
    EXPECT_EQ(curl({base("WEB_HTTP_PORT") + "/js/api.js"}), "200");
}

// The shipped access blocks, switched on: every route and the pages ask for
// credentials; HTTP Basic from the user file lets a request through on both
// servers, and lighttpd's Digest block takes Digest instead.
TEST(WebServer, AccessBlocksAskForCredentials) {
    const std::string basic = base("WEB_AUTH_PORT"), digest = base("WEB_DIGEST_PORT");
    ASSERT_FALSE(basic.empty()) << "no web server with the access block";
    for (const std::string& at : {basic, digest}) {
        if (at.empty()) continue;  // nginx has no Digest
        for (const char* route : {"/cgi-bin/web.fcgi?nonsense", "/cgi-bin/aw_ptz?cmd=%23APC&res=1",
                                  "/controlhub", "/", "/js/api.js"})
            EXPECT_EQ(curl({at + route}), "401") << at << route;
    }
    struct Row {
        const std::string& at;
        const char* scheme;
        const char* user;
        const char* code;
    };
    const Row rows[] = {
        {basic, "--basic", "admin:camera", "200"},  {basic, "--basic", "admin:wrong", "401"},
        {basic, "--digest", "admin:camera", "401"}, {digest, "--digest", "admin:camera", "200"},
        {digest, "--digest", "admin:wrong", "401"}, {digest, "--basic", "admin:camera", "401"},
    };
    for (const Row& r : rows) {
        if (r.at.empty()) continue;
        EXPECT_EQ(curl({r.scheme, "-u", r.user, r.at + "/controlhub"}), r.code)
            << r.at << " " << r.scheme << " " << r.user;
    }
}

}  // namespace
