#pragma once

#include <cstdint>
#include <string>

#include "base/api.h"
#include "label/id.h"

// The security label of a file, and the attribute that holds it.

// The extended attribute of a file that holds its label's binary form.
inline constexpr char kLabelAttribute[] = "security.zorv";

// One file's security label: a plain value, all zero when it is created. Its text form is
// for people, its binary form is the value of the attribute, byte for byte. Every
// operation logs under its own name; only deserializeFromBuffer throws.
class ZORV_API Label {
 public:
    // OID, TID, SID, inherit flag and creator OID, joined by ":": identifiers as
    // Id::toString, numbers in decimal. (The order is not the order of the fields.)
    std::string toString() const;

    // Reads such a text. Anything wrong is one error line, "label deserialization failed:
    // REASON", and the all-zero label. Deliberately lenient: an identifier that does not
    // parse is the zero Id (with its own log line), a number keeps its low 32 bits and
    // ignores letters behind its digits. Strict in one point: the inherit flag is 0, 5 or
    // 7.
    static Label fromString(const std::string& text);

    // The size of the binary form in bytes, 25 to 81.
    unsigned long serializedBufferSize() const;

    // Writes the binary form and answers its size. A null buffer or one that is too small
    // is one error line, answers 0 and writes nothing. The TID and the state byte are
    // logged at debug level. Never throws: when the log does, that is one more error
    // line, "Label serialization failed: REASON", if the log takes it, and answers 0.
    unsigned long serializeToBuffer(unsigned char* buffer, unsigned long size) const;

    // Reads the binary form, the whole attribute value of 25 to 81 bytes, into this label
    // and answers a copy. Fields that the value leaves out keep what they held: start
    // from a zero label to read them as zero. Bytes between the last field and the state
    // byte are ignored on purpose. Throws LabelError 13 for anything wrong; what was read
    // until then stays. The state byte and the TID are logged at debug level.
    Label deserializeFromBuffer(const unsigned char* buffer, unsigned long size);

    // Reads the attribute of a file, or of a symbolic link itself with noDereference (its
    // target must exist all the same). 0, or -1 after one log line: at debug level when
    // there is no attribute or its size cannot be asked, so that unlabelled files do not
    // fill the log; at error level for everything else.
    int getFromXattr(const std::string& path, const bool& noDereference);

    // Writes the attribute, whole, in one call. 0; -1 after a LabelError, -2 after any
    // other exception, each logged at error level with the path.
    int setToXattr(const std::string& path, const bool& noDereference) const;

    Id oid_;
    Id sid_;
    Id creatorOid_;
    uint32_t tid_ = 0;
    uint32_t inheritFlag_ = 0;
};
