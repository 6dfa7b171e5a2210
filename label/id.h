#pragma once

#include <cstdint>
#include <string>

#include "base/api.h"

// The identifier of an object or a subject: package, file and path number. A plain value;
// all zero is the unset value and what every failed conversion answers. Failures are
// logged at error level under the operation's name.
class ZORV_API Id {
 public:
    // Three 16-digit lower-case hexadecimal groups joined by "-": always 50 characters.
    std::string toString() const;

    // Reads such a text. It must be 50 characters long ("Invalid ID string length: N");
    // within that the numbers are read by stream extraction in hexadecimal, so that
    // blanks before an item, a "0x" prefix and upper case are accepted, and nothing may
    // follow the third number ("Invalid ID format (expect pkg-file-path)"). Never throws
    // for bad input: a rejected text and the text of the zero Id differ only in the log.
    static Id fromString(const std::string& text);

    // The compact byte form: the package always, file and path only where they are not
    // zero, each 8 bytes little-endian. 8, 16 or 24 bytes. It does not say by itself
    // which part was left out; the state byte of a label does.
    unsigned long serializedSize() const;

    // Writes the compact form and answers the position behind it. A null buffer is logged
    // ("input buffer is nullptr") and answers null. A size too small is logged ("toBytes:
    // buffer too small, required: N, actual: N"), writes nothing and throws LabelError 3.
    unsigned char* toBytes(unsigned char* buffer, unsigned long size) const;
    // The same for a buffer that the caller knows to be large enough.
    unsigned char* toBytes(unsigned char* buffer) const;

    // Reads the full layout: 24 bytes, three little-endian numbers. Deliberately the
    // inverse of toBytes only for an Id without zero parts. A null pointer is logged
    // ("fromBytes: input data is nullptr") and answers the zero Id.
    static Id fromBytes(const unsigned char* data);

    uint64_t pkg_ = 0;
    uint64_t file_ = 0;
    uint64_t path_ = 0;
};
