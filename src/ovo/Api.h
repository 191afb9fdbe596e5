/// \file
/// Marks what the scene library exports from libvela; everything else in it is hidden.
#pragma once

/// \def OVO_API
/// Stands before the classes and functions that other libraries and programs may call.

#if defined(__GNUC__) || defined(__clang__)
#define OVO_API __attribute__((visibility("default")))
#elif defined(_WIN32) && defined(VELA_BUILDING)
#define OVO_API __declspec(dllexport)
#elif defined(_WIN32)
#define OVO_API __declspec(dllimport)
#else
#define OVO_API
#endif
