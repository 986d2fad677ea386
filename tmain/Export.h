#pragma once
/// Export macro of the tmain library: dllexport/dllimport on Windows,
/// default visibility elsewhere. TMAIN_STATIC turns it off for static builds.

#if defined(TMAIN_STATIC)
#define TMAIN_API
#elif defined(_WIN32)
#if defined(TMAIN_BUILDING)
#define TMAIN_API __declspec(dllexport)
#else
#define TMAIN_API __declspec(dllimport)
#endif
#else
#define TMAIN_API __attribute__((visibility("default")))
#endif

#if defined(__GNUC__) || defined(__clang__)
#define TMAIN_PRINTF(fmtIndex, firstArg) __attribute__((format(printf, fmtIndex, firstArg)))
#else
#define TMAIN_PRINTF(fmtIndex, firstArg)
#endif
