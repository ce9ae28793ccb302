// The request front end through the running responder: method and length
// checks, routing, the session endpoints, the POST commands with the packets
// the camera received, and the firmware upload gate.
#include "e2e/harness.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

namespace {

using namespace e2e;
using Lines = std::vector<std::string>;

const std::string kJson = "Content-type: application/json\r\nStatus: 200 OK\r\n\r\n";
const std::string kText = "Content-type: text/plain\r\nStatus: 200 OK\r\n\r\n";
const std::string kErrorParams = kJson + "{\"status\":-1,\"message\":Error params.\n}";

long file_size(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 ? static_cast<long>(st.st_size) : -1;
}

class FrontE2E : public ::testing::Test {
protected:
    void SetUp() override { visca.mark(); }
    Journal visca{"visca.log"};
};

}  // namespace

TEST_F(FrontE2E, RequestsWithoutAnswer) {
    EXPECT_EQ(body_of(fcgi({{"QUERY_STRING", "camdata"}})), "");
    EXPECT_EQ(body_of(fcgi({{"REQUEST_METHOD", "GET"}})), "");
    EXPECT_EQ(fcgi({{"REQUEST_METHOD", "PUT"}, {"QUERY_STRING", "camdata"}}), "");
    // The responder is still serving afterwards.
    EXPECT_EQ(get("man_session?command=get"), kText + "\"Event session:1\"\r\n");
}

TEST_F(FrontE2E, GetRoutingAndLimits) {
    EXPECT_EQ(get(std::string(2048, 'q')), kErrorParams);
    std::string q2047 = "zz" + std::string(2045, 'q');
    EXPECT_EQ(get(q2047), kJson + "{\"status\":-1,\"message\":" + q2047 + "}");
    EXPECT_EQ(get("nothing%20here+x"), kJson + "{\"status\":-1,\"message\":nothing here+x}");
    EXPECT_EQ(get("camdata?x"), kJson + "{\"status\":-1,\"message\":camdata?x}");
    EXPECT_EQ(get("event?connect=start&my_port=31004&uid=0"), "Status: 204 No Content\r\n\r\n");
    EXPECT_EQ(get("man_session?command=GET&x=1"), kText + "\"Event session:1\"\r\n");
    EXPECT_EQ(get("man_session?command=set"), kText);
}

TEST_F(FrontE2E, CamdataIsFixed) {
    std::string first = get("CamData");
    ASSERT_EQ(first.rfind(kText + "p1\r\nOID:PTZ-4K1\r\nCGI_TIME:0\r\nOSA:87:0x1A\r\n", 0), 0u);
    EXPECT_NE(first.find("\r\nTITLE:PTZ-4K1\r\n"), std::string::npos);
    EXPECT_EQ(first.substr(first.size() - 4), "\r\n\r\n");
    get("aw_ptz?cmd=%23APC90009000&res=1");
    EXPECT_EQ(get("camdata"), first);
    visca_until_sentinel(visca);
}

// The POST commands: each row a body, the answer's body and the packets the
// camera received (proven complete by a closing inquiry).
struct PostCase {
    const char* route;
    const char* body;
    const char* answer;
    Lines packets;
};
const std::vector<PostCase> kPostCases = {
    {"sendPTZ", R"({"type":9,"speed":5})", R"({"status":1,"type":9,"speed":5})", {"81 01 04 07 25 ff"}},
    {"sendPTZ", R"({"type":3,"speed":300})", R"({"status":1,"type":3,"speed":300})", {"81 01 06 01 2c 2c 02 03 ff"}},
    {"sendPTZ", R"({"type":0,"speed":4})", R"({"status":1,"type":0,"speed":4})", {"81 01 06 01 04 04 03 03 ff"}},
    {"sendPTZ", R"({"type":6,"speed":21})", R"({"status":1,"type":6,"speed":21})",
     {"81 01 04 38 03 ff", "81 01 04 08 35 ff"}},
    {"sendPTZ", R"({"type":11,"speed":1})", R"({"status":1,"type":11,"speed":1})", {"81 01 04 07 00 ff"}},
    {"sendPTZ", R"({"type":12,"speed":1})", R"({"status":1,"type":12,"speed":1})", {}},
    {"sendPTZ", R"({"type":9})", R"({"status":-1,"message":Invalid params})", {}},
    {"sendPTZ", "type=9", R"({"status":-1,"message":this is no json})", {}},
    {"sendPreset", R"({"index":3,"control":"SET"})", R"({"status":1,"index":3,"speed":"SET"})",
     {"81 01 04 3f 01 00 03 ff"}},
    {"sendPreset", R"({"index":260,"control":"add"})", R"({"status":1,"index":260,"speed":"add"})",
     {"81 01 04 3f 00 00 04 ff"}},
    {"sendPreset", R"({"index":-1,"control":"add"})", R"({"status":-1,"message":Invalid params})", {}},
    {"sendPreset", R"({"index":2,"control":"jump"})", R"({"status":0,"index":2,"speed":"jump"})", {}},
    // Leave no preset behind for the suites that follow.
    {"sendPreset", R"({"index":4,"control":"del"})", R"({"status":1,"index":4,"speed":"del"})",
     {"81 01 04 3f 02 00 04 ff"}},
};

TEST_F(FrontE2E, PostCommandsAndTheirPackets) {
    for (const PostCase& c : kPostCases) {
        SCOPED_TRACE(std::string(c.route) + " " + c.body);
        EXPECT_EQ(post(std::string("path=") + c.route, c.body), kJson + c.answer);
        EXPECT_EQ(visca_until_sentinel(visca), c.packets);
    }
}

TEST_F(FrontE2E, PostNamesAndBodies) {
    EXPECT_EQ(post("path=sendptz", "{\"type\":12,\"speed\":1}"), kErrorParams);
    EXPECT_EQ(post("path=" + std::string(300, 'n'), std::string(4000, 'b')), kErrorParams);
    // A body beyond 2048 bytes reaches the handler cut, the rest drained.
    std::string cmd = "{\"type\":12,\"speed\":7}";
    std::string body = cmd + std::string(2048 - cmd.size(), ' ') + std::string(3000, '#');
    EXPECT_EQ(post("path=sendPTZ", body), kJson + "{\"status\":1,\"type\":12,\"speed\":7}");
    EXPECT_EQ(fcgi({{"REQUEST_METHOD", "POST"},
                    {"QUERY_STRING", "path=sendPTZ"},
                    {"CONTENT_LENGTH", "0"}}),
              kJson + "{\"status\":-1,\"message\":this is no json}");
}

TEST_F(FrontE2E, UploadIsRefusedWhileNotArmed) {
    const std::string path = run_path("root/tmp/update.bin");
    long before = file_size(path);
    EXPECT_EQ(post("path=update", std::string(5000, 'u')), kErrorParams);
    EXPECT_EQ(file_size(path), before);
    EXPECT_EQ(get("man_session?command=get"), kText + "\"Event session:1\"\r\n");
}

TEST_F(FrontE2E, DeviceSummaryAndPaths) {
    std::string summary = get("controlhub");
    ASSERT_EQ(summary.rfind(kJson, 0), 0u);
    std::string body = body_of(summary);
    EXPECT_NE(body.find("\"name\":\t\"PTZ-4K1\""), std::string::npos) << body;
    EXPECT_NE(body.find("\"sn\":\t\"PTZ4K1000001\""), std::string::npos) << body;
    EXPECT_NE(body.find("\"module-name\":\t\"camera\""), std::string::npos);
    EXPECT_NE(body.find("\"firmware-ver\":\t\"V650\""), std::string::npos);
    EXPECT_NE(body.find("\"img-preview\":\ttrue"), std::string::npos);
    EXPECT_LT(body.find("\"timeout-sec\":\t0"), body.find("\"result\":\t0"));
    EXPECT_EQ(body.back(), '\n');
    EXPECT_EQ(get("path=/mw-api/v1/device/summary"), summary);
    EXPECT_EQ(get("path=/MW-API/V1/DEVICE/SUMMARY"), summary);
    EXPECT_EQ(get("controlhubXYZ"), summary);
    EXPECT_EQ(get("path=/mw-api/v1/device/other"), "");
}

TEST_F(FrontE2E, PreviewIsAJpegOfTheSnapshot) {
    Journal syscmd("syscmd.log");
    syscmd.mark();
    std::string reply = get("path=/mw-api/v1/preview/image");
    const std::string head = "Content-type: image/jpeg\r\nStatus: 200 OK\r\n\r\n";
    ASSERT_EQ(reply.rfind(head, 0), 0u);
    EXPECT_EQ(syscmd.since(), Lines{"41 68 01 40 41"});
    std::string jpeg = reply.substr(head.size());
    ASSERT_GT(jpeg.size(), 4u);
    EXPECT_EQ(static_cast<unsigned char>(jpeg[0]), 0xFF);
    EXPECT_EQ(static_cast<unsigned char>(jpeg[1]), 0xD8);
    EXPECT_EQ(static_cast<unsigned char>(jpeg[jpeg.size() - 2]), 0xFF);
    EXPECT_EQ(static_cast<unsigned char>(jpeg[jpeg.size() - 1]), 0xD9);
}

TEST_F(FrontE2E, StoredLogoReplacesTheSnapshot) {
    const std::string logo_path = run_path("root/opt/params/logo.jpg");
    std::string logo = "\xFF\xD8logo";
    logo += std::string(3000, '\0');  // more than one 1024-byte piece, zero bytes included
    logo += "\xFF\xD9";
    {
        std::ofstream out(logo_path, std::ios::binary);
        out << logo;
    }
    Journal syscmd("syscmd.log");
    syscmd.mark();
    std::string reply = get("path=/MW-API/V1/PREVIEW/IMAGE");
    std::remove(logo_path.c_str());
    EXPECT_EQ(reply, "Content-type: image/jpeg\r\nStatus: 200 OK\r\n\r\n" + logo);
    EXPECT_EQ(syscmd.since(), Lines{});
}
