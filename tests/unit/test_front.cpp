// The request front end in one process: routing, the POST commands, the
// session blocks and the firmware upload, as rows.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "cgi/output.h"
#include "cgi/upload.h"
#include "front/post_cmd.h"
#include "cgi/reply.h"
#include "front/web.h"
#include "remote/session.h"
#include "fake_camera.h"
#include "fake_files.h"
#include "scratch.h"

namespace {

const std::string kJson(kHdrJson);
const std::string kText(kHdrText);
const std::string kErrorParams = kJson + "{\"status\":-1,\"message\":Error params.\n}";

// Runs one request with `body` on the input; returns the reply and whether
// the whole body was consumed.
struct Outcome {
    std::string reply;
    bool drained;
};

Outcome run(const char* method, const std::string& query, const std::string& body = {},
            const char* length = nullptr) {
    setenv("REQUEST_METHOD", method, 1);
    setenv("QUERY_STRING", query.c_str(), 1);
    setenv("CONTENT_LENGTH", length ? length : std::to_string(body.size()).c_str(), 1);
    OutputCapture cap(body);
    web_handle_request();
    const bool drained = in_getchar() == -1;
    for (const char* name : {"REQUEST_METHOD", "QUERY_STRING", "CONTENT_LENGTH"}) unsetenv(name);
    return {cap.text(), drained};
}

std::string get(const std::string& query) { return run("GET", query).reply; }

}  // namespace

TEST(FrontGetRouting, CamdataMatchesTheWholeQueryInAnyCase) {
    std::string plain = get("camdata");
    EXPECT_EQ(plain.rfind(kText + "p1\r\nOID:PTZ-4K1\r\n", 0), 0u);
    EXPECT_EQ(get("CamData"), plain);
    EXPECT_EQ(get("%43amdata"), plain);  // routed after decoding
}

// The block is fixed text: its ordering and its end are what clients parse.
TEST(FrontSession, CamdataBlockIsFixedAndComplete) {
    OutputCapture cap;
    EXPECT_EQ(camdata(), 0);
    const std::string first = cap.text();
    const std::string body = first.substr(kText.size());
    EXPECT_NE(body.find("\r\nOSJ:5C:50545A2D344B31000000000000000000\r\n"), std::string::npos);
    EXPECT_LT(body.find("\r\nOSD:9B:"), body.find("\r\nOSD:86:"));
    EXPECT_LT(body.find("\r\nrER00\r\n"), body.find("\r\naPC"));
    EXPECT_TRUE(body.ends_with("\nOSJ:5A:0x0\r\n\r\n"));
    camdata();
    EXPECT_EQ(cap.text(), first + first);
}

TEST(FrontPostRoutes, LookupIsExactAndInTableOrder) {
    EXPECT_EQ(post_route_find("sendPTZ"), 0);
    EXPECT_EQ(post_route_selected(), 0);
    EXPECT_EQ(post_route_find("set"), 0);
    EXPECT_EQ(post_route_selected(), 3);
    EXPECT_EQ(post_route_find("sendptz"), -ENOENT);
    EXPECT_EQ(post_route_find("sendPTZ "), -ENOENT);
    EXPECT_EQ(post_route_find(""), -ENOENT);
    EXPECT_EQ(post_route_selected(), 3);
}

// One request each: method, query, body (and CONTENT_LENGTH when it is not
// the body's size), the exact reply, and whether the body was read to its end.
struct Case {
    const char* name;
    const char* method;
    std::string query;
    std::string body;
    const char* length;
    std::string reply;
    bool drained = true;
};

const std::string kPtzCmd = R"({"type":12,"speed":1})";
const std::string kPtzOk = kJson + R"({"status":1,"type":12,"speed":1})";
const std::string kNoJson = kJson + R"({"status":-1,"message":this is no json})";
const std::string kInvalid = kJson + R"({"status":-1,"message":Invalid params})";
const std::string kFullBody = kPtzCmd + std::string(2048 - kPtzCmd.size(), ' ');
const std::string kQ2047 = "zz" + std::string(2045, 'q');

// clang-format off
const std::vector<Case> kCases = {
    // GET: the query limit, the unknown-query echo after decoding, sessions
    {"method compared exactly", "get", "camdata", "", nullptr, ""},
    {"other method", "PUT", "camdata", "", nullptr, ""},
    {"2047 characters", "GET", kQ2047, "", nullptr, kJson + R"({"status":-1,"message":)" + kQ2047 + "}"},
    {"2048 characters", "GET", kQ2047 + "q", "", nullptr, kErrorParams},
    {"far too long", "GET", std::string(10000, 'q'), "", nullptr, kErrorParams},
    {"decoded echo", "GET", "hello%41%7F", "", nullptr, kJson + R"({"status":-1,"message":helloA%7F})"},
    {"empty query", "GET", "", "", nullptr, kJson + R"({"status":-1,"message":})"},
    {"camdata with more", "GET", "camdata?x", "", nullptr, kJson + R"({"status":-1,"message":camdata?x})"},
    {"half a prefix", "GET", "func=ge", "", nullptr, kJson + R"({"status":-1,"message":func=ge})"},
    {"event", "GET", "event?connect=start&my_port=31004&uid=0", "", nullptr, "Status: 204 No Content\r\n\r\n"},
    {"event in capitals", "GET", "EVENT?", "", nullptr, "Status: 204 No Content\r\n\r\n"},
    {"session get", "GET", "man_session?command=GET&x=1", "", nullptr, kText + "\"Event session:1\"\r\n"},
    {"session get later", "GET", "Man_Session?x=1&command=get", "", nullptr, kText + "\"Event session:1\"\r\n"},
    {"session set", "GET", "man_session?command=set", "", nullptr, kText},
    {"session getx", "GET", "man_session?command=getx", "", nullptr, kText},
    {"session empty command", "GET", "man_session?command=", "", nullptr, kText},
    {"session nothing", "GET", "man_session?", "", nullptr, kText},
    // POST names: exact, at most the 32-byte field, and the body drained
    {"unknown name", "POST", "path=nothing", std::string(5000, 'b'), nullptr, kErrorParams},
    {"name beyond its field", "POST", "path=sendPTZ" + std::string(200, 'x'), kPtzCmd, nullptr, kErrorParams},
    {"31-character name", "POST", "path=" + std::string(31, 's'), "x", nullptr, kErrorParams},
    {"a body that ends early", "POST", "path=nothing", "abc", "100000", kErrorParams},
    {"short query", "POST", "pat", "", nullptr, kErrorParams},
    {"empty query", "POST", "", "", nullptr, kErrorParams},
    {"names are case-sensitive", "POST", "path=SENDPTZ", kPtzCmd, nullptr, kErrorParams},
    // bodies: cleared between requests, capped at 2048 bytes
    {"a command", "POST", "path=sendPTZ", kPtzCmd, nullptr, kPtzOk},
    {"nothing survives of the last body", "POST", "path=sendPTZ", "", "0", kNoJson},
    {"a negative length is none", "POST", "path=sendPTZ", kPtzCmd, "-5", kNoJson, false},
    {"exactly 2048 bytes", "POST", "path=sendPTZ", kFullBody, nullptr, kPtzOk},
    {"beyond 2048 read and dropped", "POST", "path=sendPTZ", kFullBody + std::string(3000, '#'), nullptr, kPtzOk},
    // sendPTZ and sendPreset answers
    {"speed answered whole", "POST", "path=sendPTZ", R"({"type":12,"speed":300})", nullptr,
     kJson + R"({"status":1,"type":12,"speed":300})"},
    {"type not a number", "POST", "path=sendPTZ", R"({"type":"x","speed":2})", nullptr,
     kJson + R"({"status":1,"type":-1,"speed":2})"},
    {"no speed", "POST", "path=sendPTZ", R"({"type":12})", nullptr, kInvalid},
    {"no json", "POST", "path=sendPTZ", "nope", nullptr, kNoJson},
    {"preset -1", "POST", "path=sendPreset", R"({"index":-1,"control":"add"})", nullptr, kInvalid},
    {"preset without control", "POST", "path=sendPreset", R"({"index":3})", nullptr, kInvalid},
    {"preset index as text", "POST", "path=sendPreset", R"({"index":"3","control":"set"})", nullptr, kInvalid},
    {"preset control as number", "POST", "path=sendPreset", R"({"index":3,"control":7})", nullptr, kInvalid},
    {"unknown control word: status 0", "POST", "path=sendPreset", R"({"index":4,"control":"move"})", nullptr,
     kJson + R"({"status":0,"index":4,"speed":"move"})"},
};
// clang-format on

TEST(FrontRequests, Rows) {
    for (const Case& c : kCases) {
        const Outcome o = run(c.method, c.query, c.body, c.length);
        EXPECT_EQ(o.reply, c.reply) << c.method << " " << c.name;
        if (c.drained) {
            EXPECT_TRUE(o.drained) << c.method << " " << c.name;
        }
    }
    EXPECT_EQ(json_ptz_ctrl(12, 1), 0);
    EXPECT_EQ(json_ptz_ctrl(-1, 1), 0);
}

// The POST commands' packets: each row a body, the answer and what the
// camera received, in order.
TEST(FrontPost, CommandsAndTheirPackets) {
    struct PostCase {
        const char* route;
        const char* body;
        const char* answer;
        std::vector<std::string> packets;
    };
    // clang-format off
    const PostCase cases[] = {
        // every movement type at speed 23 (0x17; zoom and focus take its low four bits)
        {"sendPTZ", R"({"type":0,"speed":23})", R"({"status":1,"type":0,"speed":23})", {"81 01 06 01 17 17 03 03 ff"}},
        {"sendPTZ", R"({"type":1,"speed":23})", R"({"status":1,"type":1,"speed":23})", {"81 01 06 04 ff"}},
        {"sendPTZ", R"({"type":2,"speed":23})", R"({"status":1,"type":2,"speed":23})", {"81 01 06 01 17 17 03 01 ff"}},
        {"sendPTZ", R"({"type":3,"speed":23})", R"({"status":1,"type":3,"speed":23})", {"81 01 06 01 17 17 02 03 ff"}},
        {"sendPTZ", R"({"type":4,"speed":23})", R"({"status":1,"type":4,"speed":23})", {"81 01 06 01 17 17 03 02 ff"}},
        {"sendPTZ", R"({"type":5,"speed":23})", R"({"status":1,"type":5,"speed":23})", {"81 01 06 01 17 17 01 03 ff"}},
        {"sendPTZ", R"({"type":6,"speed":23})", R"({"status":1,"type":6,"speed":23})", {"81 01 04 38 03 ff", "81 01 04 08 37 ff"}},
        {"sendPTZ", R"({"type":7,"speed":23})", R"({"status":1,"type":7,"speed":23})", {"81 01 04 38 03 ff", "81 01 04 08 27 ff"}},
        {"sendPTZ", R"({"type":8,"speed":23})", R"({"status":1,"type":8,"speed":23})", {"81 01 04 38 03 ff", "81 01 04 08 00 ff"}},
        {"sendPTZ", R"({"type":9,"speed":23})", R"({"status":1,"type":9,"speed":23})", {"81 01 04 07 27 ff"}},
        {"sendPTZ", R"({"type":10,"speed":23})", R"({"status":1,"type":10,"speed":23})", {"81 01 04 07 37 ff"}},
        {"sendPTZ", R"({"type":11,"speed":23})", R"({"status":1,"type":11,"speed":23})", {"81 01 04 07 00 ff"}},
        {"sendPTZ", R"({"type":12,"speed":23})", R"({"status":1,"type":12,"speed":23})", {}},
        {"sendPTZ", R"({"type":3,"speed":300})", R"({"status":1,"type":3,"speed":300})", {"81 01 06 01 2c 2c 02 03 ff"}},
        {"sendPTZ", R"({"type":9})", R"({"status":-1,"message":Invalid params})", {}},
        {"sendPreset", R"({"index":3,"control":"SET"})", R"({"status":1,"index":3,"speed":"SET"})", {"81 01 04 3f 01 00 03 ff"}},
        {"sendPreset", R"({"index":260,"control":"add"})", R"({"status":1,"index":260,"speed":"add"})", {"81 01 04 3f 00 00 04 ff"}},
        {"sendPreset", R"({"index":2,"control":"jump"})", R"({"status":0,"index":2,"speed":"jump"})", {}},
        {"sendPreset", R"({"index":4,"control":"del"})", R"({"status":1,"index":4,"speed":"del"})", {"81 01 04 3f 02 00 04 ff"}},
    };
    // clang-format on
    fake::FakeCamera camera;
    const fake::CameraInstalled installed(camera);
    camera.answer = [](const fake::Bytes&) -> std::optional<fake::Bytes> {
        return fake::Bytes{0x90, 0x51, 0xFF};
    };
    for (const PostCase& c : cases) {
        SCOPED_TRACE(std::string(c.route) + " " + c.body);
        camera.log.clear();
        EXPECT_EQ(run("POST", std::string("path=") + c.route, c.body).reply, kJson + c.answer);
        EXPECT_EQ(camera.sent(), c.packets);
    }
}

// The firmware upload: each row writes into a fresh /tmp/update.bin below a
// root of its own (or, as `where` says, into a root without /tmp or onto a
// full disk) and says what the file holds
// afterwards and whether the image counts as complete.
TEST(FrontUpload, Rows) {
    struct Upload {
        const char* name;
        bool armed;
        std::vector<std::pair<std::string, const char*>> pieces;  // body, CONTENT_LENGTH
        std::vector<std::string> replies;
        const char* where;
        bool complete;
        std::string file;  // what the file holds afterwards, when it is ours
    };
    std::string image(5000, '\0');
    for (size_t i = 0; i < image.size(); ++i) image[i] = static_cast<char>(i * 7);
    const auto size = [](int n) { return kJson + "{\"status\":1,\"size\":" + std::to_string(n) + "}"; };
    // clang-format off
    const Upload rows[] = {
        {"every piece appended", true, {{image, nullptr}, {"tail", nullptr}}, {size(5000), size(4)}, nullptr, true, image + "tail"},
        {"a short body stops at what arrived", true, {{std::string(3000, 'u'), "5000"}, {"", "0"}},
         {size(3000), size(0)}, nullptr, true, std::string(3000, 'u')},
        {"no directory", true, {{std::string(2100, 'z'), nullptr}}, {size(2100)}, "no /tmp", false, ""},
        {"a full disk", true, {{std::string(2100, 'z'), nullptr}}, {size(2100)}, "full", false, ""},
        {"not armed: an unknown name", false, {{std::string(100, 'z'), nullptr}}, {kErrorParams}, nullptr, true, ""},
    };
    // clang-format on
    for (const Upload& u : rows) {
        SCOPED_TRACE(u.name);
        const Scratch dir("front_upload");
        const fake::RootInstalled root(dir.path());
        const std::string path =
            u.where && std::string(u.where) == "no /tmp" ? "" : root.make("/tmp/update.bin");
        if (u.where && std::string(u.where) == "full") std::filesystem::create_symlink("/dev/full", path);
        upload_set_armed(true);  // arming forgets a piece lost before
        upload_set_armed(u.armed);
        for (size_t i = 0; i < u.pieces.size(); ++i) {
            const Outcome o = run("POST", "path=update", u.pieces[i].first, u.pieces[i].second);
            EXPECT_EQ(o.reply, u.replies[i]);
            EXPECT_TRUE(o.drained);
        }
        if (!u.where) {
            EXPECT_EQ(slurp(path), u.file);
        }
        EXPECT_EQ(upload_is_complete(), u.complete);
    }
    upload_set_armed(false);
}
