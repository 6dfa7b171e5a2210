#include "labelmgr/files/label_bytes.h"

#include "base/attribute_at.h"
#include "label/label_error.h"
#include "labelmgr/model/operation_error.h"

int readLabelAt(int directory, const char* name, const std::string& attribute, LabelBytes& label) {
    return readLabelBy(
        [&](char* buffer, size_t size) {
            return getAttributeAt(directory, name, attribute.c_str(), buffer, size);
        },
        label);
}

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
