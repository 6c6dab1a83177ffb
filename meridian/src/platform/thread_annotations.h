#pragma once

// Attributes of Clang's thread-safety analysis; nothing for other compilers. A build with Clang checks them
// as errors.

#if defined(__clang__)
#define MERIDIAN_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define MERIDIAN_THREAD_ATTRIBUTE(x)
#endif

/// On a type that is a lock.
#define MERIDIAN_CAPABILITY(name) MERIDIAN_THREAD_ATTRIBUTE(capability(name))
/// On a type whose lifetime holds a lock.
#define MERIDIAN_SCOPED_CAPABILITY MERIDIAN_THREAD_ATTRIBUTE(scoped_lockable)
/// On a member: only touched while the mutex is held; the second form is for what a pointer points to.
#define MERIDIAN_GUARDED_BY(mutex) MERIDIAN_THREAD_ATTRIBUTE(guarded_by(mutex))
#define MERIDIAN_PT_GUARDED_BY(mutex) MERIDIAN_THREAD_ATTRIBUTE(pt_guarded_by(mutex))
/// On a function: the caller holds, or does not hold, the mutex.
#define MERIDIAN_REQUIRES(...) MERIDIAN_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define MERIDIAN_EXCLUDES(...) MERIDIAN_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
/// On a function that locks or unlocks.
#define MERIDIAN_ACQUIRE(...) MERIDIAN_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define MERIDIAN_RELEASE(...) MERIDIAN_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
/// On mutexes that are always taken in one order.
#define MERIDIAN_ACQUIRED_BEFORE(...) MERIDIAN_THREAD_ATTRIBUTE(acquired_before(__VA_ARGS__))
/// On a function that returns a reference to the mutex.
#define MERIDIAN_RETURN_CAPABILITY(mutex) MERIDIAN_THREAD_ATTRIBUTE(lock_returned(mutex))
/// The analysis cannot follow this function; say why beside it.
#define MERIDIAN_NO_THREAD_SAFETY_ANALYSIS MERIDIAN_THREAD_ATTRIBUTE(no_thread_safety_analysis)
