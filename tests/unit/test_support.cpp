#include <gtest/gtest.h>

#include <sys/mount.h>
#include <signal.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "support/elog.h"
#include "scratch.h"
#include "support/log.h"
#include "support/support.h"

namespace fs = std::filesystem;

namespace {

class SupportTest : public ::testing::Test {
protected:
    void SetUp() override { saved_level_ = g_print_level; }
    void TearDown() override { g_print_level = saved_level_; }
    std::string path(const char* name) const { return scratch_.path(name); }
    Scratch scratch_{"support"};
    int saved_level_ = 3;
};

// ini_get_value as text: the value, or the error number.
std::string ini_value(const std::string& ini, const char* section, const char* key, size_t size = 16) {
    char value[16];
    const int r = ini_get_value(ini.c_str(), section, key, value, size);
    return r == 1 ? std::string(value) : std::to_string(r);
}

void reap_all(int) {
    int saved = errno;
    while (::waitpid(-1, nullptr, WNOHANG) > 0) {}
    errno = saved;
}

// Restores the SIGCHLD disposition a test changed.
struct ChildSignalScope {
    struct sigaction old {};
    explicit ChildSignalScope(void (*handler)(int)) {
        struct sigaction sa {};
        sa.sa_handler = handler;
        sigemptyset(&sa.sa_mask);
        ::sigaction(SIGCHLD, &sa, &old);
    }
    ~ChildSignalScope() { ::sigaction(SIGCHLD, &old, nullptr); }
};

}  // namespace

TEST_F(SupportTest, PoxSystemKeepsExitStatusWhateverTheChildSignal) {
    for (auto handler : {reap_all, SIG_IGN}) {
        ChildSignalScope scope(handler);
        int status = pox_system("exit 3");
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 3);
        char out[8];
        status = pox_popen("printf 'abcdefghij'; exit 2", out, sizeof(out));
        EXPECT_EQ(WEXITSTATUS(status), 2);
        EXPECT_STREQ(out, "abcdefg");
        struct sigaction now {};
        ::sigaction(SIGCHLD, nullptr, &now);
        EXPECT_EQ(now.sa_handler, handler);  // the caller's handler is back
    }
}

TEST_F(SupportTest, IniReadsAndWritesSectionsAndKeys) {
    const std::string ini = path("feature.ini");
    std::ofstream(ini) << "; comment\n[0]\nsize = 12\nx=3   \n\n[1]\nsize=40\n";
    const std::string no = std::to_string(-ENOENT), bad = std::to_string(-ECHILD);
    EXPECT_EQ(ini_value(ini, "0", "size"), "12");
    EXPECT_EQ(ini_value(ini, "0", "x"), "3");
    EXPECT_EQ(ini_value(ini, "1", "x"), no);
    EXPECT_EQ(ini_value(ini, "7", "size"), no);
    EXPECT_EQ(ini_value(path("absent.ini"), "0", "size"), bad);
    EXPECT_EQ(ini_value(ini, nullptr, "size"), bad);
    EXPECT_EQ(ini_value(ini, "1", "size", 3), "40");
    EXPECT_EQ(ini_value(ini, "1", "size", 1), "");  // room for the end only
    EXPECT_EQ(ini_value(ini, "1", "size", 0), bad);

    // Changing a value keeps every other line.
    EXPECT_EQ(ini_set_value(ini.c_str(), "0", "size", "99"), 0);
    EXPECT_EQ(slurp(ini), "; comment\n[0]\nsize=99\nx=3   \n\n[1]\nsize=40\n");

    // A missing section, or a missing key of an existing one, is appended at
    // the end with its section header; readers find it there.
    EXPECT_EQ(ini_set_value(ini.c_str(), "2", "x", "8"), 0);
    EXPECT_EQ(ini_set_value(ini.c_str(), "0", "y", "5"), 0);
    EXPECT_EQ(slurp(ini), "; comment\n[0]\nsize=99\nx=3   \n\n[1]\nsize=40\n[2]\nx=8\n[0]\ny=5\n");
    EXPECT_EQ(ini_value(ini, "2", "x"), "8");
    EXPECT_EQ(ini_value(ini, "0", "y"), "5");
    EXPECT_EQ(ini_set_value(ini.c_str(), "0", "y", "6"), 0);  // found in the second block
    EXPECT_TRUE(slurp(ini).ends_with("[0]\ny=6\n"));

    char names[4][64];
    ASSERT_EQ(ini_get_sections(ini.c_str(), names, 4), 4);
    EXPECT_STREQ(names[2], "2");
    ASSERT_EQ(ini_get_keys(ini.c_str(), "0", names, 4), 3);
    EXPECT_STREQ(names[0], "size");
    EXPECT_STREQ(names[2], "y");
    EXPECT_EQ(ini_get_keys(ini.c_str(), "9", names, 4), -ENOENT);

    // Values that would break the file's lines are refused.
    EXPECT_EQ(ini_set_value(ini.c_str(), "0", "x", "1\n[evil]"), -ECHILD);
    EXPECT_EQ(ini_set_value(ini.c_str(), "0]", "x", "1"), -ECHILD);
}

// A rewrite replaces the file whole: bytes kept exactly (a NUL inside a line
// too), the file's mode kept, no temporary left beside it.
TEST_F(SupportTest, IniRewriteKeepsBytesModeAndLeavesNothingBehind) {
    const std::string ini = path("bytes.ini");
    const std::string before = std::string("[a]\nk=1\nodd=x\0y\n", 16);
    std::ofstream(ini, std::ios::binary) << before;
    ASSERT_EQ(::chmod(ini.c_str(), 0640), 0);
    EXPECT_EQ(ini_set_value(ini.c_str(), "a", "k", "2"), 0);
    EXPECT_EQ(slurp(ini), std::string("[a]\nk=2\nodd=x\0y\n", 16));
    struct stat st {};
    ASSERT_EQ(::stat(ini.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0640u);
    EXPECT_EQ(scratch_.entries("bytes.ini"), 1);
}

// On a full file system the rewrite fails, the file stays as it was and no
// temporary is left. The test mounts a 16 KiB file system of its own, which
// it can only do in the private mount namespace the unit tests run in.
TEST_F(SupportTest, IniRewriteOnAFullDiskLeavesNothingBehind) {
    const std::string dir = path("full");
    ASSERT_EQ(::mkdir(dir.c_str(), 0700), 0);
    if (::mount("full", dir.c_str(), "tmpfs", 0, "size=16k") != 0)
        GTEST_SKIP() << "no private mount namespace: run through scripts/private-ipc.sh";
    const std::string ini = dir + "/a.ini";
    const std::string before = "[a]\nk=" + std::string(6000, 'x') + "\n";
    std::ofstream(ini, std::ios::binary) << before;
    EXPECT_EQ(ini_set_value(ini.c_str(), "a", "k", std::string(12000, 'y').c_str()), -EAGAIN);
    EXPECT_EQ(slurp(ini), before);
    EXPECT_EQ(scratch_.entries("", "full"), 1);
    ::umount(dir.c_str());
}

TEST_F(SupportTest, IniLeavesUnchangedFileAloneAndCreatesMissingOne) {
    const std::string ini = path("a.ini");
    std::ofstream(ini) << "[net]\nmtu=1500";  // no line end at the very end
    struct timeval old_times[2] = {{1000000000, 0}, {1000000000, 0}};
    ASSERT_EQ(::utimes(ini.c_str(), old_times), 0);
    EXPECT_EQ(ini_set_value(ini.c_str(), "net", "mtu", "1500"), 0);
    struct stat st {};
    ASSERT_EQ(::stat(ini.c_str(), &st), 0);
    EXPECT_EQ(st.st_mtime, 1000000000);

    EXPECT_EQ(ini_set_value(ini.c_str(), "dns", "server", "8.8.8.8"), 0);
    EXPECT_EQ(slurp(ini), "[net]\nmtu=1500\n[dns]\nserver=8.8.8.8\n");

    const std::string fresh = path("fresh.ini");
    EXPECT_EQ(ini_set_value(fresh.c_str(), "s", "k", "v"), 0);
    EXPECT_EQ(slurp(fresh), "[s]\nk=v\n");
}

TEST_F(SupportTest, DiagnosticFilesMoveAsideAbove2MiB) {
    const std::string at_limit = path("at_limit.log");
    const std::string over = path("over.log");
    fs::resize_file((std::ofstream(at_limit), at_limit), 2097152);
    fs::resize_file((std::ofstream(over), over), 2097153);
    EXPECT_EQ(log_append_line(at_limit.c_str(), "next"), 0);
    EXPECT_EQ(log_append_line(over.c_str(), "next"), 0);
    EXPECT_FALSE(fs::exists(at_limit + ".bak"));
    EXPECT_EQ(fs::file_size(at_limit), 2097152u + 5);
    ASSERT_TRUE(fs::exists(over + ".bak"));
    EXPECT_EQ(fs::file_size(over + ".bak"), 2097153u);
    EXPECT_EQ(slurp(over), "next\n");

    const uint8_t bytes[] = {0x81, 0x01, 0xff};
    const std::string hex = path("hex.log");
    EXPECT_EQ(log_append_hex(hex.c_str(), bytes, 3, "tx"), 0);
    const std::string h = slurp(hex);
    EXPECT_EQ(h.front(), '[');
    EXPECT_TRUE(h.ends_with("]tx:81  01  ff  \n")) << h;
    const std::string txt = path("text.log");
    EXPECT_EQ(log_append_text(txt.c_str(), "hello", 99, "rx"), 0);
    EXPECT_TRUE(slurp(txt).ends_with("]rx:\nhello\n"));
    EXPECT_EQ(log_append_text(txt.c_str(), "ended\n", 6, "rx"), 0);  // a text that ends its line
    EXPECT_TRUE(slurp(txt).ends_with("]rx:\nended\n"));
    EXPECT_EQ(log_append_text(nullptr, "x", 1, "rx"), -1);
    EXPECT_EQ(log_file_limit(nullptr), 0);
    EXPECT_EQ(ini_copy_file(nullptr, txt.c_str()), -1);
}

TEST_F(SupportTest, HexPrintBreaksLinesAfterSixteenAndAtTheEnd) {
    uint8_t bytes[17];
    for (int i = 0; i < 17; ++i) bytes[i] = static_cast<uint8_t>(i);
    g_print_level = 3;
    testing::internal::CaptureStderr();
    EXPECT_EQ(hex_print(bytes, 17), 3);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

    g_print_level = 4;
    tint_force(2, 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(hex_print(bytes, 17), 17);
    const std::string err = testing::internal::GetCapturedStderr();
    tint_force(2, -1);
    std::string expected;
    char buf[32];
    for (int i = 0; i < 17; ++i) {
        std::snprintf(buf, sizeof(buf), "\033[0;34m%02x  \033[0m", i);
        expected += buf;
        if (i == 15 || i == 16) expected += "\n";
    }
    EXPECT_EQ(err, expected);

    testing::internal::CaptureStdout();
    EXPECT_EQ(hex_dump(bytes, 16), 16);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1);
}

TEST_F(SupportTest, MsgSizeCheckKeepsHalfTheQueueFree) {
    const int qid = ::msgget(IPC_PRIVATE, IPC_CREAT | 0600);
    ASSERT_GE(qid, 0);
    struct msqid_ds ds {};
    ASSERT_EQ(::msgctl(qid, IPC_STAT, &ds), 0);
    ds.msg_qbytes = 1000;
    ASSERT_EQ(::msgctl(qid, IPC_SET, &ds), 0);
    EXPECT_EQ(msg_size_check(qid, 1000), 0);
    EXPECT_EQ(msg_size_check(qid, 1001), -1);
    struct {
        long type;
        char body[600];
    } msg{1, {}};
    ASSERT_EQ(::msgsnd(qid, &msg, 500, IPC_NOWAIT), 0);
    EXPECT_EQ(msg_size_check(qid, 88), 0);  // exactly half full
    ASSERT_EQ(::msgsnd(qid, &msg, 1, IPC_NOWAIT), 0);
    EXPECT_EQ(msg_size_check(qid, 88), -1);  // 88 would fit, but more than half is taken
    ::msgctl(qid, IPC_RMID, nullptr);
    EXPECT_EQ(msg_size_check(qid, 88), -1);
}

TEST_F(SupportTest, ProcessAndFileQueries) {
    const std::string file = path("snap.jpg");
    {
        std::ofstream held(file);
        held << "x" << std::flush;
        EXPECT_EQ(file_in_use(file.c_str()), 1);
    }
    EXPECT_EQ(file_in_use(file.c_str()), 0);

    char name[64];
    ASSERT_EQ(get_process_name(name, sizeof(name)), 0);
    // Under a user-mode emulator the kernel names the process after the
    // emulator, not after the program it runs.
    if (std::string(name).rfind("qemu-", 0) != 0) {
        EXPECT_EQ(std::string(program_invocation_short_name).substr(0, 15), name);
    }

    EXPECT_GT(free_space_check(path("").c_str()), 0);
    EXPECT_EQ(free_space_check(path("absent/dir").c_str()), -1);
}
