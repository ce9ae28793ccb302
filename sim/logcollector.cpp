// Log collector of the simulated camera: drains the log queue and keeps every
// line, exactly as the sender formatted it, in run/app.log.
#include <cerrno>
#include <cstdlib>
#include <cstddef>
#include <cstring>
#include <sys/msg.h>
#include <thread>

#include "common/sim_env.h"
#include "records.h"

namespace {

constexpr size_t kBody = sizeof(LogMsg) - sizeof(long);
constexpr size_t kHeader = offsetof(LogMsg, text) - offsetof(LogMsg, header);  // header byte + length

void drain(int qid, sim::Journal& out) {
    LogMsg msg;
    while (!sim::stop_requested()) {
        std::memset(&msg, 0, sizeof msg);
        const ssize_t n = ::msgrcv(qid, &msg, kBody, 0, MSG_NOERROR);
        if (n < 0) {
            if (errno == EINTR) continue;
            if (errno == EIDRM || errno == EINVAL)  // queue removed: open it again
                qid = sim::queue_open(kLogMsgKey);
            sim::sleep_ms(100);
            continue;
        }
        if (static_cast<size_t>(n) <= kHeader) continue;
        size_t len = static_cast<size_t>(n) - kHeader;
        if (msg.length < len) len = msg.length;
        out.append(msg.text, len);
    }
}

}  // namespace

int main() {
    sim::block_stop_signals();
    const int qid = sim::queue_open(kLogMsgKey);
    if (qid < 0) return 1;
    sim::Journal out("app.log");
    std::thread worker([&] { drain(qid, out); });
    worker.detach();
    sim::say_ready();
    sim::wait_for_stop();
    std::_Exit(0);  // every line is already on disk; the worker may sit in msgrcv
}
