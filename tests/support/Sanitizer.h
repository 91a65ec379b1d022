#pragma once

#if defined(__has_feature)
#define TESTS_HAVE_FEATURE(name) __has_feature(name)
#else
#define TESTS_HAVE_FEATURE(name) 0
#endif

/// True in a build with the thread sanitizer, which makes every lock and every access many times slower. Tests that
/// move many frames take fewer of them then; what they check stays the same.
#if defined(__SANITIZE_THREAD__) || TESTS_HAVE_FEATURE(thread_sanitizer)
constexpr bool THREAD_SANITIZER = true;
#else
constexpr bool THREAD_SANITIZER = false;
#endif

/// True in a build with the address sanitizer, which this project always joins with the one for undefined
/// behaviour. That one opens a pipe whenever it looks at the dynamic type of an object for the first time, and ends
/// the process if there is no descriptor for it.
#if defined(__SANITIZE_ADDRESS__) || TESTS_HAVE_FEATURE(address_sanitizer)
constexpr bool ADDRESS_SANITIZER = true;
#else
constexpr bool ADDRESS_SANITIZER = false;
#endif

#undef TESTS_HAVE_FEATURE
