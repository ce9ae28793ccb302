// Start-up and shut-down of the responder, each run in a forked child inside
// a private IPC namespace so that the fixed keys of the host stay untouched.
// The child reports the first check that failed through its exit status.
#include <gtest/gtest.h>

#include <sched.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>

#include "front/web.h"
#include "ipc/CamMsgDrv.h"
#include "ipc/file_msg_drv.h"
#include "records/records.h"
#include "ipc/sys_msg_drv.h"
#include "support/elog.h"

namespace {

constexpr int kNoNamespace = 100;  // the child could not get its own IPC namespace

bool queue_exists(int key) { return msgget(key, 0) >= 0; }

// Creates the store segment as the system server would, `size` bytes, with
// the settings record marked valid when it is large enough to hold one.
bool make_store(size_t size) {
    const int id = shmget(kSysInfoKey, size, IPC_CREAT | IPC_EXCL | 0660);
    if (id < 0) return false;
    void* at = shmat(id, nullptr, 0);
    if (at == reinterpret_cast<void*>(-1)) return false;
    if (size >= sizeof(SysStore)) static_cast<SysStore*>(at)->info.magic = kInfoMagic;
    return shmdt(at) == 0;
}

// Runs `body` in a child with a fresh IPC namespace. The body returns 0 when
// every check held, otherwise the number of the failed check. A watchdog
// turns a hang (an exchange on a channel nobody answers) into a failure.
void run_isolated(const std::function<int()>& body) {
    std::fflush(nullptr);
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        if (unshare(CLONE_NEWIPC) != 0) _exit(kNoNamespace);
        alarm(10);
        const int failed = body();
        std::fflush(nullptr);
        _exit(failed);
    }
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status)) << "child ended by signal " << WTERMSIG(status);
    if (WEXITSTATUS(status) == kNoNamespace) GTEST_SKIP() << "no private IPC namespace (needs root)";
    EXPECT_EQ(WEXITSTATUS(status), 0) << "first failed check in the child";
}

#define CHECK_OR_FAIL(number, condition)                                                   \
    do {                                                                                   \
        if (!(condition)) {                                                                \
            std::fprintf(stderr, "check %d failed: %s\n", number, #condition);             \
            return number;                                                                 \
        }                                                                                  \
    } while (0)

}  // namespace

TEST(Startup, StoreFailureClosesTheCommandChannelAndNeverOpensTheCamera) {
    run_isolated([] {
        // A segment on the store's key too small for the store.
        CHECK_OR_FAIL(1, make_store(64));
        CHECK_OR_FAIL(2, system_init() == -1);
        // The command channel was opened first (its queue exists) ...
        CHECK_OR_FAIL(3, queue_exists(kSysMsgKey));
        // ... and closed again: no exchange is possible on it.
        uint8_t data[4] = {1, 2, 3, 4};
        CHECK_OR_FAIL(4, TransmitMsg2Sys(0, data, sizeof data, nullptr) == -1);
        // The camera channel comes after the store and was never opened.
        CHECK_OR_FAIL(6, !queue_exists(kCamMsgKey));
        CHECK_OR_FAIL(7, errno == ENOENT);
        // The entry point reports the failure and returns without serving.
        CHECK_OR_FAIL(8, web_main() == -1);
        CHECK_OR_FAIL(9, !queue_exists(kCamMsgKey));
        return 0;
    });
}

TEST(Startup, AllLinksOpenInOrderAndCloseAgain) {
    run_isolated([] {
        CHECK_OR_FAIL(1, make_store(sizeof(SysStore)));
        CHECK_OR_FAIL(2, system_init() == 0);
        CHECK_OR_FAIL(3, queue_exists(kSysMsgKey));
        CHECK_OR_FAIL(4, queue_exists(kSysInfoKey));
        CHECK_OR_FAIL(5, queue_exists(kCamMsgKey));
        CHECK_OR_FAIL(6, GetSysInfo() != nullptr);

        CHECK_OR_FAIL(7, system_deinit() == 0);
        uint8_t data[4] = {1, 2, 3, 4};
        CHECK_OR_FAIL(8, TransmitMsg2Sys(0, data, sizeof data, nullptr) == -1);
        CHECK_OR_FAIL(9, GetSysInfo() == nullptr);
        const uint8_t stop[] = {0x81, 0x01, 0x04, 0x07, 0x00, 0xFF};
        CHECK_OR_FAIL(10, TramsMsg2CamNowait(stop, sizeof stop) == -1);
        return 0;
    });
}

// SIGUSR1 only asks for the level; it is read again from the file before the
// next request is handled, and only then.
TEST(Startup, SigusrReloadsThePrintLevelBeforeTheNextRequest) {
    char dir_template[] = "/tmp/startup_level_XXXXXX";
    ASSERT_NE(mkdtemp(dir_template), nullptr);
    const std::string conf = std::string(dir_template) + "/print.conf";
    run_isolated([&conf] {
        auto write_level = [&conf](const char* word) {
            std::ofstream(conf) << "OTHER error\nFASTCGI " << word << "\n";
        };
        unsetenv("QUERY_STRING");
        unsetenv("REQUEST_METHOD");
        write_level("debug");
        print_conf_set_path(conf.c_str());
        CHECK_OR_FAIL(1, make_store(sizeof(SysStore)));
        CHECK_OR_FAIL(2, system_init() == 0);
        CHECK_OR_FAIL(3, g_print_level == 4);

        write_level("warn");
        web_handle_request();  // no CGI variables: answered with nothing
        CHECK_OR_FAIL(4, g_print_level == 4);  // the file alone changes nothing

        CHECK_OR_FAIL(5, raise(SIGUSR1) == 0);  // handled, the process lives on
        CHECK_OR_FAIL(6, g_print_level == 4);
        web_handle_request();
        CHECK_OR_FAIL(7, g_print_level == 2);

        write_level("info");
        web_handle_request();  // one signal, one reload
        CHECK_OR_FAIL(8, g_print_level == 2);

        system_deinit();
        return 0;
    });
    std::remove(conf.c_str());
    rmdir(dir_template);
}
