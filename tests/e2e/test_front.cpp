// The request front end through the running responder and the real FastCGI
// library: requests without an answer, bodies read from the FastCGI stream,
// the POST commands with the packets the camera received, the upload gate,
// the device summary and the preview image.
#include "e2e/harness.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

namespace {

using namespace e2e;
using Lines = std::vector<std::string>;

const std::string kJson = "Content-type: application/json\r\nStatus: 200 OK\r\n\r\n";
const std::string kText = "Content-type: text/plain\r\nStatus: 200 OK\r\n\r\n";
const std::string kErrorParams = kJson + "{\"status\":-1,\"message\":Error params.\n}";
const std::string kSession = kText + "\"Event session:1\"\r\n";
const std::string kPtzCmd = R"({"type":12,"speed":7})";

struct Exchange {
    const char* name;
    std::map<std::string, std::string> env;
    std::string body;
    std::string reply;
};

}  // namespace

TEST(FrontE2E, RequestsThroughTheFastCgiStream) {
    // clang-format off
    const Exchange rows[] = {
        {"no method", {{"QUERY_STRING", "camdata"}}, "", ""},
        {"no query", {{"REQUEST_METHOD", "GET"}}, "", ""},
        {"other method", {{"REQUEST_METHOD", "PUT"}, {"QUERY_STRING", "camdata"}}, "", ""},
        {"the responder still serves", {{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", "man_session?command=get"}}, "",
         kSession},
        {"decoded echo", {{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", "nothing%20here+x"}}, "",
         kJson + "{\"status\":-1,\"message\":nothing here+x}"},
        {"no-content status", {{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", "event?connect=start&uid=0"}}, "",
         "Status: 204 No Content\r\n\r\n"},
        {"unknown name, body drained",
         {{"REQUEST_METHOD", "POST"}, {"QUERY_STRING", "path=" + std::string(300, 'n')}, {"CONTENT_LENGTH", "4000"}},
         std::string(4000, 'b'), kErrorParams},
        {"body beyond 2048 cut, the rest drained",
         {{"REQUEST_METHOD", "POST"}, {"QUERY_STRING", "path=sendPTZ"}, {"CONTENT_LENGTH", "5048"}},
         kPtzCmd + std::string(2048 - kPtzCmd.size(), ' ') + std::string(3000, '#'),
         kJson + "{\"status\":1,\"type\":12,\"speed\":7}"},
        {"no body", {{"REQUEST_METHOD", "POST"}, {"QUERY_STRING", "path=sendPTZ"}, {"CONTENT_LENGTH", "0"}}, "",
         kJson + "{\"status\":-1,\"message\":this is no json}"},
        {"upload while not armed",
         {{"REQUEST_METHOD", "POST"}, {"QUERY_STRING", "path=update"}, {"CONTENT_LENGTH", "5000"}},
         std::string(5000, 'u'), kErrorParams},
    };
    // clang-format on
    const std::string upload = read_file(run_path("root/tmp/update.bin"));
    for (const Exchange& x : rows) EXPECT_EQ(fcgi(x.env, x.body), x.reply) << x.name;
    EXPECT_EQ(read_file(run_path("root/tmp/update.bin")), upload);
    EXPECT_EQ(get("man_session?command=get"), kSession);
}

// A POST command's round trip: the answer and the packet the camera got
// (proven complete by a closing inquiry).
TEST(FrontE2E, PostCommandRoundTrip) {
    Journal visca("visca.log");
    EXPECT_EQ(post("path=sendPTZ", R"({"type":9,"speed":5})"), kJson + R"({"status":1,"type":9,"speed":5})");
    EXPECT_EQ(visca_until_sentinel(visca), Lines{"81 01 04 07 25 ff"});
}

TEST(FrontE2E, DeviceSummaryAndPaths) {
    const std::string summary = get("controlhub");
    ASSERT_EQ(summary.rfind(kJson, 0), 0u);
    const std::string body = body_of(summary);
    for (const char* member :
         {"\"name\":\t\"PTZ-4K1\"", "\"sn\":\t\"PTZ4K1000001\"", "\"module-name\":\t\"camera\"",
          "\"firmware-ver\":\t\"V650\"", "\"img-preview\":\ttrue"})
        EXPECT_NE(body.find(member), std::string::npos) << member << body;
    EXPECT_LT(body.find("\"timeout-sec\":\t0"), body.find("\"result\":\t0"));
    for (const char* query :
         {"path=/mw-api/v1/device/summary", "path=/MW-API/V1/DEVICE/SUMMARY", "controlhubXYZ"})
        EXPECT_EQ(get(query), summary) << query;
    EXPECT_EQ(get("path=/mw-api/v1/device/other"), "");
}

TEST(FrontE2E, PreviewIsAJpegOfTheSnapshotOrTheStoredLogo) {
    const std::string head = "Content-type: image/jpeg\r\nStatus: 200 OK\r\n\r\n";
    Journal syscmd("syscmd.log");
    const std::string reply = get("path=/mw-api/v1/preview/image");
    ASSERT_EQ(reply.rfind(head + "\xFF\xD8", 0), 0u);
    EXPECT_TRUE(reply.ends_with("\xFF\xD9"));
    EXPECT_EQ(syscmd.take(1), Lines{"41 68 01 40 41"});
}
