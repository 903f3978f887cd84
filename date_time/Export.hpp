// Symbol visibility: the library is built with hidden visibility by default,
// and only what is marked here is part of its binary interface.
#pragma once

// The library's class headers include this one, so a consumer built below C++20
// learns the minimum here rather than from a template error deep inside.
// The build files state it only as a minimum: a later standard is fine.
#if __cplusplus < 202002L
#error "KvDateTime needs C++20 or later (-std=c++20)"
#endif

#if defined(_WIN32)
#if defined(KVDATETIME_BUILDING)
#define KVDT_EXPORT __declspec(dllexport)
#else
#define KVDT_EXPORT __declspec(dllimport)
#endif
#else
#define KVDT_EXPORT __attribute__((visibility("default")))
#endif
