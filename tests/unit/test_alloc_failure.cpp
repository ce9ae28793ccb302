// Every section's read and a write of each, with the Nth of cJSON's
// allocations failing, N = 1 up to the request's own count: the process goes
// on, the sanitizer build finds no leak, and the reply is still a JSON
// header with a body that parses or one of the contract's envelopes.

#include <cjson/cJSON.h>

#include <cstdlib>

#include "section_cases.h"

namespace {

int g_allocations = 0;
int g_fail_at = 0;  // 0: none fails

void* counted_malloc(size_t size) { return ++g_allocations == g_fail_at ? nullptr : std::malloc(size); }

// cJSON's allocator counts and fails the chosen allocation while it lives.
struct FailingAllocator {
    FailingAllocator() {
        cJSON_Hooks hooks{counted_malloc, std::free};
        cJSON_InitHooks(&hooks);
    }
    ~FailingAllocator() { cJSON_InitHooks(nullptr); }
};

// clang-format off
const char* const kReads[] = {
    R"({"image":{"zoom":true,"focus_mode":true,"WB_mode":true,"preset":[0,1],"feature":true,"vo_support":true}})",
    R"({"system":{"device_name":true,"support":true,"power_ctrl":true,"sd":true,"date":true,"time":true}})",
    R"({"ethernet":{"eth0":true}})", R"({"venc":{"main":true,"sub":true},"VencAbility":true})",
    R"({"rtmp":{"main":true},"rtp multicast":{"main":true,"sub":true}})",
    R"({"audio":true,"record":true,"gb28181":true,"FreeD":true,"NTP":true,"full ndi":true})",
};
const char* const kWrites[] = {
    R"({"image":{"mirror":1,"WB_mode":"manual","R_gain":10,"ptz":[3,5]}})",
    R"({"system":{"TZ":"CET-1","power_ctrl":{"task1":{"hour":3}},"suspend":0}})",
    R"({"venc":{"main":{"mode":"h265","bitrate":4000}},"rtmp":{"main":{"enable":1}}})",
    R"({"audio":{"volume":30},"record":{"enable":1},"gb28181":{"enable":1},"FreeD":{"port":1},"NTP":{"enable":1}})",
    R"({"ai":{"enable":1,"PTLimit":3},"rtp multicast":{"main":{"port":5004}}})",
};
// clang-format on

class AllocFailure : public fake::SectionTest {
protected:
    void SetUp() override {
        camera.answer = [](const fake::Bytes&) -> std::optional<fake::Bytes> {
            return fake::Bytes{0x90, 0x50, 0x02, 0xFF};
        };
    }
    // Runs `request` with every allocation failing in turn.
    void every_failure(int (*dispatcher)(const char*), const char* request) {
        for (int n = 1;; ++n) {
            SCOPED_TRACE(std::string(request) + " failing allocation " + std::to_string(n));
            setenv("REQUEST_METHOD", "GET", 1);
            std::string out;
            {
                OutputCapture capture;
                const FailingAllocator failing;
                g_allocations = 0;
                g_fail_at = n;
                dispatcher(request);
                g_fail_at = 0;
                out = capture.text();
            }
            const size_t body = out.find("\r\n\r\n");
            ASSERT_NE(body, std::string::npos) << out;
            const std::string text = out.substr(body + 4);
            const JsonTree parsed(cJSON_Parse(text.c_str()));
            EXPECT_TRUE(parsed != nullptr || text.rfind("{\"status\":-1", 0) == 0) << text;
            if (g_allocations < n) break;  // the request made fewer: all were tried
        }
    }
};

TEST_F(AllocFailure, EverySectionStaysWellFormed) {
    for (const char* r : kReads) every_failure(json_get_ctrl, r);
    for (const char* w : kWrites) every_failure(json_set_ctrl, w);
}

}  // namespace
