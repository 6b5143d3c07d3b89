/**
 * @file
 * The log service that the library expects of its platform.
 */
#ifndef ZEL_PLATFORM_LOG_H
#define ZEL_PLATFORM_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

/** Priorities that the library uses; a platform may know more. */
enum zel_platform_log_priority {
    ZEL_PLATFORM_LOG_INFO = 4,
    ZEL_PLATFORM_LOG_WARN = 5,
};

/**
 * Writes one message to the platform's log.
 *
 * May be called from any thread at any time; messages of several threads do not mix. The call never
 * blocks on the library and never calls back into it.
 *
 * @param log_id  the log buffer; the library always passes 2
 * @param prio    the priority, higher is more urgent (enum zel_platform_log_priority)
 * @param tag     names the component, not null
 * @param fmt     a printf format for the arguments that follow, not null
 * @return the number of bytes written, or a negative value; the library ignores it
 */
int __dlog_print(int log_id, int prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 4, 5)));

#ifdef __cplusplus
}
#endif

#endif
