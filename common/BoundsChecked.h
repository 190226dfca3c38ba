// Memory and string functions that are told how large their destination is.
//
// The copying functions return 0. They return EINVAL for a null pointer and ERANGE for what does
// not fit, and leave the destination untouched then. The formatting functions return the number of
// characters written, or -1. Several threads may call all of them, on different destinations. None
// allocates memory.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace Velmar {

// Copies `count` bytes into a destination of `destMax` bytes. The two may overlap.
// EINVAL: `dest` or `src` is null. ERANGE: `count` is above `destMax`.
int memcpy_s(void* dest, std::size_t destMax, const void* src, std::size_t count);

// Sets `count` bytes of a destination of `destMax` bytes to the lowest byte of `value`. The stores
// are never optimised away, though nothing may read the memory again: fit for wiping secrets.
// EINVAL: `dest` is null. ERANGE: `count` is above `destMax`.
int memset_s(void* dest, std::size_t destMax, int value, std::size_t count);

// Appends the text `src` to the text in `dest`, a buffer of `destMax` bytes, terminator included.
// EINVAL: `dest` or `src` is null. ERANGE: `dest` holds no terminator within `destMax` bytes, or
// both texts and a terminator need more than `destMax` bytes.
int strcat_s(char* dest, std::size_t destMax, const char* src);

// Formats as std::snprintf into a buffer of `destMax` bytes, at most `count` characters and a
// terminator. Returns the number of characters. Returns -1 when the text has more than `count`
// characters, does not fit into the buffer with its terminator, or cannot be formatted, and when
// `dest` or `format` is null. It leaves no cut-off text behind then: `dest`, where it is not null
// and has at least one byte, is the empty text.
[[gnu::format(printf, 4, 5)]] int snprintf_s(char* dest, std::size_t destMax, std::size_t count,
                                             const char* format, ...);

// The same with an argument list, which is used up by the call.
[[gnu::format(printf, 4, 0)]] int vsnprintf_s(char* dest, std::size_t destMax, std::size_t count,
                                              const char* format, std::va_list arguments);

}  // namespace Velmar
