#include "label/label_binary.h"

#include <cstdint>
#include <stdexcept>

#include "base/hexadecimal.h"
#include "label/byte_order.h"
#include "label/label.h"
#include "label/label_error.h"
#include "log/logger.h"

namespace {

// Which parts the binary form holds, in its last byte. Package numbers are always there.
enum StateBit : unsigned char {
    kOidFile = 0x80,
    kOidPath = 0x40,
    kTid = 0x20,
    kSidFile = 0x10,
    kSidPath = 0x08,
    kInheritFlag = 0x04,
    kCreatorFile = 0x02,
    kCreatorPath = 0x01,
};

constexpr unsigned long kMinimumSize = 25;
constexpr unsigned long kMaximumSize = 81;

unsigned char stateOf(const Label& label) {
    unsigned int state = 0;
    const auto mark = [&state](uint64_t value, StateBit bit) { state |= value != 0 ? unsigned{bit} : 0U; };
    mark(label.oid_.file_, kOidFile);
    mark(label.oid_.path_, kOidPath);
    mark(label.tid_, kTid);
    mark(label.sid_.file_, kSidFile);
    mark(label.sid_.path_, kSidPath);
    mark(label.inheritFlag_, kInheritFlag);
    mark(label.creatorOid_.file_, kCreatorFile);
    mark(label.creatorOid_.path_, kCreatorPath);
    return static_cast<unsigned char>(state);
}

// Walks the fields from the start of a value to its state byte.
class FieldReader {
 public:
    FieldReader(const unsigned char* begin, const unsigned char* stateByte)
        : position(begin), limit(stateByte) {}

    template <typename Unsigned>
    void read(Unsigned& field) {
        if (static_cast<size_t>(limit - position) < sizeof(Unsigned)) {
            throw LabelError("Buffer too small for required data", 1);
        }
        field = loadLittleEndian<Unsigned>(position);
        position += sizeof(Unsigned);
    }

    void readId(Id& id, bool hasFile, bool hasPath) {
        read(id.pkg_);
        if (hasFile) {
            read(id.file_);
        }
        if (hasPath) {
            read(id.path_);
        }
    }

 private:
    const unsigned char* position;
    const unsigned char* limit;
};

}  // namespace

std::string bytesToHexString(const unsigned char* data, unsigned long length) {
    return hexadecimalOf(data, length);
}

unsigned long Label::serializedBufferSize() const {
    return oid_.serializedSize() + sid_.serializedSize() + creatorOid_.serializedSize() +
           (tid_ != 0 ? sizeof(tid_) : 0) + (inheritFlag_ != 0 ? sizeof(inheritFlag_) : 0) + 1;
}

unsigned long Label::serializeToBuffer(unsigned char* buffer, unsigned long size) const try {
    try {
        if (buffer == nullptr) {
            ZORV_LOG(error, "Buffer pointer is null");
            return 0;
        }
        const unsigned long required = serializedBufferSize();
        if (size < required) {
            ZORV_LOG(error, "Buffer size is insufficient. Required: %zu, provided: %zu", size_t{required},
                     size_t{size});
            return 0;
        }
        unsigned char* end = creatorOid_.toBytes(sid_.toBytes(oid_.toBytes(buffer)));
        if (tid_ != 0) {
            storeLittleEndian(end, tid_);
            ZORV_LOG(debug, "Serialized tid_: %s", bytesToHexString(end, sizeof(tid_)).c_str());
            end += sizeof(tid_);
        }
        if (inheritFlag_ != 0) {
            storeLittleEndian(end, inheritFlag_);
            end += sizeof(inheritFlag_);
        }
        *end = stateOf(*this);
        ZORV_LOG(debug, "Serialized state: %s", bytesToHexString(end, 1).c_str());
        return required;
    } catch (const std::exception& failure) {
        ZORV_LOG(error, "Label serialization failed: %s", failure.what());
        return 0;
    }
} catch (...) {  // of the log, which has no other place to go
    return 0;
}

Label Label::deserializeFromBuffer(const unsigned char* buffer, unsigned long size) {
    try {
        if (buffer == nullptr) {
            throw LabelError("Buffer pointer is null", 1);
        }
        if (size < kMinimumSize || size > kMaximumSize) {
            throw LabelError("Buffer size is invalid", 1);
        }
        const unsigned char* stateByte = buffer + size - 1;
        const unsigned int state = *stateByte;
        ZORV_LOG(debug, "Label deserialization: state: %02x", state);
        FieldReader reader(buffer, stateByte);
        reader.readId(oid_, (state & kOidFile) != 0, (state & kOidPath) != 0);
        reader.readId(sid_, (state & kSidFile) != 0, (state & kSidPath) != 0);
        reader.readId(creatorOid_, (state & kCreatorFile) != 0, (state & kCreatorPath) != 0);
        if ((state & kTid) != 0) {
            reader.read(tid_);
            ZORV_LOG(debug, "Label deserialization: tid: %08lx", static_cast<unsigned long>(tid_));
        }
        if ((state & kInheritFlag) != 0) {
            reader.read(inheritFlag_);
        }
        return *this;
    } catch (const std::exception& failure) {
        throw LabelError(std::string("Label deserialization failed: ") + failure.what(), 13);
    }
}
