// System V message queues. Sizes are whole message sizes: the 8-byte type
// word is not counted in what goes over the queue.
#pragma once

#include <csignal>

int Msg_Init(int key);
int Msg_Kill(int qid);
int Msg_Send(int qid, void* msg, int size);
int Msg_Rcv(int qid, int type, void* msg, int size);
int Msg_Send_Rcv(int qid, int type, void* msg, int size);
// Receives without waiting and throws away every message of `type` until the
// queue holds none: stale replies of an exchange that was given up.
void Msg_Drain(int qid, long type);

// Set (from a signal handler) when the process is asked to end: a receive
// waiting with a deadline gives up at once.
extern volatile sig_atomic_t g_msg_stop;

// Msg_Rcv that waits at most `timeout_ms`: -2 when the deadline passed (or
// the process is ending), -1 on another failure. It sleeps in the kernel
// until a message or the deadline comes: no polling.
int Msg_Rcv_Until(int qid, long type, void* msg, int size, int timeout_ms);
// The waits leave their timer armed from one exchange to the next; the end
// of a request turns it off, so that it never fires outside a wait.
void Msg_Timer_Off();
