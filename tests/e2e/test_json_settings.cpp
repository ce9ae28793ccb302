// The settings sections against the simulated system server: a write goes
// out as the section's command with its whole block (run/syscmd.log), and a
// read afterwards answers what the server stored.
#include "e2e/harness.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>

namespace {

using namespace e2e;

// Command id and payload length of a journal line ("57 01 00 ...").
std::pair<int, size_t> shape(const std::string& line) {
    std::istringstream in(line);
    int id = -1;
    in >> id;
    size_t bytes = 0;
    for (std::string b; in >> b;) ++bytes;
    return {id, bytes};
}

struct RoundTrip {
    const char* section;
    std::string set;
    std::vector<std::pair<int, size_t>> commands;  // id and payload size, in order
    std::string get;
    std::string answer;
};

const std::vector<RoundTrip> kTrips = {
    {"audio",
     R"({"audio":{"encMode":"G711U","volume":30}})",
     {{57, 36}, {58, 4}},
     R"({"audio":{"encMode":true,"Volume":true,"bitrate":true}})",
     R"({"audio":{"encMode":"G711U","Volume":30,"bitrate":0},"status":true})"},
    {"record",
     R"({"record":{"sel":1,"task0":{"enable":1,"start":100,"stop":200}}})",
     {{32, 176}},
     R"({"record":{"sel":true,"task0":true}})",
     R"({"record":{"sel":1,"task0":{"enable":1,"start":100,"stop":200}},"status":true})"},
    {"gb28181",
     R"({"gb28181":{"sip port":5070,"sip password":"secret"}})",
     {{30, 112}},
     R"({"gb28181":{"sip port":true,"sip password":true}})",
     R"({"gb28181":{"sip port":5070,"sip password":"secret"},"status":true})"},
    {"FreeD",
     R"({"FreeD":{"ip":"192.168.1.20","port":40100}})",
     {{31, 38}},
     R"({"FreeD":{"client0":true}})",
     R"({"FreeD":{"client0":{"enable":1,"ip":"192.168.1.20","port":40100}},"status":true})"},
    {"NTP",
     R"({"NTP":{"server address":"time.example","port":124}})",
     {{70, 140}},
     R"({"NTP":{"server address":true,"port":true,"state":true}})",
     R"({"NTP":{"server address":"time.example","port":124,"state":0},"status":true})"},
};

TEST(JsonSettingsE2E, WriteThenRead) {
    Journal syscmd("syscmd.log");
    for (const RoundTrip& t : kTrips) {
        SCOPED_TRACE(t.section);
        syscmd.mark();
        const std::string written = compact("func=set" + t.set);
        EXPECT_NE(written.find("\"status\":true}"), std::string::npos) << written;
        std::vector<std::pair<int, size_t>> sent;
        for (const std::string& line : syscmd.since()) sent.push_back(shape(line));
        EXPECT_EQ(sent, t.commands);
        EXPECT_EQ(compact("func=get" + t.get), t.answer);
    }
}

TEST(JsonSettingsE2E, RefusedWritesSendNothing) {
    Journal syscmd("syscmd.log");
    for (const char* request : {R"({"gb28181":{"register state":1}})", R"({"FreeD":{"client4":{"port":1}}})",
                                R"({"record":{"task0":{"enable":1,"start":5,"stop":5}}})"}) {
        EXPECT_NE(compact(std::string("func=set") + request).find("\"status\":false}"), std::string::npos)
            << request;
    }
    EXPECT_EQ(syscmd.since(), std::vector<std::string>{});
}

}  // namespace
