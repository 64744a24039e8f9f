#pragma once

/// Annotations for Clang's thread-safety analysis (`-Wthread-safety`), which checks
/// at compile time that guarded data is only used with its mutex held. Every other
/// compiler sees nothing of them.
#if defined(__clang__)
#define KRV_THREAD_ANNOTATION(attribute) __attribute__((attribute))
#else
#define KRV_THREAD_ANNOTATION(attribute)
#endif

/// A class whose objects are locks.
#define KRV_CAPABILITY(name) KRV_THREAD_ANNOTATION(capability(name))

/// A class that locks in its constructor and unlocks in its destructor.
#define KRV_SCOPED_CAPABILITY KRV_THREAD_ANNOTATION(scoped_lockable)

/// A data member that may only be used with the mutex held.
#define KRV_GUARDED_BY(mutex) KRV_THREAD_ANNOTATION(guarded_by(mutex))

/// A function that may only be called with the mutexes held.
#define KRV_REQUIRES(...) KRV_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))

/// A function that locks, one that locks if it returns the given result, and one
/// that unlocks. Without a mutex they mean the object itself.
#define KRV_ACQUIRE(...) KRV_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define KRV_TRY_ACQUIRE(...) KRV_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define KRV_RELEASE(...) KRV_THREAD_ANNOTATION(release_capability(__VA_ARGS__))

/// A function after which the analysis assumes that the mutex is held.
#define KRV_ASSERT_CAPABILITY(mutex) KRV_THREAD_ANNOTATION(assert_capability(mutex))

/// A function that returns a reference to the mutex.
#define KRV_RETURN_CAPABILITY(mutex) KRV_THREAD_ANNOTATION(lock_returned(mutex))

/// A function whose body is not checked: it implements a lock, or locks in a way
/// that the analysis cannot follow.
#define KRV_NO_THREAD_SAFETY_ANALYSIS KRV_THREAD_ANNOTATION(no_thread_safety_analysis)
