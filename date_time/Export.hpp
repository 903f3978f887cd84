// Symbol visibility: the library is built with hidden visibility by default,
// and only what is marked here is part of its binary interface.
#pragma once

#if defined(_WIN32)
#if defined(KVDATETIME_BUILDING)
#define KVDT_EXPORT __declspec(dllexport)
#else
#define KVDT_EXPORT __declspec(dllimport)
#endif
#else
#define KVDT_EXPORT __attribute__((visibility("default")))
#endif
