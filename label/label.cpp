#include "label/label.h"

#include <sstream>
#include <stdexcept>

#include "base/number_text.h"
#include "label/label_error.h"
#include "log/logger.h"

namespace {

// A piece that ends at its separator is present even when it is empty.
std::string readPiece(std::istream& in, char separator, const char* missing) {
    std::string piece;
    if (!std::getline(in, piece, separator)) {
        throw std::runtime_error(missing);
    }
    return piece;
}

uint32_t readNumber(std::istream& in, const char* missing) {
    return static_cast<uint32_t>(readUnsignedLong(readPiece(in, ':', missing), nullptr, 10));
}

Label parseLabel(const std::string& text) {
    Label label;
    std::istringstream in(text);
    label.oid_ = Id::fromString(readPiece(in, ':', "Invalid format: missing OID"));
    label.tid_ = readNumber(in, "Invalid format: missing TID");
    label.sid_ = Id::fromString(readPiece(in, ':', "Invalid format: missing SID"));
    label.inheritFlag_ = readNumber(in, "Invalid format: missing inherit flag");
    label.creatorOid_ = Id::fromString(readPiece(in, '\n', "Invalid format: missing creator OID"));
    if (label.inheritFlag_ != 0 && label.inheritFlag_ != 5 && label.inheritFlag_ != 7) {
        throw LabelError("Invalid inherit flag value", 1);
    }
    return label;
}

}  // namespace

std::string Label::toString() const {
    std::string text = oid_.toString();
    text.reserve(192);
    text.append(1, ':').append(std::to_string(tid_));
    text.append(1, ':').append(sid_.toString());
    text.append(1, ':').append(std::to_string(inheritFlag_));
    text.append(1, ':').append(creatorOid_.toString());
    return text;
}

Label Label::fromString(const std::string& text) {
    try {
        return parseLabel(text);
    } catch (const std::exception& failure) {
        ZORV_LOG(error, "label deserialization failed: %s", failure.what());
        return {};
    }
}
