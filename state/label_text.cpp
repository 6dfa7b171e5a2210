#include "state/label_text.h"

#include "base/hexadecimal.h"
#include "label/label_error.h"

std::string labelText(const LabelBytes& bytes) {
    if (!bytes) {
        return "none";
    }
    const auto* data = reinterpret_cast<const unsigned char*>(bytes->data());
    try {
        return Label().deserializeFromBuffer(data, bytes->size()).toString();
    } catch (const LabelError&) {
        return "not a label: " + hexadecimalOf(data, bytes->size());
    }
}

void addLabel(Json& record, const char* key, const LabelBytes& bytes) {
    record[key] = bytes ? Json(labelText(bytes)) : Json();
}
