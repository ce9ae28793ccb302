// Physical memory through a device (here a file of the test's own standing
// in for the chip's), the "reg" section on it, and "file ctrl".

#include <vector>

#include "json_reply.h"
#include "fake_files.h"
#include "scratch.h"
#include "json/json_ctrl_func.h"
#include "json/json_reg.h"
#include "support/memmap.h"

namespace fs = std::filesystem;

namespace {

class RegFile : public ::testing::Test {
protected:
    void SetUp() override { std::ofstream(device_, std::ios::binary) << std::string(64 * 1024, '\0'); }
    std::string slurp(const std::string& name) const { return ::slurp(dir_.path(name)); }
    Scratch dir_{"reg_file"};
    fake::RootInstalled root_{dir_.path()};
    std::string device_ = root_.make("/dev/ambad");
};

TEST_F(RegFile, MappingsAreSharedCountedAndPageRounded) {
    EXPECT_EQ(memmap(0x10, 0), 0u);
    const uintptr_t a = memmap(0x1010, 4);
    ASSERT_NE(a, 0u);
    EXPECT_LT(a, uintptr_t{1} << 32);     // the list keeps 32-bit addresses
    EXPECT_EQ(memmap(0x1018, 8), a + 8);  // inside the held page: shared
    EXPECT_EQ(memunmap(a), 0);
    EXPECT_EQ(memunmap(a + 8), 0);  // the second holder lets it go
    EXPECT_EQ(memunmap(a), -1);     // nothing is mapped any more

    const uintptr_t one = memmap(4095, 1);   // one page
    const uintptr_t next = memmap(4096, 1);  // not in it: a mapping of its own
    ASSERT_NE(one, 0u);
    ASSERT_NE(next, 0u);
    EXPECT_NE(next, one + 1);
    EXPECT_EQ(memunmap(next), 0);
    const uintptr_t two = memmap(4095, 2);  // two pages
    ASSERT_NE(two, 0u);
    EXPECT_NE(two, one);
    EXPECT_EQ(memmap(4096, 1), two + 1);  // inside the two-page mapping
    for (uintptr_t held : {one, two, two + 1}) EXPECT_EQ(memunmap(held), 0);
    EXPECT_EQ(memunmap(0x1234), -1);
}

TEST_F(RegFile, RegistersRoundTripThroughTheDevice) {
    EXPECT_EQ(ambmm(0x2008, 0xDEADBEEF), 0);
    EXPECT_EQ(ambmd(0x2008), 0xDEADBEEF);
    const std::string bytes = slurp("dev/ambad").substr(0x2008, 4);
    EXPECT_EQ(bytes, std::string("\xEF\xBE\xAD\xDE", 4));
    const fake::RootInstalled elsewhere(dir_.path("absent"));  // no device there
    EXPECT_EQ(ambmd(0x2008), -1);
    EXPECT_EQ(ambmm(0x2008, 1), -1);
}

TEST_F(RegFile, FilesMapSharedForWritingOrReading) {
    const std::string path = dir_.path("shared.bin");
    std::ofstream(path, std::ios::binary) << std::string(4096, '.');
    auto* rw = static_cast<char*>(mmapfile(path.c_str(), 4096));
    ASSERT_NE(rw, nullptr);
    rw[7] = 'w';
    const auto* ro = static_cast<const char*>(mmapfile_r(path.c_str(), 4096));
    ASSERT_NE(ro, nullptr);
    EXPECT_EQ(ro[7], 'w');  // both share the file's pages
    EXPECT_EQ(mmapfile_r(dir_.path("absent").c_str(), 4096), nullptr);
    EXPECT_NE(mmapfile(dir_.path("made.bin").c_str(), 0), nullptr);  // created, as the read-write form does
    EXPECT_TRUE(fs::exists(dir_.path("made.bin")));
}

struct Exchange {
    const char* name;
    bool set;
    const char* request;
    const char* reply;
};

TEST_F(RegFile, Sections) {
    std::ofstream(dir_.path("ten.bin"), std::ios::binary) << "0123456789";
    const std::vector<Exchange> rows = {
        {"write in either notation", true, R"({"reg":{"0x20":"0xdeadbeef","36":"17"}})",
         R"({"reg":{"0x20":"0xdeadbeef","36":"0x11"},"status":true})"},
        {"both notations read one register", false, R"({"reg":{"0x20":true,"32":1,"0X24":false}})",
         R"({"reg":{"0x20":"0xdeadbeef","32":"0xdeadbeef","0X24":"0x11"},"status":true})"},
        {"addresses that do not parse", false, R"({"reg":{"0x":true,"12a":true}})",
         R"({"reg":{"0x":false,"12a":false},"status":true})"},
        // An unaligned word, or one running past 4 GiB, never reaches the device.
        {"unaligned or past the end: false, the others served", false,
         R"({"reg":{"0xfffffffe":true,"0x22":true,"0xfffffffd":true,"0x20":true}})",
         R"({"reg":{"0xfffffffe":false,"0x22":false,"0xfffffffd":false,"0x20":"0xdeadbeef"},"status":true})"},
        {"no unaligned write", true, R"({"reg":{"0xfffffffd":"0x1","0x21":"0x1"}})",
         R"({"reg":{"0xfffffffd":false,"0x21":false},"status":false})"},
        {"a value that is not text", true, R"({"reg":{"0x20":5}})",
         R"({"reg":{"0x20":false},"status":false})"},
        {"file ctrl without a path", true, R"({"file ctrl":{"data":[1]}})",
         R"({"file ctrl":false,"status":false})"},
        {"file ctrl at an index", true, R"({"file ctrl":{"path":"ten.bin","index":4,"data":[65,66]}})",
         R"({"file ctrl":true,"status":true})"},
        {"file ctrl rewriting", true,
         R"({"file ctrl":{"path":"new.bin","rewrite":true,"index":4,"data":[65,66]}})",
         R"({"file ctrl":true,"status":true})"},
        {"file ctrl stops at the first element that is not a number", true,
         R"({"file ctrl":{"path":"one.bin","data":[65,"x",66]}})", R"({"file ctrl":true,"status":true})"},
        {"file ctrl that cannot open answers true", true, R"({"file ctrl":{"path":"no/such/dir/f"}})",
         R"({"file ctrl":true,"status":true})"},
        {"file ctrl is not readable", false, R"({"file ctrl":{"path":"ten.bin"}})",
         R"({"file ctrl":false,"status":false})"},
    };
    for (const Exchange& x : rows)
        EXPECT_EQ(json_reply(x.set ? json_set_ctrl : json_get_ctrl, x.request), x.reply) << x.name;
    EXPECT_EQ(slurp("ten.bin"), "0123AB6789");
    EXPECT_EQ(slurp("new.bin"), std::string("\0\0\0\0AB", 6));
    EXPECT_EQ(slurp("one.bin"), "A");
}

}  // namespace
