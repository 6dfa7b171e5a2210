#pragma once

#include <cstdint>
#include <string>

#include "base/api.h"

// Digests of texts: of the bytes of the string itself, embedded NULs included, never of a
// file that it names. Nothing throws on bad input; a failure is logged at error level
// under the function's name and answers the empty string or 0. No state is kept: all
// functions may run in any number of threads.
//
// The first digest of a process loads the crypto library, which takes a descriptor and
// the system's files. A program that changes its root or uses up its descriptors takes
// one before, or links libcrypto itself: what the program has already is used.

// The SM3 digest (GB/T 32905) as 64 lower-case hexadecimal characters. The empty string
// has a digest too. Without a crypto library of use, or when it offers no SM3:
// "Unsupported hash function SM3", and the empty string.
ZORV_API std::string getSM3HashValue(const std::string& input);

// The last 32 or 64 bits of that digest as a number, its last byte least significant. 0
// stands for a failure as well as for itself; only the log tells them apart: "Hash string
// is too short" (small "h" in the 64-bit function; log watchers match both), behind the
// line of getSM3HashValue when there is no SM3; "Invalid hex string for last 32 bits" or
// "... 64 bits" for a text that is not hexadecimal.
ZORV_API uint32_t getSM3HashLast32Bits(const std::string& input);
ZORV_API uint64_t getSM3HashLast64Bits(const std::string& input);

// The 32-bit FNV-1a hash of exactly `length` bytes from name on; no NUL ends it, and name
// is not checked (with length 0 it is not read either, and the answer is 0x811C9DC5). A
// byte from 0x80 on is widened with its sign before it is mixed in, deliberately: stored
// hashes of such names differ from the textbook's.
ZORV_API uint32_t getKmodNameHash(const char* name, uint32_t length);
