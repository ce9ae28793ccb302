#include <gtest/gtest.h>

#include <string>

#include <cJSON.h>

#include "cgi/output.h"
#include "cgi/reply.h"

namespace {

std::string decode(const std::string& in) {
    std::string out(in.size() + 1, '\x7f');
    url_decode(in.c_str(), out.data());
    return std::string(out.c_str());
}

}  // namespace

TEST(ReplyUrlDecode, PlainTextAndPlusStayAsTheyAre) {
    EXPECT_EQ(decode(""), "");
    EXPECT_EQ(decode("a+b"), "a+b");
    EXPECT_EQ(decode("a%20b"), "a b");
    EXPECT_EQ(decode("%7E"), "~");
    EXPECT_EQ(decode("%7e%41"), "~A");
}

TEST(ReplyUrlDecode, BytesOutsideOneTo126StayEscaped) {
    EXPECT_EQ(decode("%00"), "%00");
    EXPECT_EQ(decode("%7F"), "%7F");
    EXPECT_EQ(decode("%80"), "%80");
    EXPECT_EQ(decode("%FF"), "%FF");
    EXPECT_EQ(decode("%ff%41"), "%ffA");
}

TEST(ReplyUrlDecode, BadDigitsFollowTheSignedSum) {
    EXPECT_EQ(decode("%2z"), "\x1f");
    EXPECT_EQ(decode("%1zq"), "\x0fq");
    EXPECT_EQ(decode("%z2"), "%z2");   // an invalid high digit never decodes
    EXPECT_EQ(decode("%zz"), "%zz");
    EXPECT_EQ(decode("%%41"), "%A");   // the escape after a kept '%' still decodes
}

TEST(ReplyUrlDecode, TrailingPercentIsKept) {
    EXPECT_EQ(decode("%41%4"), "A%4");
    EXPECT_EQ(decode("abc%"), "abc%");
    EXPECT_EQ(decode("%"), "%");
}

TEST(ReplyUrlDecode, CheckedVariantIgnoresNullPointers) {
    char out[8] = "keep";
    url_decode_checked(nullptr, out);
    EXPECT_STREQ(out, "keep");
    url_decode_checked("x", nullptr);
    url_decode_checked("%41", out);
    EXPECT_STREQ(out, "A");
}

TEST(ReplyHexDigit, MapsAllThreeRangesAndRejectsTheRest) {
    EXPECT_EQ(hex_digit_value('0'), 0);
    EXPECT_EQ(hex_digit_value('9'), 9);
    EXPECT_EQ(hex_digit_value('a'), 10);
    EXPECT_EQ(hex_digit_value('F'), 15);
    EXPECT_EQ(hex_digit_value('g'), -1);
    EXPECT_EQ(hex_digit_value('/'), -1);
    EXPECT_EQ(hex_digit_value(0), -1);
    EXPECT_EQ(hex_digit_value(0xC1), -1);
}

TEST(ReplyEnvelope, ExactBytes) {
    {
        OutputCapture cap;
        reply_error("Invalid params");
        EXPECT_EQ(cap.text(),
                  "Content-type: application/json\r\nStatus: 200 OK\r\n\r\n"
                  "{\"status\":-1,\"message\":Invalid params}");
    }
    {
        OutputCapture cap;
        reply_error("100%s done");  // a message is data, never a format
        EXPECT_EQ(cap.text().substr(kHdrJson.size()), "{\"status\":-1,\"message\":100%s done}");
    }
    {
        OutputCapture cap;
        EXPECT_EQ(reply_ok(), 0);
        EXPECT_EQ(cap.text().substr(kHdrJson.size()), "{\"status\":1}");
    }
    {
        OutputCapture cap;
        EXPECT_EQ(reply_data("{\"a\":1}"), 0);
        EXPECT_EQ(cap.text(),
                  "Content-type: application/json\r\nStatus: 200 OK\r\n\r\n"
                  "{\"status\":1,\"data\":{\"a\":1}}");
    }
}

TEST(ReplyJsonMembers, TypedAndCaseSensitiveLookup) {
    cJSON* root = cJSON_Parse(R"({"n":7,"s":"txt","Big":3,"f":2.9})");
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(json_get_int(root, "n"), 7);
    EXPECT_EQ(json_get_int(root, "f"), 2);
    EXPECT_EQ(json_get_int(root, "s"), -1);
    EXPECT_EQ(json_get_int(root, "big"), -1);
    EXPECT_EQ(json_get_int(root, "missing"), -1);
    EXPECT_STREQ(json_get_string(root, "s"), "txt");
    EXPECT_EQ(json_get_string(root, "n"), nullptr);
    EXPECT_EQ(json_get_string(root, "S"), nullptr);
    cJSON_Delete(root);
}
