#include "common/BoundsChecked.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace Velmar {

int memcpy_s(void* dest, std::size_t destMax, const void* src, std::size_t count) {
  if (dest == nullptr || src == nullptr) {
    return EINVAL;
  }
  if (count > destMax) {
    return ERANGE;
  }
  std::memmove(dest, src, count);
  return 0;
}

int memset_s(void* dest, std::size_t destMax, int value, std::size_t count) {
  if (dest == nullptr) {
    return EINVAL;
  }
  if (count > destMax) {
    return ERANGE;
  }
  std::memset(dest, value, count);
  // The compiler takes this statement for a reader of the memory, so it keeps the stores.
  asm volatile("" : : "r"(dest) : "memory");
  return 0;
}

int strcat_s(char* dest, std::size_t destMax, const char* src) {
  if (dest == nullptr || src == nullptr) {
    return EINVAL;
  }
  const std::size_t used = strnlen(dest, destMax);
  if (used == destMax) {
    return ERANGE;
  }
  const std::size_t room = destMax - used;
  const std::size_t length = strnlen(src, room);
  if (length == room) {
    return ERANGE;
  }
  std::memmove(dest + used, src, length);
  dest[used + length] = '\0';
  return 0;
}

int snprintf_s(char* dest, std::size_t destMax, std::size_t count, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf_s(dest, destMax, count, format, arguments);
  va_end(arguments);
  return length;
}

int vsnprintf_s(char* dest, std::size_t destMax, std::size_t count, const char* format,
                std::va_list arguments) {
  if (dest == nullptr || destMax == 0) {
    return -1;
  }
  const int length = format == nullptr ? -1 : std::vsnprintf(dest, destMax, format, arguments);
  const bool fits = length >= 0 && static_cast<std::size_t>(length) < destMax &&
                    static_cast<std::size_t>(length) <= count;
  if (!fits) {
    dest[0] = '\0';
    return -1;
  }
  return length;
}

}  // namespace Velmar
