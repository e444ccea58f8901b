#pragma once

// What a shared build of the library makes visible to its users.
//
// Every library is compiled with hidden visibility, so only what is marked here reaches
// the dynamic symbol table. The rule for public headers is one pair of lines:
//
//     #include "velquist/export.h"
//     ...the other #includes...
//     VELQUIST_API_BEGIN
//     namespace velquist::<module> { ... }
//     VELQUIST_API_END              <- the last line of the header
//
// Everything declared between the two (classes with their vtables and type information,
// functions, templates' static members) is exported. Helpers in a `detail` namespace of a
// public header are exported too, because header templates call them; helpers of the
// sources (anonymous namespaces, `detail` namespaces declared only in src/) stay hidden,
// as does everything the sources instantiate from nlohmann-json or wrap around ICU.
// Includes stay outside the pair so that third-party headers keep their own visibility.
//
// VELQUIST_EXPORT marks one declaration; the C interface (velquist.h) uses it. A friend
// function that is declared only inside its class and defined in a source needs it on the
// friend declaration (`friend VELQUIST_EXPORT Decimal operator+(...);`): GCC takes such a
// function's visibility from its definition otherwise.
//
// Works with GCC and clang on ELF platforms; elsewhere the macros are empty.

#if defined(__GNUC__) || defined(__clang__)
#define VELQUIST_EXPORT __attribute__((visibility("default")))
#define VELQUIST_API_BEGIN _Pragma("GCC visibility push(default)")
#define VELQUIST_API_END _Pragma("GCC visibility pop")
#else
#define VELQUIST_EXPORT
#define VELQUIST_API_BEGIN
#define VELQUIST_API_END
#endif
