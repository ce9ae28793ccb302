// Dispatch, access key and login splitting of the JSON control API. No
// camera is attached here: the settings record is absent, so no access key
// exists and only GET requests (or refusals) are exercised.

#include <cstdlib>

#include "cgi/output.h"
#include "records/records.h"
#include "json/json_ctrl_func.h"
#include "log_queue.h"
#include "support/elog.h"

namespace {

constexpr unsigned char kMac[6] = {0x00, 0x1e, 0xc0, 0x12, 0x34, 0x56};

struct Reply {
    int result;
    std::string text;
};

Reply run(const char* method, const char* json, bool set = false) {
    if (method != nullptr)
        setenv("REQUEST_METHOD", method, 1);
    else
        unsetenv("REQUEST_METHOD");
    OutputCapture capture;
    const int result = set ? json_set_ctrl(json) : json_get_ctrl(json);
    return {result, capture.text()};
}

constexpr const char* kJsonHeader = "Content-type: application/json\r\nStatus: 200 OK\r\n\r\n";

}  // namespace

TEST(JsonAccessKey, SumsBytesByPositionThenAddsMac) {
    // admin + admin + 192.168.1.100 with the factory MAC: bytes 07 33 54 85.
    EXPECT_EQ(json_access_key_compute("admin", "admin", "192.168.1.100", kMac), 0x85543307u);
    // Empty parts leave only the MAC: k0 = m0 + m4, k1 = m1 + m5, k2 = m2, k3 = m3.
    EXPECT_EQ(json_access_key_compute("", "", "", kMac), 0x12c07434u);
    // Bytes wrap within their own position: 0xff + 0x02 = 0x01 in k0.
    const unsigned char zero[6] = {};
    EXPECT_EQ(json_access_key_compute("\xff", "", "", zero), 0xffu);
    EXPECT_EQ(json_access_key_compute("\xff\x01\x01\x01\x02", "", "", zero), 0x01010101u);
}

TEST(JsonAccessKey, NothingMatchesBeforeTheRecordWasRead) {
    EXPECT_EQ(json_access_key_match(0), 0);
    EXPECT_EQ(json_access_key_match(static_cast<int32_t>(json_access_key())), 0);
}

TEST(JsonLogin, SplitsAtTheFirstColon) {
    std::string_view user;
    std::string_view password;
    ASSERT_EQ(json_login_split("admin:pa:ss", &user, &password), 0);
    EXPECT_EQ(user, "admin");
    EXPECT_EQ(password, "pa:ss");
    ASSERT_EQ(json_login_split(":", &user, &password), 0);
    EXPECT_EQ(user, "");
    EXPECT_EQ(password, "");
    EXPECT_EQ(json_login_split("adminadmin", &user, &password), -1);
    EXPECT_EQ(json_login_split(nullptr, &user, &password), -1);
}

TEST(JsonLogin, RefusesTextsOver255Characters) {
    std::string text = "a:" + std::string(253, 'b');
    EXPECT_EQ(json_login_split(text.c_str(), nullptr, nullptr), 0);
    text += 'b';
    EXPECT_EQ(json_login_split(text.c_str(), nullptr, nullptr), -1);
    // Without a settings record no login can succeed.
    EXPECT_EQ(json_login_check("admin:admin"), -1);
}

TEST(JsonDispatch, RejectsTextThatIsNoJsonObject) {
    for (const char* text : {"", "{", "not json", "{}", "{\"image\":", "[{\"image\":{}}]", "[1]", "7"}) {
        const Reply reply = run("GET", text);
        EXPECT_EQ(reply.result, -1) << text;
        EXPECT_NE(reply.text.find("This is no json"), std::string::npos) << text;
    }
    EXPECT_EQ(run("GET", nullptr).result, -1);
    EXPECT_EQ(run("POST", "{}", true).result, -1);
}

TEST(JsonDispatch, RefusedAccessListsEveryMemberFalse) {
    for (const char* method : {"POST", "get", static_cast<const char*>(nullptr)}) {
        const Reply reply =
            run(method,
                "{\"key\":0,\"image\":{\"DC_iris_support\":true},\"system\":{\"login\":\"admin:admin\"}}");
        EXPECT_EQ(reply.result, 0);
        EXPECT_EQ(reply.text, std::string(kJsonHeader) +
                                  "{\n\t\"key\":\tfalse,\n\t\"image\":\tfalse,\n\t\"system\":\tfalse,\n"
                                  "\t\"status\":\tfalse\n}\n");
    }
}

TEST(JsonDispatch, WalksSectionsInOrderAndSkipsKey) {
    const Reply reply = run("GET",
                            "{\"KEY\":1,\"image\":{\"digital_zoom_limit\":true,\"DC_iris_support\":true,"
                            "\"sdi1_support\":true,\"sdi2_SUPPORT\":true}}");
    EXPECT_EQ(reply.result, 0);
    EXPECT_EQ(reply.text, std::string(kJsonHeader) +
                              "{\n\t\"image\":\t{\n\t\t\"digital_zoom_limit\":\t896,\n"
                              "\t\t\"DC_iris_support\":\t1,\n\t\t\"sdi1_support\":\tfalse,\n"
                              "\t\t\"sdi2_SUPPORT\":\tfalse\n\t},\n\t\"status\":\ttrue\n}\n");
}

TEST(JsonDispatch, UnknownAndMistypedSectionsFail) {
    struct Row {
        const char* name;
        const char* request;
        bool set;
        const char* reply;
    };
    const Row rows[] = {
        {"ai is not served on get", R"({"ai":{"enable":true}})", false, "{\n\t\"status\":\tfalse\n}\n"},
        {"file ctrl", R"({"file ctrl":{}})", false, "{\n\t\"file ctrl\":\tfalse,\n\t\"status\":\tfalse\n}\n"},
        {"section names keep their case", R"({"Image":true})", false,
         "{\n\t\"Image\":\tfalse,\n\t\"status\":\tfalse\n}\n"},
        {"image set needs an object", R"({"image":true})", true,
         "{\n\t\"image\":\tfalse,\n\t\"status\":\tfalse\n}\n"},
        {"read-only section", R"({"VencAbility":{}})", true,
         "{\n\t\"VencAbility\":\tfalse,\n\t\"status\":\tfalse\n}\n"},
        {"a section not served", R"({"srt":{}})", false, "{\n\t\"srt\":\tfalse,\n\t\"status\":\tfalse\n}\n"},
        {"the other sections still answer", R"({"nope":1,"image":{}})", false,
         "{\n\t\"nope\":\tfalse,\n\t\"image\":\t{\n\t},\n\t\"status\":\tfalse\n}\n"},
    };
    for (const Row& r : rows)
        EXPECT_EQ(run("GET", r.request, r.set).text, kJsonHeader + std::string(r.reply)) << r.name;
}

// The logger at debug level with the function name in every line.
class JsonDispatchLog : public LogQueueTest {
protected:
    void SetUp() override {
        start(ELOG_LVL_DEBUG);
        elog_set_fmt(ELOG_LVL_DEBUG, ELOG_FMT_FUNC);
        testing::internal::CaptureStderr();
    }
    void TearDown() override {
        testing::internal::GetCapturedStderr();
        LogQueueTest::TearDown();
    }
};

TEST_F(JsonDispatchLog, GetLogsItsPrintedReplyUnderItsOwnName) {
    run("GET", "{\"image\":{\"DC_iris_support\":true}}");
    EXPECT_EQ(drain(), std::vector<std::string>{
                           "(json_get_ctrl) {\n\t\"image\":\t{\n\t\t\"DC_iris_support\":\t1\n\t},\n"
                           "\t\"status\":\ttrue\n}\n"});
    // A refused get is logged the same way; the set dispatcher does not log.
    EXPECT_EQ(drain().size(), 0u);
    run("POST", "{\"image\":{}}");
    EXPECT_EQ(drain().size(), 1u);
    run("GET", "{\"image\":{}}", true);
    EXPECT_TRUE(drain().empty());
}
