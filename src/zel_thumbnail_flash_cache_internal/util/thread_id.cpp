#include "thread_id.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

__thread int t_ThreadId = 0;

namespace {

// The thread that forked goes on in the child under another id.
void ForgetThreadId() { t_ThreadId = 0; }

// Without the handler nothing may be remembered.
const bool g_bForkIsSeen = pthread_atfork(nullptr, nullptr, ForgetThreadId) == 0;

}  // namespace

int AskThreadId() {
    const int id = static_cast<int>(syscall(SYS_gettid));
    if (g_bForkIsSeen) {
        t_ThreadId = id;
    }
    return id;
}
