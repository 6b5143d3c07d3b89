/**
 * @file
 * Who holds which lock, said where the compiler can check it: clang does with -Wthread-safety,
 * other compilers see nothing.
 */
#ifndef ZEL_THREAD_ANNOTATIONS_H
#define ZEL_THREAD_ANNOTATIONS_H

#ifdef __clang__
#define ZEL_THREAD_ANNOTATION(text) __attribute__((text))
#else
#define ZEL_THREAD_ANNOTATION(text)
#endif

// Of a class: its objects are locks, or hold one as long as they live.
#define ZEL_CAPABILITY ZEL_THREAD_ANNOTATION(capability("mutex"))
#define ZEL_SCOPED_CAPABILITY ZEL_THREAD_ANNOTATION(scoped_lockable)

// Of data: read and written only while the lock is held.
#define ZEL_GUARDED_BY(lock) ZEL_THREAD_ANNOTATION(guarded_by(lock))

// Of a function: called while the lock is held, or while the caller does not hold it.
#define ZEL_REQUIRES(lock) ZEL_THREAD_ANNOTATION(requires_capability(lock))
#define ZEL_EXCLUDES(lock) ZEL_THREAD_ANNOTATION(locks_excluded(lock))

// Of a function: takes or releases the lock, which is the object itself where none is named.
#define ZEL_ACQUIRE(...) ZEL_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define ZEL_TRY_ACQUIRE(success) ZEL_THREAD_ANNOTATION(try_acquire_capability(success))
#define ZEL_RELEASE() ZEL_THREAD_ANNOTATION(release_capability())

// Of a function: is right for a reason that stands beside it.
#define ZEL_NO_THREAD_SAFETY_ANALYSIS ZEL_THREAD_ANNOTATION(no_thread_safety_analysis)

#endif
