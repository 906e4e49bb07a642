// Clang's thread-safety annotations. They are empty for other compilers.
#pragma once

#if defined(__clang__)
#define KELDANE_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define KELDANE_THREAD_ANNOTATION(x)
#endif

#define KELDANE_CAPABILITY(x) KELDANE_THREAD_ANNOTATION(capability(x))
#define KELDANE_SCOPED_CAPABILITY KELDANE_THREAD_ANNOTATION(scoped_lockable)
#define KELDANE_GUARDED_BY(x) KELDANE_THREAD_ANNOTATION(guarded_by(x))
#define KELDANE_REQUIRES(...) KELDANE_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define KELDANE_ACQUIRE(...) KELDANE_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define KELDANE_TRY_ACQUIRE(...) KELDANE_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define KELDANE_RELEASE(...) KELDANE_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define KELDANE_EXCLUDES(...) KELDANE_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define KELDANE_NO_THREAD_SAFETY_ANALYSIS KELDANE_THREAD_ANNOTATION(no_thread_safety_analysis)
