// Query decoding, the reply envelopes and the JSON member helpers, as rows.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include <cJSON.h>

#include "cgi/output.h"
#include "cgi/reply.h"

namespace {

std::string decode(const std::string& in) {
    std::string out(in.size() + 1, '\x7f');
    url_decode(in.c_str(), out.data());
    return std::string(out.c_str());
}

struct Decoding {
    const char* in;
    const char* out;
};

// Plain text and '+' stay; an escape decodes only to a byte from 1 to 126;
// a bad digit counts as -1 in the signed sum; a trailing '%' is kept.
const Decoding kDecodings[] = {
    {"", ""},       {"a+b", "a+b"}, {"a%20b", "a b"}, {"%7E", "~"},       {"%7e%41", "~A"}, {"%00", "%00"},
    {"%7F", "%7F"}, {"%80", "%80"}, {"%FF", "%FF"},   {"%ff%41", "%ffA"}, {"%2z", "\x1f"},  {"%1zq", "\x0fq"},
    {"%z2", "%z2"}, {"%zz", "%zz"}, {"%%41", "%A"},   {"%41%4", "A%4"},   {"abc%", "abc%"}, {"%", "%"},
};

TEST(ReplyUrlDecode, Rows) {
    for (const Decoding& d : kDecodings) EXPECT_EQ(decode(d.in), d.out) << "decoding \"" << d.in << '"';
    char out[8] = "keep";
    url_decode_checked(nullptr, out);
    EXPECT_STREQ(out, "keep");
    url_decode_checked("x", nullptr);
    url_decode_checked("%41", out);
    EXPECT_STREQ(out, "A");
    for (const auto& [c, value] : std::vector<std::pair<int, int>>{{'0', 0},
                                                                   {'9', 9},
                                                                   {'a', 10},
                                                                   {'f', 15},
                                                                   {'A', 10},
                                                                   {'F', 15},
                                                                   {'g', -1},
                                                                   {'/', -1},
                                                                   {0, -1},
                                                                   {0xC1, -1}})
        EXPECT_EQ(hex_digit_value(c), value) << c;
}

struct Envelope {
    const char* name;
    std::function<int()> print;
    int result;
    std::string body;
};

TEST(ReplyEnvelope, ExactBytes) {
    const std::vector<Envelope> rows = {
        {"error",
         [] {
             reply_error("Invalid params");
             return 0;
         },
         0, R"({"status":-1,"message":Invalid params})"},
        {"a message is data, never a format",
         [] {
             reply_error("100%s done");
             return 0;
         },
         0, R"({"status":-1,"message":100%s done})"},
        {"ok", [] { return reply_ok(); }, 0, R"({"status":1})"},
        {"data", [] { return reply_data(R"({"a":1})"); }, 0, R"({"status":1,"data":{"a":1}})"},
    };
    for (const Envelope& e : rows) {
        OutputCapture cap;
        EXPECT_EQ(e.print(), e.result) << e.name;
        EXPECT_EQ(cap.text(), "Content-type: application/json\r\nStatus: 200 OK\r\n\r\n" + e.body) << e.name;
    }
    EXPECT_EQ(json_escaped("a\"b\\c\n\x01"), "a\\\"b\\\\c\\u000a\\u0001");
}

TEST(ReplyJsonMembers, TypedAndCaseSensitiveLookup) {
    cJSON* root = cJSON_Parse(R"({"n":7,"s":"txt","Big":3,"f":2.9})");
    ASSERT_NE(root, nullptr);
    for (const auto& [key, value] : std::vector<std::pair<const char*, int>>{
             {"n", 7}, {"f", 2}, {"s", -1}, {"big", -1}, {"missing", -1}})
        EXPECT_EQ(json_get_int(root, key), value) << key;
    EXPECT_STREQ(json_get_string(root, "s"), "txt");
    EXPECT_EQ(json_get_string(root, "n"), nullptr);
    EXPECT_EQ(json_get_string(root, "S"), nullptr);
    cJSON_Delete(root);
}

}  // namespace
