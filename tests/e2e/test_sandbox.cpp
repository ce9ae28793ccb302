// The simulated camera itself: the responder runs in its own namespaces with
// the camera's network and file system, firmware stand-ins journal their
// calls, and a responder that dies is restarted.
#include "e2e/harness.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <signal.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

namespace {

using namespace e2e;

std::string ns_of(const std::string& pid, const char* ns) {
    char buf[64] = {};
    const std::string link = "/proc/" + pid + "/ns/" + ns;
    const ssize_t n = readlink(link.c_str(), buf, sizeof buf - 1);
    return n > 0 ? std::string(buf, static_cast<size_t>(n)) : std::string();
}

// The responder of this sandbox: the process named "web" in the PID
// namespace of the sandbox's first process (run/sandbox.pid). 0 if none.
pid_t responder_pid() {
    const std::string init = read_file(run_path("sandbox.pid"));
    const std::string sandbox_ns = ns_of(std::to_string(std::atoi(init.c_str())), "pid");
    if (init.empty() || sandbox_ns.empty()) return 0;
    pid_t found = 0;
    DIR* dir = opendir("/proc");
    while (dirent* e = dir ? readdir(dir) : nullptr) {
        const std::string p = e->d_name;
        if (std::atoi(p.c_str()) > 0 && read_file("/proc/" + p + "/comm") == "web\n" &&
            ns_of(p, "pid") == sandbox_ns)
            found = static_cast<pid_t>(std::atoi(p.c_str()));
    }
    if (dir) closedir(dir);
    return found;
}

// A variable of the process's environment ("" when absent).
std::string env_var(pid_t pid, const std::string& name) {
    std::istringstream env(read_file("/proc/" + std::to_string(pid) + "/environ"));
    for (std::string var; std::getline(env, var, '\0');)
        if (var.rfind(name + "=", 0) == 0) return var.substr(name.size() + 1);
    return {};
}

pid_t wait_responder(pid_t other_than, int timeout_ms) {
    for (int waited = 0; waited < timeout_ms; waited += 50) {
        const pid_t pid = responder_pid();
        if (pid > 0 && pid != other_than) return pid;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return 0;
}

// Runs a shell command inside the sandbox with the responder's environment;
// returns its output.
std::string run_inside(pid_t pid, const std::string& command) {
    // The user namespace is entered only when the sandbox has its own (when
    // it was started by an ordinary user).
    const std::string p = std::to_string(pid);
    std::vector<std::string> argv{"nsenter", "-t", p, "-m", "-n", "-i", "-p"};
    if (ns_of(p, "user") != ns_of("self", "user")) argv.insert(argv.end(), {"-U", "--preserve-credentials"});
    argv.insert(argv.end(),
                {"env", "-i", "PATH=" + env_var(pid, "PATH"),
                 "CAMERA_RUN_DIR=" + env_var(pid, "CAMERA_RUN_DIR"), "sh", "-c", command + " 2>&1"});
    return run_program(argv);
}

const std::string kUnknownNonsense =
    "Content-type: application/json\r\nStatus: 200 OK\r\n\r\n"
    "{\"status\":-1,\"message\":nonsense}";

TEST(Sandbox, ResponderAnswersOnItsPrivateSocket) {
    struct stat st {};
    ASSERT_EQ(stat(run_path("web.sock").c_str(), &st), 0);
    EXPECT_TRUE(S_ISSOCK(st.st_mode));
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    // made for the web servers' account (SOCKET_USER, as the sandbox was told)
    const char* account = std::getenv("SOCKET_USER");
    const passwd* owner = account != nullptr && *account != '\0' ? getpwnam(account) : nullptr;
    EXPECT_EQ(st.st_uid, owner != nullptr ? owner->pw_uid : getuid());
    EXPECT_EQ(get("nonsense"), kUnknownNonsense);
}

TEST(Sandbox, ResponderSeesTheCameraNotTheHost) {
    const pid_t pid = responder_pid();
    ASSERT_GT(pid, 0) << "no responder in the sandbox of " << run_dir();
    const std::string p = std::to_string(pid);
    for (const char* ns : {"ipc", "net", "mnt", "pid"})
        EXPECT_NE(ns_of(p, ns), ns_of("self", ns)) << ns << " namespace is the host's";

    // eth0 192.168.1.100/24 with the default route via 192.168.1.1.
    EXPECT_NE(read_file("/proc/" + p + "/net/dev").find("eth0:"), std::string::npos);
    const std::string fib = read_file("/proc/" + p + "/net/fib_trie");
    EXPECT_NE(fib.find("192.168.1.100"), std::string::npos);
    bool default_route = false;
    std::istringstream routes(read_file("/proc/" + p + "/net/route"));
    for (std::string line; std::getline(routes, line);) {
        std::istringstream f(line);
        std::string iface, dest, gw;
        f >> iface >> dest >> gw;
        if (iface == "eth0" && dest == "00000000" && gw == "0101A8C0") default_route = true;
    }
    EXPECT_TRUE(default_route);

    // The camera's /tmp and /opt are run/root/tmp and run/root/opt.
    const std::string root = "/proc/" + p + "/root";
    std::ofstream(run_path("root/tmp/sandbox-probe")) << "probe\n";
    EXPECT_EQ(read_file(root + "/tmp/sandbox-probe"), "probe\n");
    std::remove(run_path("root/tmp/sandbox-probe").c_str());
    EXPECT_NE(read_file(root + "/opt/params/print.conf").find("FASTCGI"), std::string::npos);
    EXPECT_NE(read_file(root + "/opt/ipnc/www/config/lighttpd.conf").find("server.port = 80"),
              std::string::npos);
    EXPECT_EQ(read_file(root + "/etc/resolv.conf"), read_file(run_path("root/etc/resolv.conf")));
    EXPECT_NE(read_file(root + "/etc/resolv.conf").find("nameserver 192.168.1.1\n"), std::string::npos);
    EXPECT_EQ(read_file(root + "/sys/class/net/eth0/carrier"), "1\n");
    EXPECT_EQ(read_file(root + "/sys/class/net/eth0/address"), "02:00:c0:a8:01:64\n");
}

TEST(Sandbox, StandInsJournalTheirCalls) {
    const pid_t pid = responder_pid();
    ASSERT_GT(pid, 0);
    Journal shell("shell.log");
    // The stand-ins' directory as the camera sees it (run/ may be mounted
    // elsewhere inside when its host path would be hidden).
    const std::string bin = env_var(pid, "CAMERA_RUN_DIR") + "/bin/";
    // The names resolve to the stand-ins, not to the host's programs.
    const std::string where =
        run_inside(pid, "for c in date hwclock mount umount mkfs.vfat; do command -v $c; done");
    std::istringstream lines(where);
    int found = 0;
    for (std::string line; std::getline(lines, line); ++found) EXPECT_EQ(line.rfind(bin, 0), 0u) << line;
    EXPECT_EQ(found, 5) << where;

    run_inside(pid,
               "sd-automount mmcblk0p1; /opt/ipnc/dhcpcd/dhcpcd -k eth0; "
               "/opt/ipnc/sys_update 1>/dev/console 2>/dev/console");
    const auto got = shell.wait_lines(3);
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(got[0], bin + "sd-automount mmcblk0p1");
    EXPECT_EQ(got[1], "/opt/ipnc/dhcpcd/dhcpcd -k eth0");
    EXPECT_EQ(got[2], "/opt/ipnc/sys_update");
}

TEST(Sandbox, ResponderIsRestartedAfterItDies) {
    const pid_t first = responder_pid();
    ASSERT_GT(first, 0);
    ASSERT_EQ(end_responder_on_purpose(first, SIGKILL), 0);
    const pid_t second = wait_responder(first, 10000);
    ASSERT_GT(second, 0) << "no new responder";
    // The harness retries while the socket is being re-created.
    EXPECT_EQ(get("nonsense"), kUnknownNonsense);
}

// Named snapshots keep at most 32 links in the web root, the newest among them.
TEST(Sandbox, SnapshotLinksAreCapped) {
    for (int i = 0; i < 36; ++i) get("func=set{\"image\":{\"snap\":\"cap" + std::to_string(i) + ".jpg\"}}");
    int links = 0;
    if (DIR* dir = opendir(run_path("root/opt/ipnc/www/images/snap").c_str())) {
        while (dirent* e = readdir(dir)) links += std::string(e->d_name).rfind("cap", 0) == 0;
        closedir(dir);
    }
    EXPECT_LE(links, 32);
    EXPECT_GE(links, 30);
    struct stat st {};
    EXPECT_EQ(lstat(run_path("root/opt/ipnc/www/images/snap/cap35.jpg").c_str(), &st), 0);
}

// ---- a system server that never answers -------------------------------------------

// Clears the system server's fault switch however the test ends.
struct SilentSystemServer {
    SilentSystemServer() { fault_set("syssim.ctl", "silent"); }
    ~SilentSystemServer() { fault_set("syssim.ctl", ""); }
};

long long elapsed_ms(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - since)
        .count();
}

TEST(SandboxFaults, SilentSystemServerCostsOneDeadline) {
    std::string reply;
    long long took = 0;
    {
        SilentSystemServer silent;
        const auto start = std::chrono::steady_clock::now();
        reply = body_of(get(R"(func=set{"audio":{"volume":5}})"));
        took = elapsed_ms(start);
    }
    EXPECT_NE(reply.find("\"audio\":\tfalse"), std::string::npos) << reply;
    EXPECT_GE(took, 9000);
    EXPECT_LT(took, 15000);
    // The service goes on: the next command is answered by the server again.
    EXPECT_NE(body_of(get(R"(func=set{"audio":{"volume":6}})")).find("\"volume\":\t6"), std::string::npos);
}

TEST(SandboxFaults, SigtermEndsAWaitingRequestPromptly) {
    const pid_t first = responder_pid();
    ASSERT_GT(first, 0);
    long long took = 0;
    {
        SilentSystemServer silent;
        std::thread request([] { get(R"(func=set{"audio":{"volume":7}})"); });
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        const auto start = std::chrono::steady_clock::now();
        ASSERT_EQ(end_responder_on_purpose(first, SIGTERM), 0);
        for (took = 0; took < 5000 && kill(first, 0) == 0; took = elapsed_ms(start))
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        request.join();
    }
    EXPECT_LT(took, 2000) << "the responder outlived SIGTERM";
    EXPECT_GT(wait_responder(first, 10000), 0) << "no new responder";
    EXPECT_EQ(get("nonsense"), kUnknownNonsense);
}

// A full /tmp: inside the sandbox's mount namespace only, a 64 KiB file
// system filled to the brim is laid over /tmp. Requests that touch files go
// on being answered, and nothing of theirs is left in /tmp.
TEST(SandboxFaults, FullTmpLeavesNothingBehind) {
    const pid_t pid = responder_pid();
    ASSERT_GT(pid, 0);
    const std::string mounted = run_inside(pid,
                                           "/usr/bin/mount -t tmpfs -o size=64k full /tmp && dd if=/dev/zero "
                                           "of=/tmp/filler bs=4k count=64 2>/dev/null; echo mounted");
    ASSERT_NE(mounted.find("mounted"), std::string::npos) << mounted;
    const std::string feature = body_of(get("func=set{\"image\":{\"feature\":{\"0\":{\"size\":3}}}}"));
    const std::string snap = body_of(get("func=set{\"image\":{\"snap\":1}}"));
    const std::string preview = get("path=/mw-api/v1/preview/image");
    const std::string left = run_inside(pid, "ls -A /tmp; /usr/bin/umount /tmp");
    EXPECT_NE(feature.find("\"status\""), std::string::npos) << feature;
    EXPECT_NE(snap.find("\"status\""), std::string::npos) << snap;
    EXPECT_NE(preview.find("Status: 200 OK"), std::string::npos) << preview.substr(0, 200);
    std::istringstream names(left);
    for (std::string name; names >> name;) EXPECT_EQ(name, "filler") << "left in /tmp";
}

// A silent camera costs a request one inquiry time-out (5 s), not one per inquiry.
TEST(SandboxFaults, SilentCameraFailsARequestAfterItsFirstTimeOut) {
    std::string reply;
    long long took = 0;
    {
        fault_set("camsim.ctl", "silent");
        const auto start = std::chrono::steady_clock::now();
        reply = body_of(get(R"(func=get{"image":{"zoom":true,"focus":true,"mirror":true,"gain":true}})"));
        took = elapsed_ms(start);
        fault_set("camsim.ctl", "");
    }
    for (const char* key : {"zoom", "focus", "mirror", "gain"})
        EXPECT_NE(reply.find(std::string("\"") + key + "\":\tfalse"), std::string::npos) << key << reply;
    EXPECT_LT(took, 8000);
    // The next request finds the camera answering again.
    EXPECT_EQ(body_of(get(R"(func=get{"image":{"mirror":true}})")).find("false"), std::string::npos);
}

}  // namespace
