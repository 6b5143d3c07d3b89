/**
 * @file
 * The kernel's id of the calling thread.
 */
#ifndef ZEL_THREAD_ID_H
#define ZEL_THREAD_ID_H

/** The id of the calling thread, asked of the kernel once a thread and again after a fork. */
int CurrentThreadId();

#endif
