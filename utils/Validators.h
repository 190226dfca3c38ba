// Shapes of single words: is this a number, a hardware address and so on.
//
// All predicates look at the bytes of the word as they are, in the classic locale whatever the
// process's one is: letters and digits are those of ASCII, and no byte of 0x80 or above is either.
// They take time in proportion to the word's length at most, need no memory, log nothing, and may
// be called from several threads.
#pragma once

#include <string>

namespace Velmar::Utils {

// One or more letters, digits or underscores: the language of \w+.
bool IsWord(const std::string& word);

// One or more decimal digits, leading zeros included: the language of \d+.
bool IsNumber(const std::string& word);

// Six pairs of hexadecimal digits of either case, joined by colons, as "aa:0B:cc:dd:ee:ff". Refused
// are "00:00:00:00:00:00", "FF:FF:FF:FF:FF:FF" and "ff:ff:ff:ff:ff:ff", in exactly these cases:
// "Ff:FF:FF:FF:FF:FF" is accepted.
bool IsMacAddress(const std::string& word);

// Four decimal numbers joined by dots, as "192.168.1.1": the first 1 to 255, the others 0 to 255,
// none with a leading zero.
bool IsIpv4Address(const std::string& word);

// At most 64 letters, digits, hyphens or underscores. The empty word is accepted.
bool IsValidName(const std::string& word);

}  // namespace Velmar::Utils
