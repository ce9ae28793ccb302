#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "cgi/output.h"
#include "cgi/upload.h"
#include "front/post_cmd.h"
#include "cgi/reply.h"
#include "front/web.h"
#include "debug_texts.h"
#include "remote/session.h"

namespace {

const std::string kJson(kHdrJson);
const std::string kText(kHdrText);
const std::string kErrorParams = kJson + "{\"status\":-1,\"message\":Error params.\n}";

// Sets the CGI variables of one request and clears them again.
class Request {
public:
    Request(const char* method, const char* query, const char* length = nullptr) {
        set("REQUEST_METHOD", method);
        set("QUERY_STRING", query);
        set("CONTENT_LENGTH", length);
    }
    ~Request() {
        unsetenv("REQUEST_METHOD");
        unsetenv("QUERY_STRING");
        unsetenv("CONTENT_LENGTH");
    }

private:
    static void set(const char* name, const char* value) {
        if (value) setenv(name, value, 1);
        else unsetenv(name);
    }
};

// Runs one request with `body` on the input; returns the reply and whether
// the whole body was consumed.
struct Outcome {
    std::string reply;
    bool drained;
};

Outcome run(const char* method, const std::string& query, const std::string& body = {},
            const char* length = nullptr) {
    std::string len = length ? length : std::to_string(body.size());
    Request req(method, query.c_str(), len.c_str());
    OutputCapture cap(body);
    web_handle_request();
    bool drained = in_getchar() == -1;
    return {cap.text(), drained};
}

std::string get(const std::string& query) { return run("GET", query).reply; }

}  // namespace

TEST(FrontRequest, MissingVariablesOrOtherMethodsGetNoReply) {
    {
        Request req(nullptr, "camdata");
        OutputCapture cap;
        web_handle_request();
        EXPECT_EQ(cap.text(), "");
    }
    {
        Request req("GET", nullptr);
        OutputCapture cap;
        web_handle_request();
        EXPECT_EQ(cap.text(), "");
    }
    EXPECT_EQ(run("PUT", "camdata").reply, "");
    EXPECT_EQ(run("get", "camdata").reply, "");  // the method is compared exactly
}

TEST(FrontGetRouting, CamdataMatchesTheWholeQueryInAnyCase) {
    std::string plain = get("camdata");
    EXPECT_EQ(plain.rfind(kText + "p1\r\nOID:PTZ-4K1\r\n", 0), 0u);
    EXPECT_EQ(get("CamData"), plain);
    EXPECT_EQ(get("%43amdata"), plain);  // routed after decoding
}

TEST(FrontSession, CamdataBlockIsFixedAndComplete) {
    std::string first;
    {
        OutputCapture cap;
        EXPECT_EQ(camdata(), 0);
        first = cap.text();
    }
    ASSERT_GT(first.size(), kText.size());
    std::string body = first.substr(kText.size());
    EXPECT_EQ(body.substr(body.size() - 4), "\r\n\r\n");
    for (const char* line :
         {"OID:PTZ-4K1", "CGI_TIME:0", "OSA:87:0x1A", "TITLE:PTZ-4K1", "OSD:48:0x32", "ORS:1",
          "OSJ:01:0x1", "OSJ:02:0x0", "OSJ:06:0x0078", "OSJ:09:0x001F4", "OSD:BF:4", "OFT:0",
          "OAW:2", "OSF:2", "OAF:1", "ODE:0", "OIS:0", "OBR:0", "TLR:0", "TLG:0", "OAZ:0", "OUS:0",
          "OER:0", "OSJ:5C:50545A2D344B31000000000000000000", "OSJ:1C:0x80", "OSD:97:0x80"}) {
        EXPECT_NE(body.find(std::string("\r\n") + line + "\r\n"), std::string::npos) << line;
    }
    EXPECT_LT(body.find("\r\nOSD:9B:"), body.find("\r\nOSD:86:"));
    EXPECT_LT(body.find("\r\nrER00\r\n"), body.find("\r\naPC"));
    EXPECT_EQ(body.substr(body.size() - 15), "\nOSJ:5A:0x0\r\n\r\n");
    OutputCapture again;
    camdata();
    EXPECT_EQ(again.text(), first);
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

const std::vector<Case> kCases = {
    // GET: the query limit, the unknown-query echo after decoding, sessions
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

class FrontUpload : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/front_upload_XXXXXX";
        int fd = mkstemp(tmpl);
        ASSERT_GE(fd, 0);
        close(fd);
        std::remove(tmpl);
        path_ = tmpl;
        upload_set_path(path_.c_str());
        upload_set_armed(true);
    }
    void TearDown() override {
        upload_set_armed(false);
        upload_set_path(nullptr);
        std::remove(path_.c_str());
    }
    std::string file_text() const {
        std::ifstream in(path_, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    std::string path_;
};

TEST_F(FrontUpload, AppendsEveryPieceAndAnswersTheSize) {
    std::string image(5000, '\0');
    for (size_t i = 0; i < image.size(); ++i) image[i] = static_cast<char>(i * 7);
    Outcome o = run("POST", "path=update", image);
    EXPECT_EQ(o.reply, kJson + "{\"status\":1,\"size\":5000}");
    EXPECT_TRUE(o.drained);
    EXPECT_EQ(run("POST", "path=update", "tail").reply, kJson + "{\"status\":1,\"size\":4}");
    EXPECT_EQ(file_text(), image + "tail");
    EXPECT_TRUE(upload_is_complete());
}

TEST_F(FrontUpload, ShortBodyStopsAtWhatArrived) {
    EXPECT_EQ(run("POST", "path=update", std::string(3000, 'u'), "5000").reply,
              kJson + "{\"status\":1,\"size\":3000}");
    EXPECT_EQ(file_text(), std::string(3000, 'u'));
    EXPECT_EQ(run("POST", "path=update", "", "0").reply, kJson + "{\"status\":1,\"size\":0}");
}

// An image that could not be written (no file, a full disk) is answered as
// always but known to be incomplete until the upload is armed again.
TEST_F(FrontUpload, UnwritableFileStillDrainsAndAnswers) {
    for (const char* where : {"/nonexistent-dir/update.bin", "/dev/full"}) {
        upload_set_armed(true);
        upload_set_path(where);
        Outcome o = run("POST", "path=update", std::string(2100, 'z'));
        EXPECT_EQ(o.reply, kJson + "{\"status\":1,\"size\":2100}") << where;
        EXPECT_TRUE(o.drained) << where;
        EXPECT_FALSE(upload_is_complete()) << where;
    }
    upload_set_armed(true);
    EXPECT_TRUE(upload_is_complete());
}

TEST_F(FrontUpload, NotArmedIsAnUnknownName) {
    upload_set_armed(false);
    EXPECT_FALSE(upload_is_armed());
    Outcome o = run("POST", "path=update", std::string(100, 'z'));
    EXPECT_EQ(o.reply, kErrorParams);
    EXPECT_TRUE(o.drained);
    EXPECT_EQ(file_text(), "");
}

// Every movement of "sendPTZ" is logged at debug level with its own text,
// whether or not the camera link is up; an unknown type logs nothing.
TEST(FrontPost, MovementsLogTheirText) {
    const std::string texts = debug_texts([] {
        for (int type = 0; type <= 12; ++type) json_ptz_ctrl(type, 1);
    }, "Tram");
    EXPECT_EQ(texts,
              "PTZ Stop\nHome\nPTZ Up\nPTZ Right\nPTZ Down\nPTZ Left\n"
              "Focus Far\nFocus Near\nFocus Stop\nZoom In\nZoom Out\nZoom Stop\n");
}
