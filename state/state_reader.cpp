#include "state/state_reader.h"

#include <algorithm>
#include <array>
#include <climits>
#include <optional>
#include <utility>

#include "labelmgr/model/operation_error.h"
#include "state/byte_source.h"
#include "state/json_names.h"
#include "state/state_format.h"
#include "state/value_text.h"

namespace {

// The arrays of the document, and what its records call the name and, but for fields,
// their value.
struct Section {
    const char* key;
    const char* nameKey;
};
constexpr std::array<Section, 3> kSections = {
    {{kPathsKey, kPathKey}, {kPatternsKey, kPatternKey}, {kPackagesKey, kPackageKey}}};
constexpr size_t kPaths = 0;
constexpr size_t kPackages = 2;

// Of the document.
constexpr std::array<const char*, 5> kParts = {kFormatKey, kVersionKey, kPathsKey, kPatternsKey,
                                               kPackagesKey};

// Makes records of what the parser finds, and refuses what does not belong where it
// stands.
class Handler : public nlohmann::json_sax<Json> {
 public:
    Handler(ByteSource& byteSource, std::string fileName) : source(byteSource), name(std::move(fileName)) {}

    bool null() override { return refuse("null does not stand here"); }
    bool boolean(bool /*value*/) override { return refuse("true or false does not stand here"); }
    bool number_integer(number_integer_t /*value*/) override {
        return refuse("a number does not stand here");
    }
    bool number_float(number_float_t /*value*/, const string_t& text) override {
        return refuse("not a whole number of 64 bits: " + text);
    }
    bool binary(binary_t& /*value*/) override { return refuse("bytes do not stand here"); }
    bool number_unsigned(number_unsigned_t value) override;
    bool string(string_t& value) override;
    bool start_object(size_t /*elements*/) override;
    bool key(string_t& value) override;
    bool end_object() override;
    bool start_array(size_t /*elements*/) override;
    bool end_array() override;
    bool parse_error(size_t /*position*/, const std::string& /*token*/,
                     const nlohmann::detail::exception& failure) override;

    [[noreturn]] bool refuse(const std::string& reason) const {
        throw OperationError(name + ":" + std::to_string(source.line()), reason);
    }

    Records take() { return std::move(records); }

 private:
    enum class Place { kBefore, kDocument, kArray, kRecord };

    // A record as far as it has been read.
    struct Reading {
        std::optional<std::string> name;
        ByField<std::optional<FieldValue>> values;
        std::optional<uint64_t> id;
        size_t line = 0;
    };

    bool isKnownKey(const std::string& text) const;
    bool isNameKey(const std::string& text) const {
        const std::string nameKey = inSection().nameKey;
        return text == nameKey || text == nameKey + kLatin1;
    }
    void readName(const std::string& text, bool isLatin1);
    void readValue(const std::string& text);
    void addRecord();

    const Section& inSection() const { return kSections.at(section); }

    ByteSource& source;
    std::string name;
    Records records;
    Place place = Place::kBefore;
    std::string present;            // key
    std::vector<std::string> seen;  // of the document
    size_t section = 0;
    Reading record;
};

bool Handler::number_unsigned(number_unsigned_t value) {
    source.noteFound();
    if (place != Place::kDocument || present != kVersionKey) {
        refuse("a number does not stand here");
    }
    if (value != kVersion) {
        refuse("version " + std::to_string(value) + " is not known; this program reads version " +
               std::to_string(kVersion));
    }
    return true;
}

bool Handler::string(string_t& value) {
    source.noteFound();
    if (place == Place::kDocument && present == kFormatKey) {
        return value == kFormat || refuse("the format is not " + std::string(kFormat));
    }
    if (place != Place::kRecord) {
        refuse("a text does not stand here");
    }
    if (isNameKey(present)) {
        readName(value, present != inSection().nameKey);
    } else {
        readValue(value);
    }
    return true;
}

bool Handler::start_object(size_t /*elements*/) {
    source.noteFound();
    if (place == Place::kBefore) {
        place = Place::kDocument;
    } else if (place == Place::kArray) {
        place = Place::kRecord;
        record = {};
        record.line = source.line();
    } else {
        refuse("an object does not stand here");
    }
    return true;
}

bool Handler::key(string_t& value) {
    source.noteFound();
    present = value;
    if (place == Place::kDocument) {
        if (std::find(seen.begin(), seen.end(), value) != seen.end()) {
            refuse("the key " + Json(value).dump() + " stands here for the second time");
        }
        seen.push_back(value);
    }
    return isKnownKey(value) || refuse("unknown key " + Json(value).dump());
}

bool Handler::isKnownKey(const std::string& text) const {
    const auto isText = [&text](const char* key) { return text == key; };
    if (place == Place::kDocument) {
        return std::any_of(kParts.begin(), kParts.end(), isText);
    }
    return isNameKey(text) ||
           (section == kPackages ? isText(kIdKey)
                                 : std::any_of(kFields.begin(), kFields.end(),
                                               [&](Field field) { return isText(nameOf(field)); }));
}

bool Handler::end_object() {
    source.noteFound();
    if (place == Place::kRecord) {
        addRecord();
        place = Place::kArray;
        return true;
    }
    for (const char* part : kParts) {
        if (std::find(seen.begin(), seen.end(), part) == seen.end()) {
            refuse(std::string("\"") + part + "\" is missing");
        }
    }
    return true;
}

bool Handler::start_array(size_t /*elements*/) {
    source.noteFound();
    const auto* const found = std::find_if(kSections.begin(), kSections.end(),
                                           [this](const Section& row) { return present == row.key; });
    if (place != Place::kDocument || found == kSections.end()) {
        refuse("an array does not stand here");
    }
    place = Place::kArray;
    section = static_cast<size_t>(found - kSections.begin());
    return true;
}

bool Handler::end_array() {
    source.noteFound();
    place = Place::kDocument;
    return true;
}

// "[json.exception.NAME] parse error at line L, column C: REASON".
bool Handler::parse_error(size_t /*position*/, const std::string& /*token*/,
                          const nlohmann::detail::exception& failure) {
    const std::string text = failure.what();
    const size_t end = text.find(": ");
    return refuse(asOneLine(end == std::string::npos ? text : text.substr(end + 2)));
}

void Handler::readName(const std::string& text, bool isLatin1) {
    std::optional<std::string> bytes = isLatin1 ? bytesOfLatin1(text) : text;
    if (!bytes) {
        refuse("a character beyond U+00FF is no byte");
    }
    if (record.name) {
        refuse("a record has one name");
    }
    if (bytes->empty() || bytes->size() >= PATH_MAX || bytes->find('\0') != std::string::npos) {
        refuse("a name has 1 to 4095 bytes and no NUL");
    }
    if (section != kPackages && bytes->front() != '/') {
        refuse("a path or pattern begins with \"/\"");
    }
    record.name = std::move(bytes);
}

void Handler::readValue(const std::string& text) {
    bool isRepeated = false;
    bool isValue = false;
    if (section == kPackages) {
        isRepeated = record.id.has_value();
        record.id = parseId(text);
        isValue = record.id.has_value();
    }
    for (const Field field : kFields) {
        if (section != kPackages && present == nameOf(field)) {
            isRepeated = record.values[field].has_value();
            record.values[field] = parseValue(field, text);
            isValue = record.values[field].has_value();
        }
    }
    if (isRepeated) {
        refuse("the key \"" + present + "\" stands here for the second time");
    }
    if (!isValue) {
        refuse("bad value of \"" + present + "\": " + Json(text).dump());
    }
}

void Handler::addRecord() {
    if (!record.name) {
        refuse(std::string("a record without \"") + inSection().nameKey + "\"");
    }
    bool hasValue = record.id.has_value();
    if (record.id) {
        records.packages.push_back({{*record.name, *record.id}, record.line});
    }
    for (const Field field : kFields) {
        if (record.values[field]) {
            (section == kPaths ? records.paths : records.patterns)
                .push_back({{field, section != kPaths, *record.name}, *record.values[field], record.line});
            hasValue = true;
        }
    }
    if (!hasValue) {
        refuse("a record without a value");
    }
}

}  // namespace

Records readState(const ReadBytes& read, const std::string& name) {
    ByteSource source(read);
    Handler handler(source, name);
    try {
        Json::sax_parse(ByteIterator(source), ByteIterator(), &handler);
    } catch (const std::length_error& failure) {
        handler.refuse(failure.what());
    }
    return handler.take();
}
