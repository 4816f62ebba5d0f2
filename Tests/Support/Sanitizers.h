#ifndef WFILESYSTEM_TESTS_SUPPORT_SANITIZERS_H
#define WFILESYSTEM_TESTS_SUPPORT_SANITIZERS_H

/// \file
/// \brief Which sanitizer the tests are built with, as GCC and Clang tell it.

#ifdef __has_feature
#define TESTSUPPORT_HAS_FEATURE(feature) __has_feature(feature)
#else
#define TESTSUPPORT_HAS_FEATURE(feature) 0
#endif

#if defined(__SANITIZE_ADDRESS__) || TESTSUPPORT_HAS_FEATURE(address_sanitizer)
#define TESTSUPPORT_ADDRESS_SANITIZER
#endif

#if defined(__SANITIZE_THREAD__) || TESTSUPPORT_HAS_FEATURE(thread_sanitizer)
#define TESTSUPPORT_THREAD_SANITIZER
#endif

#endif
