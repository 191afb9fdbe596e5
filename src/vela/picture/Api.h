/// \file
/// Marks what libvela_picture exports; everything else in it is hidden.
#pragma once

/// \def VELA_PICTURE_API
/// Stands before the classes and functions that other libraries and programs may call.

#if defined(__GNUC__) || defined(__clang__)
#define VELA_PICTURE_API __attribute__((visibility("default")))
#elif defined(_WIN32) && defined(VELA_PICTURE_BUILDING)
#define VELA_PICTURE_API __declspec(dllexport)
#elif defined(_WIN32)
#define VELA_PICTURE_API __declspec(dllimport)
#else
#define VELA_PICTURE_API
#endif
