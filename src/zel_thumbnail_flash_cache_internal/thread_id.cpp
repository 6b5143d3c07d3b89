#include "thread_id.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

thread_local int t_ThreadId = 0;

// The thread that forked goes on in the child under another id.
void ForgetThreadId() { t_ThreadId = 0; }

// Without the handler nothing may be remembered.
const bool g_bForkIsSeen = pthread_atfork(nullptr, nullptr, ForgetThreadId) == 0;

}  // namespace

int CurrentThreadId() {
    if (t_ThreadId != 0) {
        return t_ThreadId;
    }
    const int id = static_cast<int>(syscall(SYS_gettid));
    if (g_bForkIsSeen) {
        t_ThreadId = id;
    }
    return id;
}
