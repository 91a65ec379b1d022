#pragma once

/// Lock annotations for clang's thread-safety analysis. They expand only in the analysis preset, so that
/// every other compiler and preset sees plain C++.
#if defined(VQ_THREAD_SAFETY_ANALYSIS) && defined(__clang__)
#define VQ_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define VQ_THREAD_ATTRIBUTE(x)
#endif

#define VQ_CAPABILITY(name) VQ_THREAD_ATTRIBUTE(capability(name))
#define VQ_SCOPED_CAPABILITY VQ_THREAD_ATTRIBUTE(scoped_lockable)
/// The member may only be touched while the named lock is held.
#define VQ_GUARDED_BY(lock) VQ_THREAD_ATTRIBUTE(guarded_by(lock))
/// The caller of the operation holds the named lock.
#define VQ_REQUIRES_LOCK(...) VQ_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
/// The caller of the operation does not hold the named lock.
#define VQ_EXCLUDES_LOCK(...) VQ_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define VQ_ACQUIRES_LOCK(...) VQ_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define VQ_TRIES_LOCK(...) VQ_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define VQ_RELEASES_LOCK(...) VQ_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define VQ_NO_THREAD_SAFETY_ANALYSIS VQ_THREAD_ATTRIBUTE(no_thread_safety_analysis)
