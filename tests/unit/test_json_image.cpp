// The image section without a camera: format lists, motor degrees and the
// members that are refused before anything is sent.
#include <gtest/gtest.h>

#include <cjson/cJSON.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "front/output.h"
#include "json/json_ctrl_func.h"
#include "json/json_image.h"

namespace {

struct JsonFree {
    void operator()(cJSON* item) const { cJSON_Delete(item); }
};
using Json = std::unique_ptr<cJSON, JsonFree>;

std::vector<std::string> names(const cJSON* list) {
    std::vector<std::string> out;
    for (const cJSON* item = list != nullptr ? list->child : nullptr; item; item = item->next)
        out.emplace_back(item->valuestring);
    return out;
}

std::vector<std::string> list_of(uint64_t mask, int short_list = 0) {
    Json list(json_format_list(mask, short_list));
    return names(list.get());
}

// The image member of a set made with GET (no key needed), as compact text.
std::string set_image(const char* members) {
    setenv("REQUEST_METHOD", "GET", 1);
    OutputCapture capture;
    const std::string text = std::string("{\"image\":{") + members + "}}";
    EXPECT_EQ(json_set_ctrl(text.c_str()), 0);
    const std::string& out = capture.text();
    Json reply(cJSON_Parse(out.c_str() + out.find("\r\n\r\n") + 4));
    char* compact = cJSON_PrintUnformatted(reply.get());
    std::string result = compact != nullptr ? compact : "";
    cJSON_free(compact);
    return result;
}

}  // namespace

TEST(JsonImageFormats, FullMaskInListOrder) {
    const std::vector<std::string> list = list_of(0xc000001f9ff3fULL);
    const std::vector<std::string> expected{
        "3840X2160P@60Hz",    "3840X2160P@59.94Hz", "3840X2160P@50Hz",    "3840X2160P@30Hz",
        "3840X2160P@29.97Hz", "3840X2160P@25Hz",    "1920X1080P@60Hz",    "1920X1080P@59.94Hz",
        "1920X1080P@50Hz",    "1920X1080P@30Hz",    "1920X1080P@29.97Hz", "1920X1080P@25Hz",
        "1920X1080P@24Hz",    "1920X1080P@23.98Hz", "1920X1080I@60Hz",    "1920X1080I@59.94Hz",
        "1920X1080I@50Hz",    "1280X720P@60Hz",     "1280X720P@59.94Hz",  "1280X720P@50Hz",
        "1280X720P@30Hz",     "1280X720P@29.97Hz",  "1280X720P@25Hz"};
    EXPECT_EQ(list, expected);
    // Work mode 2 drops exactly the six 2160-line formats.
    const std::vector<std::string> no2160 = list_of(0xc00000001ff3fULL);
    EXPECT_EQ(no2160, std::vector<std::string>(expected.begin() + 6, expected.end()));
}

TEST(JsonImageFormats, HighRatesAndLowerFormatsKeepTheirPlace) {
    EXPECT_EQ(list_of((1ULL << 0) | (1ULL << 7) | (1ULL << 18)),
              (std::vector<std::string>{"1920X1080P@120Hz", "1920X1080P@25Hz", "1280X720P@120Hz"}));
    EXPECT_EQ(list_of((1ULL << 25) | (1ULL << 30) | (1ULL << 43) | (1ULL << 44) | (1ULL << 32)),
              (std::vector<std::string>{"1024X576P@60Hz", "1024X576P@25Hz", "720X480P@60Hz",
                                        "640X480P@25Hz", "640X360P@25Hz"}));
}

TEST(JsonImageFormats, ShortListAndEmptyMasks) {
    EXPECT_EQ(list_of(0xc000001f9ff3fULL, 1),
              (std::vector<std::string>{"1920X1080P@60Hz", "1920X1080P@50Hz"}));
    EXPECT_EQ(json_format_list(0, 0), nullptr);
    EXPECT_EQ(json_format_list(1ULL << 24, 1), nullptr);  // short list without 60/50
    EXPECT_EQ(json_format_list(1ULL << 63, 0), nullptr);  // no format on that bit
}

TEST(JsonImageDegrees, TruncatesTowardZero) {
    EXPECT_EQ(json_image_degrees(32768), 14);
    EXPECT_EQ(json_image_degrees(-32768), -14);
    EXPECT_EQ(json_image_degrees(0), 0);
    EXPECT_EQ(json_image_degrees(2275), 0);     // 0.9998 degrees
    EXPECT_EQ(json_image_degrees(-2276), -1);   // -1.0002 degrees
    EXPECT_EQ(json_image_degrees(-2275), 0);
    EXPECT_EQ(json_image_degrees(2276 * 100), 100);
}

TEST(JsonImageWrite, RefusesMalformedMembersWithoutSending) {
    EXPECT_EQ(set_image("\"zoom\":[1,2,3],\"focus\":[\"1\",\"2\"],\"focus_mode\":1,\"iris\":\"10\""),
              "{\"image\":{\"zoom\":false,\"focus\":false,\"focus_mode\":false,\"iris\":false},"
              "\"status\":false}");
    EXPECT_EQ(set_image("\"no_such_key\":1"), "{\"image\":{\"no_such_key\":false},\"status\":false}");
    EXPECT_EQ(set_image("\"preset\":{\"del\":300}"), "{\"image\":{\"preset\":false},\"status\":false}");
    EXPECT_EQ(set_image("\"preset\":{\"move\":3}"), "{\"image\":{\"preset\":false},\"status\":false}");
    EXPECT_EQ(set_image("\"abs ctrl\":{\"zoom\":\"x\"}"),
              "{\"image\":{\"abs ctrl\":false},\"status\":false}");
    EXPECT_EQ(set_image("\"snap\":true"), "{\"image\":{\"snap\":false},\"status\":false}");
}

TEST(JsonImageWrite, QuietMembers) {
    // A non-object "abs ctrl" is skipped; zero resets and saves send nothing.
    EXPECT_EQ(set_image("\"abs ctrl\":1,\"image_reset\":0,\"IMAGE_SAVE\":0,\"preset\":{}"),
              "{\"image\":{\"image_reset\":true,\"IMAGE_SAVE\":true,\"preset\":true},\"status\":true}");
    EXPECT_EQ(set_image(""), "{\"image\":{},\"status\":true}");
}
