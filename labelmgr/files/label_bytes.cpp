#include "labelmgr/files/label_bytes.h"

#include "label/label_error.h"
#include "labelmgr/model/operation_error.h"

Label decodeLabel(const std::string& path, const std::string& bytes) {
    try {
        Label label;
        return label.deserializeFromBuffer(reinterpret_cast<const unsigned char*>(bytes.data()),
                                           bytes.size());
    } catch (const LabelError& failure) {
        throw FileRefuses(path, failure.what());
    }
}

std::string encodeLabel(const Label& label) {
    std::string bytes(label.serializedBufferSize(), '\0');
    label.serializeToBuffer(reinterpret_cast<unsigned char*>(bytes.data()), bytes.size());
    return bytes;
}
