// Start-up and shut-down of the responder on the camera's fixed keys, which
// are the test's own: every unit test runs in a private IPC namespace.
#include <gtest/gtest.h>

#include <csignal>

#include "front/web.h"
#include "ipc/CamMsgDrv.h"
#include "ipc/file_msg_drv.h"
#include "ipc/sys_msg_drv.h"
#include "records/records.h"
#include "fake_files.h"
#include "scratch.h"
#include "support/elog.h"
#include "test_ipc_peer.h"

namespace {

bool queue_exists(int key) { return msgget(key, 0) >= 0; }

// The store segment as the system server makes it, `size` bytes, the settings
// record marked valid when it is large enough to hold one. The keys are
// cleared again when the test ends.
class Startup : public ::testing::Test {
protected:
    void make_store(size_t size) {
        const int id = shmget(kSysInfoKey, size, IPC_CREAT | IPC_EXCL | 0660);
        ASSERT_GE(id, 0);
        void* at = shmat(id, nullptr, 0);
        ASSERT_NE(at, reinterpret_cast<void*>(-1));
        if (size >= sizeof(SysStore)) static_cast<SysStore*>(at)->info.magic = kInfoMagic;
        shmdt(at);
    }
    void TearDown() override {
        system_deinit();
        g_print_level = saved_level_;
        for (int key : {kSysMsgKey, kSysInfoKey, kCamMsgKey}) remove_queue(key);
        for (int key : {kSysMsgKey, kSysInfoKey}) remove_segment(key);
    }
    int saved_level_ = g_print_level;
    uint8_t data_[4] = {1, 2, 3, 4};
};

}  // namespace

TEST_F(Startup, StoreFailureClosesTheCommandChannelAndNeverOpensTheCamera) {
    make_store(64);  // on the store's key, too small for the store
    EXPECT_EQ(system_init(), -1);
    EXPECT_TRUE(queue_exists(kSysMsgKey));  // the command channel was opened first ...
    EXPECT_EQ(TransmitMsg2Sys(0, data_, sizeof data_, nullptr), -1);  // ... and closed again
    EXPECT_FALSE(queue_exists(kCamMsgKey));                           // the camera's comes after the store
    EXPECT_EQ(web_main(), -1);  // reports the failure and serves nothing
    EXPECT_FALSE(queue_exists(kCamMsgKey));
}

TEST_F(Startup, AllLinksOpenInOrderAndCloseAgain) {
    make_store(sizeof(SysStore));
    ASSERT_EQ(system_init(), 0);
    for (int key : {kSysMsgKey, kSysInfoKey, kCamMsgKey}) EXPECT_TRUE(queue_exists(key)) << key;
    EXPECT_NE(GetSysInfo(), nullptr);
    EXPECT_EQ(system_deinit(), 0);
    EXPECT_EQ(TransmitMsg2Sys(0, data_, sizeof data_, nullptr), -1);
    EXPECT_EQ(GetSysInfo(), nullptr);
    const uint8_t stop[] = {0x81, 0x01, 0x04, 0x07, 0x00, 0xFF};
    EXPECT_EQ(TramsMsg2CamNowait(stop, sizeof stop), -1);
}

// SIGUSR1 only asks for the level; it is read again from the file before the
// next request is handled, and only then.
TEST_F(Startup, SigusrReloadsThePrintLevelBeforeTheNextRequest) {
    const Scratch dir("startup_level");
    const fake::RootInstalled root(dir.path());
    const std::string conf = root.make("/opt/params/print.conf");
    const auto level_after = [&conf](const char* word, bool signal) {
        std::ofstream(conf) << "OTHER error\nFASTCGI " << word << "\n";
        const int before = g_print_level;
        if (signal) {
            EXPECT_EQ(raise(SIGUSR1), 0);  // handled: the process lives on
        }
        EXPECT_EQ(g_print_level, before);  // and only asks
        web_handle_request();              // no CGI variables: answered with nothing
        return g_print_level;
    };
    unsetenv("QUERY_STRING");
    unsetenv("REQUEST_METHOD");
    std::ofstream(conf) << "FASTCGI debug\n";
    make_store(sizeof(SysStore));
    ASSERT_EQ(system_init(), 0);
    EXPECT_EQ(g_print_level, 4);
    EXPECT_EQ(level_after("warn", false), 4);  // the file alone changes nothing
    EXPECT_EQ(level_after("warn", true), 2);
    EXPECT_EQ(level_after("info", false), 2);  // one signal, one reload
}
