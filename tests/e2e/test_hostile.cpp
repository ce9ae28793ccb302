// Hostile input, as a table: every member of every writable section (found
// by reading the section, so a new key is attacked without touching this
// file) gets shell metacharacters, traversals, over-long and control text,
// numbers at and past every width, and every wrong JSON type; every route
// gets hostile queries and bodies. For each: an answer comes (or, for the
// contract's no-reply cases, the responder stays alive: the suite's crash
// canary counts its restarts), the members beside an attacked text keep
// their values (nothing is written past a field), and at the end no request
// text has reached a shell line or made a file outside where it may.
// Runs last: it leaves odd but valid settings behind.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "e2e/harness.h"

namespace {

using namespace e2e;

constexpr const char* kMarker = "PWNED";

// Texts that must never reach a shell or a path, nor spill over a field.
std::vector<std::string> hostile_texts() {
    std::vector<std::string> t = {
        "$(touch /tmp/PWNED)", "`touch /tmp/PWNED`",    "; touch /tmp/PWNED #",  "| touch /tmp/PWNED",
        "&& touch /tmp/PWNED", "\\n touch /tmp/PWNED",  "../../../../tmp/PWNED", "/tmp/PWNED",
        "%s%s%s%s%n",          "\\u0001\\u001f\\u007f", "a\\u0000PWNED",         "\\\" PWNED \\\"",
    };
    for (size_t n : {15, 16, 31, 32, 63, 64, 127, 128, 129, 255, 256, 1000}) t.push_back(std::string(n, 'P'));
    return t;
}
// Numbers at and past every width ("NaN" is no JSON: the whole request is
// answered as such).
const std::vector<std::string> kNumbers = {"-1",         "256",        "65536",      "2147483647",
                                           "2147483648", "4294967295", "4294967296", "-2147483649",
                                           "1e300",      "-1e300",     "0.5",        "NaN"};
const std::vector<std::string> kWrongTypes = {"true", "null", "[]", "{}", "[1,2,3]", "{\"a\":{\"b\":1}}"};

struct Section {
    const char* name;
    const char* read;  // the request that reads every member
};
// The writable sections and how each is read whole.
constexpr Section kSections[] = {
    {"venc", R"({"main":true,"sub":true})"},
    {"rtmp", R"({"main":true,"sub":true})"},
    {"rtp multicast", R"({"main":true,"sub":true})"},
    {"ethernet", R"({"eth0":{"dhcp":true,"netmask":true,"gateway":true,"dns":true,"httpPort":true,)"
                 R"("rtspPort":true,"rtmpPort":true,"viscaPort":true,"ssdp":true}})"},
    {"full ndi", "true"},
    {"gb28181", "true"},
    {"FreeD", "true"},
    {"audio", "true"},
    {"record", "true"},
    {"NTP", "true"},
    {"image",
     R"({"WB_mode":true,"exposure_mode":true,"focus_mode":true,"anti_flicker":true,"brightness":true,)"
     R"("contrast":true,"saturation":true,"sharpness":true,"gamma":true})"},
    {"system", R"({"TZ":true,"device_name":true,"workMode":true})"},
};
// Members whose value changes by itself between two reads.
const std::set<std::string> kVolatile = {"status", "register state", "time", "date"};

std::string quoted_json(const std::string& s) { return "\"" + s + "\""; }

cJSON* parse_body(const std::string& reply) {
    const std::string body = body_of(reply);
    return cJSON_Parse(body.c_str());
}

// Every leaf of an answer as "a/b/c" -> printed value.
void leaves(const cJSON* node, const std::string& path, std::map<std::string, std::string>& out) {
    if (cJSON_IsObject(node)) {
        for (const cJSON* c = node->child; c != nullptr; c = c->next)
            leaves(c, path.empty() ? c->string : path + "/" + c->string, out);
        return;
    }
    char* text = cJSON_PrintUnformatted(node);
    out[path] = text != nullptr ? text : "";
    cJSON_free(text);
}

std::map<std::string, std::string> read_section(const Section& s) {
    cJSON* answer = parse_body(get(std::string("func=get{\"") + s.name + "\":" + s.read + "}"));
    std::map<std::string, std::string> out;
    leaves(cJSON_GetObjectItem(answer, s.name), "", out);
    cJSON_Delete(answer);
    return out;
}

// {"a":{"b":VALUE}} for the path "a/b".
std::string nest(const std::string& path, const std::string& value) {
    std::string open, close;
    size_t start = 0;
    for (size_t slash; (slash = path.find('/', start)) != std::string::npos; start = slash + 1) {
        open += quoted_json(path.substr(start, slash - start)) + ":{";
        close += "}";
    }
    return "{" + open + quoted_json(path.substr(start)) + ":" + value + close + "}";
}

// An answer: the JSON header and a body that parses (or one of the
// contract's envelopes, which are not JSON); and the next request is served.
void expect_answered(const std::string& request, const std::string& reply) {
    ASSERT_FALSE(reply.empty()) << request;
    EXPECT_EQ(reply.rfind("Content-type: application/json", 0), 0u) << request << "\n" << reply;
    const std::string body = body_of(reply);
    if (body.rfind("{\"status\":-1,\"message\":", 0) != 0) {
        cJSON* parsed = cJSON_Parse(body.c_str());
        EXPECT_NE(parsed, nullptr) << request << "\n" << body;
        cJSON_Delete(parsed);
    }
}

TEST(Hostile, EveryMemberOfEveryWritableSection) {
    const std::vector<std::string> texts = hostile_texts();
    size_t sent = 0;
    for (const Section& s : kSections) {
        SCOPED_TRACE(s.name);
        const auto before = read_section(s);
        ASSERT_FALSE(before.empty()) << "nothing read of " << s.name;
        std::set<std::string> moving(kVolatile.begin(), kVolatile.end());
        for (const auto& [path, value] : read_section(s))
            if (before.count(path) == 0 || before.at(path) != value) moving.insert(path);
        for (const auto& [path, value] : before) {
            const bool text = !value.empty() && value[0] == '"';
            std::vector<std::string> values = kWrongTypes;
            if (text) {
                for (const std::string& t : texts) values.push_back(quoted_json(t));
            } else {
                values.insert(values.end(), kNumbers.begin(), kNumbers.end());
                values.push_back("\"12\"");
            }
            for (const std::string& v : values) {
                const std::string request = std::string("func=set{\"") + s.name + "\":" + nest(path, v) + "}";
                const auto now = text ? read_section(s) : std::map<std::string, std::string>{};
                expect_answered(request, get(request));
                ++sent;
                if (!text) continue;
                // Nothing beside the attacked member changed: no text ran past its field.
                for (const auto& [other, was] : read_section(s)) {
                    const std::string leaf = other.substr(other.rfind('/') + 1);
                    if (other == path || moving.count(other) != 0 || moving.count(leaf) != 0) continue;
                    EXPECT_EQ(was, now.count(other) != 0 ? now.at(other) : was)
                        << request << " changed " << other;
                }
            }
        }
    }
    // The system section's own text members and actions.
    for (const char* member :
         {"login", "post_update", "system_control", "log", "date", "time", "serial_number"}) {
        for (const std::string& t : texts) {
            const std::string request =
                std::string("func=set{\"system\":{\"") + member + "\":" + quoted_json(t) + "}}";
            expect_answered(request, get(request));
            ++sent;
        }
    }
    for (const std::string& t : texts) {
        const std::string request = "func=set{\"system\":{\"sd\":{\"delete\":[" + quoted_json(t) + "]}}}";
        expect_answered(request, get(request));
    }
    std::cout << "hostile: " << sent << " member attacks\n";
}

// Requests that are no JSON, nested past the parser's limit, duplicate keys,
// and every route with hostile text.
TEST(Hostile, EveryRoute) {
    const std::string deep = std::string(1100, '[') + std::string(1100, ']');
    const std::string deep_object = [] {
        std::string s;
        for (int i = 0; i < 1100; ++i) s += "{\"a\":";
        return s + "1" + std::string(1100, '}');
    }();
    const std::vector<std::string> gets = {
        "func=get" + deep,
        "func=set" + deep_object.substr(0, 2000),
        R"(func=set{"audio":{"volume":5,"volume":6}})",
        R"(func=set{"audio":{"volume":5},"audio":{"volume":6}})",
        "func=get{\"image\":" + deep.substr(0, 1900) + "}",
    };
    for (const std::string& q : gets) expect_answered(q.substr(0, 80), get(q));
    for (const std::string& t : hostile_texts()) {
        for (const char* route : {"aw_ptz?cmd=", "aw_cam?cmd=", "event?connect=", "man_session?command="}) {
            const std::string reply = get(route + t + "&res=1");
            EXPECT_FALSE(reply.empty()) << route << t;
        }
        for (const char* route : {"path=sendPTZ", "path=sendPreset", "path=get", "path=set"}) {
            const std::string body = "{\"type\":" + quoted_json(t) + ",\"control\":" + quoted_json(t) +
                                     ",\"system\":{\"login\":" + quoted_json(t) + "}}";
            expect_answered(route + t, post(route, body));
        }
        EXPECT_FALSE(post("path=update", t).empty());  // not armed: refused, answered
    }
    for (const std::string& body :
         {deep.substr(0, 2000), deep_object.substr(0, 2040), std::string("{\"a\":1,\"a\":2}")}) {
        for (const char* route : {"path=sendPTZ", "path=get", "path=set"})
            expect_answered(route, post(route, body));
    }
}

// After all of it: no request text reached a shell line, and nothing made
// the marker file anywhere in the camera's files.
TEST(Hostile, NothingReachedAShellOrAPath) {
    for (const char* journal : {"shell.log", "console.log"})
        EXPECT_EQ(read_file(run_path(journal)).find(kMarker), std::string::npos) << journal;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(
             run_path("root"), std::filesystem::directory_options::skip_permission_denied, ignored))
        EXPECT_EQ(entry.path().filename().string().find(kMarker), std::string::npos) << entry.path();
    EXPECT_EQ(body_of(get("nonsense")), "{\"status\":-1,\"message\":nonsense}");  // still serving
}

}  // namespace
