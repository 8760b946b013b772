#pragma once

/// ZAV_EXPORT marks what a shared library offers to those who use it: everything else in it is hidden. The
/// build defines ZAV_SHARED for a shared library and its users, and ZAV_BUILDING besides while it compiles
/// the library itself. A static library needs neither, and offers nothing beyond the program that it becomes
/// part of.
#if !defined(ZAV_SHARED)
#define ZAV_EXPORT
#elif !defined(_WIN32)
#define ZAV_EXPORT __attribute__((visibility("default")))
#elif defined(ZAV_BUILDING)
#define ZAV_EXPORT __declspec(dllexport)
#else
#define ZAV_EXPORT __declspec(dllimport)
#endif
