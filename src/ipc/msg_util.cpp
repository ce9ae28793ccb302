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

long long now_us() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<long long>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}

// When the armed timer fires (monotonic microseconds); 0 when none is armed.
long long g_fires_at = 0;

// Makes sure the timer fires no later than `deadline`. A timer already armed
// to fire before it is left alone: an early wake-up only sends the wait
// round its loop once more, and so a run of quick exchanges costs one
// setitimer instead of two each.
void arm_by(long long deadline, long long now) {
    if (g_fires_at > now && g_fires_at <= deadline) return;
    const long long us = deadline - now;
    itimerval t{};
    t.it_value.tv_sec = static_cast<time_t>(us / 1000000);
    t.it_value.tv_usec = static_cast<suseconds_t>(us % 1000000);
    if (setitimer(ITIMER_REAL, &t, nullptr) == 0) g_fires_at = deadline;
}

// A timer left armed must not fire outside a wait: it is kept past a
// receive only while it is at least this far off (the request's end turns
// it off in any case).
constexpr long long kKeepArmedUs = 2000000;

}  // namespace

void Msg_Timer_Off() {
    if (g_fires_at == 0) return;
    itimerval off{};
    setitimer(ITIMER_REAL, &off, nullptr);
    g_fires_at = 0;
}

int Msg_Rcv_Until(int qid, long type, void* msg, int size, int timeout_ms) {
    if (msg == nullptr || size < kTypeWord) {
        errno = EINVAL;
        return -1;
    }
    // The handler restarts what it interrupts elsewhere (a timer left armed
    // may fire after the wait, in a read or a write), while a System V
    // receive always comes back with EINTR whatever the flag says.
    static const bool installed = [] {
        struct sigaction sa {};
        sa.sa_handler = on_alarm;
        sigemptyset(&sa.sa_mask);
        sa.sa_flags = SA_RESTART;
        return sigaction(SIGALRM, &sa, nullptr) == 0;
    }();
    (void)installed;
    const long long deadline = now_us() + static_cast<long long>(timeout_ms) * 1000;
    const auto body = static_cast<size_t>(size - kTypeWord);
    for (;;) {
        if (g_msg_stop != 0) return -2;
        const long long now = now_us();
        if (deadline - now <= 0) {
            // No time left: what is already there is still taken.
            const ssize_t ready = msgrcv(qid, msg, body, type, IPC_NOWAIT | MSG_NOERROR);
            if (ready >= 0) return static_cast<int>(ready);
            return errno == ENOMSG || errno == EINTR ? -2 : -1;
        }
        arm_by(deadline, now);
        const ssize_t r = msgrcv(qid, msg, body, type, MSG_NOERROR);
        const int err = errno;
        if (r >= 0) {
            if (g_fires_at - now_us() < kKeepArmedUs) Msg_Timer_Off();
            return static_cast<int>(r);
        }
        if (err != EINTR) {
            errno = err;
            return -1;
        }
    }
}
