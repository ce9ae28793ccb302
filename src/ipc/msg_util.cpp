// System V message queues: thin wrappers that take whole message sizes and
// report through the console macros.
#include "ipc/msg_util.h"

#include <cerrno>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/time.h>
#include <time.h>

#include "support/log.h"

namespace {
constexpr int kTypeWord = 8;  // the long type word is not part of the body
}

int Msg_Init(int key) {
    int qid = msgget(key, 0);
    if (qid < 0) {
        qid = msgget(key, IPC_CREAT | 0666);
        LOG_DBG("Creat queue id:%d\n", qid);
    }
    LOG_DBG("queue id:%d\n", qid);
    return qid;
}

int Msg_Kill(int qid) {
    msgctl(qid, IPC_RMID, nullptr);
    LOG_DBG("Kill queue id:%d\n", qid);
    return 0;
}

// Blocking calls are repeated when a signal handler interrupts them, so a
// print-level reload never costs a request its reply.
int Msg_Send(int qid, void* msg, int size) {
    if (msg == nullptr || size < kTypeWord) {
        errno = EINVAL;
        return -1;
    }
    int r;
    do {
        r = msgsnd(qid, msg, static_cast<size_t>(size - kTypeWord), 0);
    } while (r < 0 && errno == EINTR);
    return r;
}

int Msg_Rcv(int qid, int type, void* msg, int size) {
    if (msg == nullptr || size < kTypeWord) {
        errno = EINVAL;
        return -1;
    }
    ssize_t r;
    do {
        r = msgrcv(qid, msg, static_cast<size_t>(size - kTypeWord), type, 0);
    } while (r < 0 && errno == EINTR);
    return static_cast<int>(r);
}

int Msg_Send_Rcv(int qid, int type, void* msg, int size) {
    int r = Msg_Send(qid, msg, size);
    if (r < 0) return r;
    return Msg_Rcv(qid, type, msg, size);
}

// MSG_NOERROR truncates an oversized record instead of leaving it to block
// the loop; only its removal matters here.
void Msg_Drain(int qid, long type) {
    struct {
        long type;
        char body[128];
    } stale{};
    for (;;) {
        if (msgrcv(qid, &stale, sizeof stale.body, type, IPC_NOWAIT | MSG_NOERROR) >= 0) continue;
        if (errno == EINTR) continue;
        break;  // ENOMSG: empty; anything else: the queue is unusable
    }
}

volatile sig_atomic_t g_msg_stop = 0;

namespace {

void on_alarm(int) {}  // only there to interrupt the blocked receive

long long now_ms() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

void arm(long long ms) {
    itimerval t{};
    t.it_value.tv_sec = static_cast<time_t>(ms / 1000);
    t.it_value.tv_usec = static_cast<suseconds_t>((ms % 1000) * 1000);
    setitimer(ITIMER_REAL, &t, nullptr);
}

}  // namespace

int Msg_Rcv_Until(int qid, long type, void* msg, int size, int timeout_ms) {
    if (msg == nullptr || size < kTypeWord) {
        errno = EINVAL;
        return -1;
    }
    static const bool installed = [] {
        struct sigaction sa {};
        sa.sa_handler = on_alarm;
        sigemptyset(&sa.sa_mask);
        sa.sa_flags = 0;  // no restart: the receive must come back with EINTR
        return sigaction(SIGALRM, &sa, nullptr) == 0;
    }();
    (void)installed;
    const long long deadline = now_ms() + timeout_ms;
    const auto body = static_cast<size_t>(size - kTypeWord);
    for (;;) {
        if (g_msg_stop != 0) return -2;
        const long long left = deadline - now_ms();
        if (left <= 0) {
            // No time left: what is already there is still taken.
            const ssize_t ready = msgrcv(qid, msg, body, type, IPC_NOWAIT | MSG_NOERROR);
            if (ready >= 0) return static_cast<int>(ready);
            return errno == ENOMSG || errno == EINTR ? -2 : -1;
        }
        arm(left);
        const ssize_t r = msgrcv(qid, msg, body, type, MSG_NOERROR);
        const int err = errno;
        arm(0);
        if (r >= 0) return static_cast<int>(r);
        if (err != EINTR) {
            errno = err;
            return -1;
        }
    }
}
