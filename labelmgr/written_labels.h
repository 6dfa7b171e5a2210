#pragma once

#include <string>
#include <utility>
#include <vector>

#include "labelmgr/field.h"
#include "labelmgr/file_labels.h"

// The labels that a change has written so far, so that it can be taken back. Failures throw OperationError.
class WrittenLabels {
 public:
    // True when the attribute was not so already. A file without a label gets one.
    bool write(const std::string& path, Field field, const FieldValue& value);
    bool write(const std::string& path, const Label& label);

    // In the opposite order. What cannot be put back is logged.
    void takeBack();

 private:
    std::vector<std::pair<std::string, LabelBytes>> written;
};
