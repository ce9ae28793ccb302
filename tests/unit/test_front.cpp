#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

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

TEST(FrontRequest, QueryLengthLimit) {
    std::string q2047 = "zz" + std::string(2045, 'q');
    EXPECT_EQ(get(q2047), kJson + "{\"status\":-1,\"message\":" + q2047 + "}");
    EXPECT_EQ(get(q2047 + "q"), kErrorParams);
    EXPECT_EQ(get(std::string(10000, 'q')), kErrorParams);
}

TEST(FrontGetRouting, UnknownQueryEchoesTheDecodedText) {
    EXPECT_EQ(get("hello%41%7F"), kJson + "{\"status\":-1,\"message\":helloA%7F}");
    EXPECT_EQ(get(""), kJson + "{\"status\":-1,\"message\":}");
    EXPECT_EQ(get("camdata?x"), kJson + "{\"status\":-1,\"message\":camdata?x}");
    EXPECT_EQ(get("func=ge"), kJson + "{\"status\":-1,\"message\":func=ge}");
}

TEST(FrontGetRouting, CamdataMatchesTheWholeQueryInAnyCase) {
    std::string plain = get("camdata");
    EXPECT_EQ(plain.rfind(kText + "p1\r\nOID:PTZ-4K1\r\n", 0), 0u);
    EXPECT_EQ(get("CamData"), plain);
    EXPECT_EQ(get("%43amdata"), plain);  // routed after decoding
}

TEST(FrontGetRouting, SessionEndpoints) {
    EXPECT_EQ(get("event?connect=start&my_port=31004&uid=0"), "Status: 204 No Content\r\n\r\n");
    EXPECT_EQ(get("EVENT?"), "Status: 204 No Content\r\n\r\n");
    EXPECT_EQ(get("man_session?command=GET&x=1"), kText + "\"Event session:1\"\r\n");
    EXPECT_EQ(get("Man_Session?x=1&command=get"), kText + "\"Event session:1\"\r\n");
    EXPECT_EQ(get("man_session?command=set"), kText);
    EXPECT_EQ(get("man_session?command=getx"), kText);
    EXPECT_EQ(get("man_session?command="), kText);
    EXPECT_EQ(get("man_session?"), kText);
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

TEST(FrontPost, UnknownOrOverlongNameDrainsTheBody) {
    Outcome o = run("POST", "path=nothing", std::string(5000, 'b'));
    EXPECT_EQ(o.reply, kErrorParams);
    EXPECT_TRUE(o.drained);

    // Longer than the 32-byte name field: not found, nothing overwritten.
    o = run("POST", "path=sendPTZ" + std::string(200, 'x'), "{\"type\":12,\"speed\":1}");
    EXPECT_EQ(o.reply, kErrorParams);
    EXPECT_TRUE(o.drained);
    o = run("POST", "path=" + std::string(31, 's'), "x");
    EXPECT_EQ(o.reply, kErrorParams);

    // A body that ends before CONTENT_LENGTH does not hang the drain.
    o = run("POST", "path=nothing", "abc", "100000");
    EXPECT_EQ(o.reply, kErrorParams);

    // Short queries leave an empty name.
    EXPECT_EQ(run("POST", "pat", "").reply, kErrorParams);
    EXPECT_EQ(run("POST", "", "").reply, kErrorParams);
}

TEST(FrontPost, BodyReachesTheHandlerClearedAndCapped) {
    const std::string cmd = "{\"type\":12,\"speed\":1}";
    const std::string ok = kJson + "{\"status\":1,\"type\":12,\"speed\":1}";
    EXPECT_EQ(run("POST", "path=sendPTZ", cmd).reply, ok);

    // Nothing of the previous body survives: an empty body is no JSON.
    Outcome o = run("POST", "path=sendPTZ", "", "0");
    EXPECT_EQ(o.reply, kJson + "{\"status\":-1,\"message\":this is no json}");
    EXPECT_EQ(run("POST", "path=sendPTZ", cmd, "-5").reply,
              kJson + "{\"status\":-1,\"message\":this is no json}");

    // Exactly 2048 bytes still reach the handler as text.
    std::string full = cmd + std::string(2048 - cmd.size(), ' ');
    EXPECT_EQ(run("POST", "path=sendPTZ", full).reply, ok);

    // Beyond 2048 the rest is read and dropped, so trailing junk is unseen.
    o = run("POST", "path=sendPTZ", full + std::string(3000, '#'));
    EXPECT_EQ(o.reply, ok);
    EXPECT_TRUE(o.drained);

    // Names are case-sensitive.
    EXPECT_EQ(run("POST", "path=SENDPTZ", cmd).reply, kErrorParams);
}

TEST(FrontPost, SendPtzAndSendPresetAnswers) {
    EXPECT_EQ(run("POST", "path=sendPTZ", "{\"type\":12,\"speed\":300}").reply,
              kJson + "{\"status\":1,\"type\":12,\"speed\":300}");
    EXPECT_EQ(run("POST", "path=sendPTZ", "{\"type\":\"x\",\"speed\":2}").reply,
              kJson + "{\"status\":1,\"type\":-1,\"speed\":2}");
    EXPECT_EQ(run("POST", "path=sendPTZ", "{\"type\":12}").reply,
              kJson + "{\"status\":-1,\"message\":Invalid params}");
    EXPECT_EQ(run("POST", "path=sendPTZ", "nope").reply,
              kJson + "{\"status\":-1,\"message\":this is no json}");

    const std::string invalid = kJson + "{\"status\":-1,\"message\":Invalid params}";
    EXPECT_EQ(run("POST", "path=sendPreset", "{\"index\":-1,\"control\":\"add\"}").reply, invalid);
    EXPECT_EQ(run("POST", "path=sendPreset", "{\"index\":3}").reply, invalid);
    EXPECT_EQ(run("POST", "path=sendPreset", "{\"index\":\"3\",\"control\":\"set\"}").reply,
              invalid);
    EXPECT_EQ(run("POST", "path=sendPreset", "{\"index\":3,\"control\":7}").reply, invalid);
    // An unknown control word answers status 0 without touching the camera.
    EXPECT_EQ(run("POST", "path=sendPreset", "{\"index\":4,\"control\":\"move\"}").reply,
              kJson + "{\"status\":0,\"index\":4,\"speed\":\"move\"}");
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
