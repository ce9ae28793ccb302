
#include <cstring>

#include "records/records.h"
#include "support/elog.h"
#include "support/log.h"
#include "support/plugins/file/elog_file.h"
#include "log_queue.h"
#include "scratch.h"
#include "test_ipc_peer.h"

namespace fs = std::filesystem;

namespace {

class ElogTest : public LogQueueTest {
protected:
    void SetUp() override { start(3); }
};

std::string g_assert_expr;
void record_assert(const char* expr, const char*, size_t) { g_assert_expr = expr; }

}  // namespace

// Coloured on a terminal, plain in a file.
TEST_F(ElogTest, ConsoleMacrosFollowThePrintLevel) {
    tint_force(2, 1);
    testing::internal::CaptureStderr();
    LOG_DBG("hidden %d\n", 1);
    LOG_ERR("boom %d\n", 7);
    LOG_INFO("plain\n");
    const int err_line = __LINE__ - 2;
    std::string err = testing::internal::GetCapturedStderr();
    tint_force(2, -1);
    EXPECT_EQ(err.find("hidden"), std::string::npos);
    EXPECT_NE(err.find("\033[0;31m[TestBody]-" + std::to_string(err_line) + ": \033[0mboom 7\n"),
              std::string::npos);
    EXPECT_NE(err.find("plain\n"), std::string::npos);

    auto lines = drain();
    testing::internal::CaptureStderr();
    LOG_ERR("boom\n");
    const int plain_line = __LINE__ - 1;
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "[TestBody]-" + std::to_string(plain_line) + ": boom\n");
    ASSERT_EQ(lines.size(), 2u);
    // warn lines carry level, time, process, function and line; info lines level, time, process
    EXPECT_EQ(lines[0].rfind("[W] [", 0), 0u) << lines[0];
    EXPECT_NE(lines[0].find("] (TestBody:" + std::to_string(err_line) + ") boom 7\n"), std::string::npos)
        << lines[0];
    EXPECT_NE(lines[0].find(" pid:"), std::string::npos);
    EXPECT_EQ(lines[1].rfind("[I] [", 0), 0u);
    EXPECT_TRUE(lines[1].ends_with("] plain\n")) << lines[1];
}

TEST_F(ElogTest, FiltersOnLevelTagAndKeyword) {
    for (int lvl = 0; lvl <= ELOG_LVL_VERBOSE; ++lvl) elog_set_fmt(lvl, ELOG_FMT_LVL | ELOG_FMT_TAG);
    elog_output(ELOG_LVL_DEBUG, "cam", "f.c", "fn", 1, "debug above print level 3\n");
    elog_output(ELOG_LVL_INFO, "cam", "f.c", "fn", 1, "info passes\n");
    EXPECT_EQ(drain(), std::vector<std::string>{"[I]/cam info passes\n"});

    elog_set_filter_lvl(ELOG_LVL_VERBOSE);
    elog_set_filter_tag_lvl("cam", ELOG_LVL_WARN);
    EXPECT_EQ(elog_get_filter_tag_lvl("cam"), ELOG_LVL_WARN);
    EXPECT_EQ(elog_get_filter_tag_lvl("other"), ELOG_LVL_VERBOSE);
    elog_output(ELOG_LVL_INFO, "cam", "f.c", "fn", 1, "cam info\n");
    elog_output(ELOG_LVL_WARN, "cam", "f.c", "fn", 1, "cam warn\n");
    elog_output(ELOG_LVL_VERBOSE, "net", "f.c", "fn", 1, "net verbose\n");
    EXPECT_EQ(drain(), (std::vector<std::string>{"[W]/cam cam warn\n", "[V]/net net verbose\n"}));
    elog_set_filter_tag_lvl("cam", ELOG_LVL_VERBOSE);  // frees the entry again
    EXPECT_EQ(elog_get_filter_tag_lvl("cam"), ELOG_LVL_VERBOSE);

    elog_set_filter(ELOG_LVL_VERBOSE, "ne", "needle");
    elog_output(ELOG_LVL_INFO, "cam", "f.c", "fn", 1, "needle but wrong tag\n");
    elog_output(ELOG_LVL_INFO, "net", "f.c", "fn", 1, "hay only\n");
    elog_output(ELOG_LVL_INFO, "net", "f.c", "fn", 1, "a needle here\n");
    EXPECT_EQ(drain(), std::vector<std::string>{"[I]/net a needle here\n"});

    // Filters longer than 16 characters are cut, not overflowed.
    elog_set_filter_kw("0123456789abcdefXYZ");
    elog_output(ELOG_LVL_INFO, "net", "f.c", "fn", 1, "0123456789abcdef\n");
    EXPECT_EQ(drain().size(), 1u);

    elog_stop();
    elog_set_filter(ELOG_LVL_VERBOSE, "", "");
    elog_output(ELOG_LVL_ERROR, "net", "f.c", "fn", 1, "stopped\n");
    EXPECT_TRUE(drain().empty());
}

TEST_F(ElogTest, FormatBitsAndFindingLevelAndTag) {
    elog_set_fmt(ELOG_LVL_INFO, ELOG_FMT_LVL | ELOG_FMT_TAG | ELOG_FMT_DIR | ELOG_FMT_FUNC | ELOG_FMT_LINE);
    elog_output(ELOG_LVL_INFO, "NO_TAG", "support.c", "pox_system", 42, "Exec %s failed!\n", "ls");
    elog_set_fmt(ELOG_LVL_INFO, 0);
    elog_output(ELOG_LVL_INFO, "NO_TAG", "support.c", "pox_system", 42, "bare");
    elog_set_fmt(ELOG_LVL_INFO, ELOG_FMT_T_INFO | ELOG_FMT_LINE);
    elog_output(ELOG_LVL_INFO, "NO_TAG", "support.c", "pox_system", 42, "x\n");
    auto lines = drain();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], "[I]/NO_TAG (support.c pox_system:42) Exec ls failed!\n");
    EXPECT_EQ(lines[1], "bare\n");
    char tid[32];
    std::snprintf(tid, sizeof(tid), "tid:%04ld", static_cast<long>(::gettid()));
    EXPECT_EQ(lines[2], "[" + std::string(tid).substr(0, 9) + "] (42) x\n");

    elog_set_fmt(ELOG_LVL_INFO, ELOG_FMT_LVL | ELOG_FMT_TAG);
    EXPECT_EQ(elog_find_lvl("[I]/NO_TAG text"), ELOG_LVL_INFO);
    EXPECT_EQ(elog_find_lvl("no mark"), -1);
    size_t len = 0;
    const char* tag = elog_find_tag("[I]/NO_TAG text", ELOG_LVL_INFO, &len);
    ASSERT_NE(tag, nullptr);
    EXPECT_EQ(std::string(tag, len), "NO_TAG");
    EXPECT_EQ(elog_find_tag("[W] text", ELOG_LVL_WARN, &len), nullptr);  // warn lines carry no tag
}

TEST_F(ElogTest, LongMessagesAreCutAtTheLineBuffer) {
    const std::string big(3000, 'x');
    elog_output(ELOG_LVL_INFO, "NO_TAG", "f.c", "fn", 1, "%s", big.c_str());
    elog_output(ELOG_LVL_INFO, "NO_TAG", "f.c", "fn", 1, "after\n");
    auto lines = drain();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].size(), ELOG_LINE_BUF_SIZE - 1);
    EXPECT_EQ(lines[0].back(), '\n');
    EXPECT_TRUE(lines[1].ends_with("] after\n"));

    char buf[ELOG_LINE_BUF_SIZE + 8];
    std::memset(buf, '#', sizeof(buf));
    EXPECT_EQ(elog_strcpy(500, buf, big.c_str()), 12u);
    EXPECT_EQ(buf[12], '#');
    EXPECT_EQ(elog_cpyln(buf, "one\ntwo\n", 100), 4u);
    EXPECT_EQ(elog_cpyln(buf, "one\ntwo\n", 2), 2u);
}

TEST_F(ElogTest, QueueMoreThanHalfFullDropsTheLine) {
    struct msqid_ds ds {};
    ASSERT_EQ(::msgctl(qid_, IPC_STAT, &ds), 0);
    ds.msg_qbytes = 1000;
    ASSERT_EQ(::msgctl(qid_, IPC_SET, &ds), 0);
    LogMsg filler{};
    filler.type = 9;
    ASSERT_EQ(::msgsnd(qid_, &filler, 501, IPC_NOWAIT), 0);  // 501 of 1000 bytes: just over half

    testing::internal::CaptureStdout();
    elog_output(ELOG_LVL_INFO, "NO_TAG", "f.c", "fn", 1, "short\n");
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("msg buffer overflow."), std::string::npos);
    ASSERT_EQ(::msgctl(qid_, IPC_STAT, &ds), 0);
    EXPECT_EQ(ds.msg_qnum, 1u);
    // Further drops within the minute are only counted.
    testing::internal::CaptureStdout();
    for (int i = 0; i < 50; ++i) elog_output(ELOG_LVL_INFO, "NO_TAG", "f.c", "fn", 1, "again\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");

    // Exactly half full still takes a line that fits.
    LogMsg got{};
    ASSERT_GT(::msgrcv(qid_, &got, sizeof(got) - sizeof(long), 9, IPC_NOWAIT), 0);
    ASSERT_EQ(::msgsnd(qid_, &filler, 500, IPC_NOWAIT), 0);
    elog_output(ELOG_LVL_INFO, "NO_TAG", "f.c", "fn", 1, "fits\n");
    ASSERT_EQ(::msgctl(qid_, IPC_STAT, &ds), 0);
    EXPECT_EQ(ds.msg_qnum, 2u);
}

TEST_F(ElogTest, MissingQueueIsCreatedAndAnnounced) {
    elog_deinit();
    const int key = key_ ^ 0x01000000;
    remove_queue(key);
    testing::internal::CaptureStdout();
    elog_port_set_queue(true, key);
    elog_init(3);
    std::string out = testing::internal::GetCapturedStdout();
    const int qid = ::msgget(key, 0);
    ASSERT_GE(qid, 0);
    ::msgctl(qid, IPC_RMID, nullptr);
    EXPECT_EQ(out, "msg queue " + std::to_string(key) + " isn't exist\n");
}

TEST_F(ElogTest, AssertionHookSeesRefusedLevel) {
    elog_assert_set_hook(record_assert);
    elog_output(7, "NO_TAG", "f.c", "fn", 1, "never\n");
    EXPECT_EQ(g_assert_expr, "level <= ELOG_LVL_VERBOSE");
    EXPECT_TRUE(drain().empty());
    g_assert_expr.clear();
    EXPECT_EQ(elog_strcpy(0, nullptr, "x"), 0u);
    EXPECT_EQ(g_assert_expr, "dst");
}

TEST_F(ElogTest, PrintConfPicksTheProcessLine) {
    const Scratch dir("elog_conf");
    const std::string path = dir.path("print.conf");
    struct Case {
        const char* text;
        int print_level;
        bool verbose_passes;
    };
    const Case cases[] = {
        {"OTHER debug\nFASTCGI info\n", 3, false},
        {"FASTCGI debug\n", 4, false},
        {"FASTCGI warn\n", 2, false},
        {"FASTCGI error\n", 1, false},
        {"FASTCGI verbose\n", 1, true},          // quiet console, open logger
        {"FASTCGI\nFASTCGI debug\n", 9, false},  // first naming line decides: no word, no change
        {"nothing here\n", 9, false},
    };
    for (const auto& c : cases) {
        std::ofstream(path) << c.text;
        g_print_level = 9;
        elog_set_filter_lvl(ELOG_LVL_ASSERT);
        elog_load_print_level("FASTCGI", path.c_str());
        EXPECT_EQ(g_print_level, c.print_level) << c.text;
        drain();
        elog_output(ELOG_LVL_VERBOSE, "NO_TAG", "f.c", "fn", 1, "v\n");
        EXPECT_EQ(drain().size(), c.verbose_passes ? 1u : 0u) << c.text;
    }
    g_print_level = 9;
    elog_load_print_level("FASTCGI", dir.path("absent.conf").c_str());
    EXPECT_EQ(g_print_level, 9);

    // verbose: LOG_ERR stays off the console but its line is still logged
    std::ofstream(path) << "FASTCGI verbose\n";
    elog_load_print_level("FASTCGI", path.c_str());
    testing::internal::CaptureStderr();
    LOG_ERR("quiet\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(ElogFile, RotatesIntoNumberedGenerations) {
    const Scratch dir("elog_file");
    const std::string name = dir.path("app.log");
    ASSERT_EQ(elog_file_init(name.c_str(), 10, 2), 0);
    const std::string lines[] = {"first line\n", "second line\n", "third line\n", "fourth line\n"};
    for (const auto& l : lines) elog_file_write(l.c_str(), l.size());
    elog_file_deinit();
    EXPECT_EQ(slurp(name), "fourth line\n");
    EXPECT_EQ(slurp(name + ".0"), "third line\n");
    EXPECT_EQ(slurp(name + ".1"), "second line\n");
    EXPECT_FALSE(fs::exists(name + ".2"));

    // Without rotation a full file keeps its lines and takes no more.
    const std::string fixed = dir.path("fixed.log");
    ASSERT_EQ(elog_file_init(fixed.c_str(), 10, 0), 0);
    for (const auto& l : lines) elog_file_write(l.c_str(), l.size());
    elog_file_deinit();
    EXPECT_EQ(slurp(fixed), "first line\n");
    EXPECT_FALSE(fs::exists(fixed + ".0"));
}
