// What a test has to know of the sanitizers that it is built with.
#pragma once

#ifdef __SANITIZE_THREAD__
constexpr bool thread_sanitizer = true;
#else
constexpr bool thread_sanitizer = false;
#endif

#ifdef __SANITIZE_ADDRESS__
constexpr bool address_sanitizer = true;
#else
constexpr bool address_sanitizer = false;
#endif
