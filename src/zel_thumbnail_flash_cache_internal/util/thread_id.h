/**
 * @file
 * The kernel's id of the calling thread, for log lines.
 */
#ifndef ZEL_THREAD_ID_H
#define ZEL_THREAD_ID_H

// The remembered id, or 0. Of a kind that needs neither a call nor an initialisation to be read.
extern __thread int t_ThreadId __attribute__((tls_model("initial-exec"), visibility("hidden")));

/** Asks the kernel for the id of the calling thread. */
[[nodiscard]] int AskThreadId();

/** The id of the calling thread, asked of the kernel once a thread and again after a fork. */
[[nodiscard]] inline int CurrentThreadId() { return t_ThreadId != 0 ? t_ThreadId : AskThreadId(); }

#endif
