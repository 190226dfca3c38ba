// Random bytes, numbers and texts, the wiping of secrets in memory and the wiping of small files.
//
//   char password[12];
//   Velmar::RandomCode::GetRandomPasswd(password, sizeof password);
//   ...
//   Velmar::RandomCode::ClearSensitiveData(password, sizeof password);
//
// All randomness comes from the private generator of OpenSSL, which is reseeded from the kernel
// where stated. Buffers belong to the caller and get exactly the number of bytes asked for; no
// terminator is added. Every failure is logged, as ERROR unless stated otherwise, and no call that
// reseeds waits longer than some ten seconds for the kernel.
//
// Several threads may call all operations once the process's logger exists. One exception: while
// CreateRandomPool() runs, no other thread may read the pool, be it through GetRandomPool() or in
// ClearSensitiveData().
#pragma once

#include <cstdint>
#include <string>

namespace Velmar::RandomCode {

// Reads `length` bytes of /dev/random into `buffer`. With a `length` below 1 the device is only
// opened and closed. While the kernel has no random bytes to give (early after its start), the call
// waits for them, ten seconds at most.
//
// Returns 0, or
//   POINTER_IS_NULL (2):           `buffer` is null;
//   GET_RANDOM_SEEDS_FAILED (19):  the device cannot be opened, did not give all within the ten
//                                  seconds, or nine reads in a row failed. An unknown part of the
//                                  buffer is written then.
[[nodiscard]] std::int32_t ReadDevRandom(unsigned char* buffer, std::int32_t length);

// A random number from 0 to 4294967295, without reseeding. Returns 0, and logs nothing, when the
// generator fails: not fit for a secret, for which the operations below check every draw. Without a
// reseed before it, the first draw of a process waits until the kernel has entropy.
std::uint32_t GetRandomUint32();

// Reseeds the generator with 64 bytes of ReadDevRandom(). Returns 0, or GET_RANDOM_SEEDS_FAILED
// (19) when the device does not give them.
std::int32_t SeedRandom();

// Reseeds and writes `length` (at least 1) random bytes to `buffer`. Returns 0. Returns -1 and
// leaves the buffer untouched for a null buffer, a length below 1 and a failed reseed. Returns -1
// for a failed draw, too, after which the buffer's content is not to be used.
[[nodiscard]] std::int32_t GetRandNumBytes(unsigned char* buffer, std::int32_t length);

// Reseeds and writes a password of `length` (8 to 256) characters to `buffer`: lower-case and
// upper-case letters, digits and ~@#%^*_=+[{}],./? , each position drawn on its own, of at least
// two of these four classes.
//
// Only the log tells of a failure, and the buffer stays as it was: a null buffer, a length out of
// bounds, a failed reseed, a failed draw, and a generator so broken that no second class ever
// comes. Fill the buffer with something recognisable before, and look.
void GetRandomPasswd(char* buffer, std::int32_t length);

// Reseeds and writes `length` (6 to 256) random digits to `buffer`. Returns 0. Returns -1, and
// leaves the buffer as it was, for a null buffer, a length out of bounds, a failed reseed and a
// failed draw.
[[nodiscard]] std::int32_t GetRandomDigits(char* buffer, std::int32_t length);

// Reseeds and returns `length` (6 to 256) random lower-case and upper-case letters. Returns the
// empty string for a length out of bounds, a failed reseed and a failed draw.
std::string GetRandomLetters(std::int32_t length);

// Fills the process's random pool, 256 bytes that are zero until then, with new random bytes. A
// failure is only logged: a failed reseed leaves the pool as it was, a failed draw leaves it in an
// unknown state.
void CreateRandomPool();

// The process's random pool, of which the caller may read the first `length` (1 to 256) bytes; it
// lives as long as the process. Returns null for another length.
const unsigned char* GetRandomPool(std::int32_t length);

// Overwrites `length` bytes of `memory` with zeros, then with bytes of value 1, then with the first
// bytes of the random pool (zeros, as long as there is no pool). Beyond 256 bytes the third pass is
// left out, which GetRandomPool() logs, and the bytes of value 1 stay. A null pointer or a length
// below 1 does nothing. The stores are never optimised away, though nothing reads them.
void ClearSensitiveData(void* memory, std::int32_t length);

// Overwrites a file of at most 1048576 bytes (1 MiB) in place with zeros, then with bytes of value
// 1, then with random bytes, gives it mode 0600 and removes it. Each pass is sent to the device
// before the next one begins. Where the file system or the device writes elsewhere than to the old
// place (copy-on-write, journals of data, flash memory), copies of the old content may survive all
// the same.
//
// Returns 0, or stops at the first failure. The file stays then, possibly overwritten already:
//   -1:   logged as WARNING: the path names no regular file, or is a symbolic link; the file cannot
//         be read (after an ERROR) or is too large; or it cannot be removed in the end. Logged as
//         ERROR: the generator gives no bytes;
//   102 (INVALID_FILE_PATH): before a pass, the path no longer leads to the file that it led to at
//         first;
//   105 (WRITE_FILE_FAILED): the file is empty, cannot be opened for writing or overwritten, or its
//         permission bits cannot be set.
//
// SafeCoverData() follows links among the folders when it begins. From then on it overwrites that
// file alone, whatever somebody exchanges, and stops once the name leads elsewhere; bytes that
// somebody appends meanwhile stay as they are. Further hard links of the file stay, with random
// content. The kernel decides who may add one (fs.protected_hardlinks, which systemd switches on:
// the file's owner and who may write it).
[[nodiscard]] std::int32_t SafeCoverData(const std::string& fileName);

}  // namespace Velmar::RandomCode
