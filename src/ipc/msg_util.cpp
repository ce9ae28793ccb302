// System V message queues: thin wrappers that take whole message sizes and
// report through the console macros.
#include "ipc/msg_util.h"

#include <cerrno>
#include <sys/ipc.h>
#include <sys/msg.h>

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
