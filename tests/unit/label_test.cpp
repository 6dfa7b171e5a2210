#include "label/label.h"

#include <sys/mount.h>

#include <gtest/gtest.h>

#include "label/label_binary.h"
#include "label/label_error.h"
#include "tests/support/captured_log.h"
#include "tests/support/table.h"
#include "tests/support/temporary_tree.h"

namespace {

const Label kFull = {{1, 2, 3}, {4, 5, 6}, {7, 8, 0xf0e0d0c0b0a09080}, 0x12345678, 5};
constexpr const char* kFullHex =
    "010000000000000002000000000000000300000000000000040000000000000005000000000000000600000000000000"
    "070000000000000008000000000000008090a0b0c0d0e0f07856341205000000ff";

// In the cells of the tables: I an identifier, Z the zero one, 1.0.2 one of small
// numbers, L the zero label, _ a blank, '' nothing.
std::string expand(std::string text) {
    text = replaceAll(replaceAll(replaceAll(text, "L", "Z:0:Z:0:Z"), "Z", "0.0.0"), "I", "1.2.3");
    const std::string zeros(15, '0');
    text = replaceAll(text, "([0-9])\\.([0-9])\\.([0-9])", zeros + "$1-" + zeros + "$2-" + zeros + "$3");
    return replaceAll(replaceAll(text, "_", " "), "''", "");
}

// The text of the label read, or why it was none.
std::string deserialized(Label& label, const std::vector<unsigned char>& value) {
    try {
        return label.deserializeFromBuffer(value.data(), value.size()).toString();
    } catch (const LabelError& error) {
        EXPECT_EQ(error.code, 13);
        return error.what();
    }
}

}  // namespace

TEST(LabelModel, ReadsTexts) {
    constexpr const char* kTable = R"(
# what is read, as text | the text that comes back | why it was rejected
00000000000000AB-000000000000000C-FFFFFFFFFFFFFFFF | 00000000000000ab-000000000000000c-ffffffffffffffff
00000000000000a_-_000000000000001-0000000000000002 | 000000000000000a-0000000000000001-0000000000000002
-000000000000001-0000000000000001-0000000000000002 | ffffffffffffffff-0000000000000001-0000000000000002
'' | L | label deserialization failed: Invalid format: missing OID
0000000000000001-0000000000000001-000000000000001  | Z | Invalid ID string length: 49
0000000000000001-0000000000000001-000000000000001g | Z | Invalid ID format (expect pkg-file-path)
10000000000000000-0000000000000001-00000000000000f | Z | Invalid ID format (expect pkg-file-path)
Z:4294967297:Z:4294967301:Z | Z:1:Z:5:Z
Z:-1:Z:_+7x:Z\nrest | Z:4294967295:Z:7:Z
:1:I:5:I | Z:1:I:5:I | Invalid ID string length: 0
I: | L | label deserialization failed: Invalid format: missing TID
I:1:I:5: | L | label deserialization failed: Invalid format: missing creator OID
I::I:5:I | L | label deserialization failed: stoul
I:1:I:6:I | L | label deserialization failed: Invalid inherit flag value
)";
    CapturedLog log;
    for (const Lines& cells : readTable(kTable, 3)) {
        const std::string text = expand(cells[0]);
        const bool isLabel = expand(cells[1]).size() > 50;
        EXPECT_EQ(isLabel ? Label::fromString(text).toString() : Id::fromString(text).toString(),
                  expand(cells[1]));
        EXPECT_EQ(log.take(), Lines(cells[2].empty() ? 0 : 1, "ERROR [fromString] " + cells[2])) << text;
    }
}

TEST(LabelModel, HasPinnedBytes) {
    constexpr const char* kTable = R"(
# label | its bytes: package numbers, then one optional part each, the state byte last
L                                 | 00000000000000000000000000000000000000000000000000
1.0.0:0:2.0.0:0:3.0.0             | 01000000000000000200000000000000030000000000000000
1.9.0:0:2.0.0:0:3.0.0             | 010000000000000009000000000000000200000000000000030000000000000080
1.0.9:0:2.0.0:0:3.0.0             | 010000000000000009000000000000000200000000000000030000000000000040
1.0.0:305419896:2.0.0:0:3.0.0     | 0100000000000000020000000000000003000000000000007856341220
1.0.0:0:2.9.0:0:3.0.0             | 010000000000000002000000000000000900000000000000030000000000000010
1.0.0:0:2.0.9:0:3.0.0             | 010000000000000002000000000000000900000000000000030000000000000008
1.0.0:0:2.0.0:7:3.0.0             | 0100000000000000020000000000000003000000000000000700000004
1.0.0:0:2.0.0:0:3.9.0             | 010000000000000002000000000000000300000000000000090000000000000002
1.0.0:0:2.0.0:0:3.0.9             | 010000000000000002000000000000000300000000000000090000000000000001
)";
    std::vector<Lines> rows = readTable(kTable, 2);
    rows.push_back({kFull.toString(), kFullHex});
    for (const Lines& cells : rows) {
        const Label label = Label::fromString(expand(cells[0]));
        std::vector<unsigned char> buffer(label.serializedBufferSize());
        EXPECT_EQ(label.serializeToBuffer(buffer.data(), buffer.size()), buffer.size());
        EXPECT_EQ(buffer, fromHexadecimal(cells[1])) << cells[0];
        Label read;
        EXPECT_EQ(deserialized(read, buffer), expand(cells[0]));
    }
}

TEST(LabelModel, RejectsForeignBytes) {
    const std::string prefix = "Label deserialization failed: Buffer ";
    for (size_t size = 0; size < 90; ++size) {  // every cut of a value that announces all parts
        std::vector<unsigned char> cut = fromHexadecimal(kFullHex);
        cut.resize(size, 0xff);
        std::fill_n(cut.rbegin(), size > 0 ? 1 : 0, 0xff);
        const char* reason = size < 25 || size > 81 ? "size is invalid" : "too small for required data";
        Label label;
        EXPECT_EQ(deserialized(label, cut), size == 81 ? kFull.toString() : prefix + reason) << size;
    }
    EXPECT_THROW(Label{}.deserializeFromBuffer(nullptr, 81), LabelError);
    // What was read before the failure stays, and so does what a value leaves out.
    Label label = kFull;
    EXPECT_EQ(deserialized(label, fromHexadecimal("09000000000000000a000000000000000b0000000000000080")),
              prefix + "too small for required data");
    EXPECT_EQ(label.toString(), (Label{{9, 10, 3}, {11, 5, 6}, kFull.creatorOid_, 0x12345678, 5}).toString());
    // Bytes before the state byte may be left over.
    EXPECT_EQ(deserialized(label, fromHexadecimal(std::string(48, '0') + "777700")),
              (Label{{0, 10, 3}, {0, 5, 6}, {0, 8, kFull.creatorOid_.path_}, 0x12345678, 5}).toString());
}

TEST(LabelModel, ChecksBuffers) {
    CapturedLog log;
    std::vector<unsigned char> buffer(80, 0xee);
    const Id id{1, 0, 3};
    EXPECT_EQ(kFull.serializeToBuffer(buffer.data(), 80), 0U);
    EXPECT_EQ(kFull.serializeToBuffer(nullptr, 81), 0U);
    EXPECT_THROW(id.toBytes(buffer.data(), 15), LabelError);
    EXPECT_EQ(id.toBytes(nullptr), nullptr);
    EXPECT_EQ(Id::fromBytes(nullptr).toString(), expand("Z"));
    EXPECT_EQ(log.take(),
              (Lines{"ERROR [serializeToBuffer] Buffer size is insufficient. Required: 81, provided: 80",
                     "ERROR [serializeToBuffer] Buffer pointer is null",
                     "ERROR [toBytes] toBytes: buffer too small, required: 16, actual: 15",
                     "ERROR [toBytes] input buffer is nullptr",
                     "ERROR [fromBytes] fromBytes: input data is nullptr"}));
    EXPECT_EQ(buffer, std::vector<unsigned char>(80, 0xee));
    EXPECT_EQ(id.toBytes(buffer.data(), 16), buffer.data() + 16);
    EXPECT_EQ(bytesToHexString(buffer.data(), 17), "01000000000000000300000000000000ee");
}

TEST(LabelModel, KeepsLabelsInTheAttributeAndLogsIt) {
    const TemporaryTree tree;
    tree.file("bare");
    setLabelAttribute(tree.link("link", "bare"), std::string(50, '0'));
    setLabelAttribute(tree.file("empty"), "");
    setLabelAttribute(tree.file("bad"), std::string(48, '0') + "80");
    tree.file("mount/file");
    const std::string readOnly = tree.path("mount");
    ASSERT_EQ(mount(readOnly.c_str(), readOnly.c_str(), nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(mount(nullptr, readOnly.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), 0);
    constexpr const char* kTable = R"(
# operation (with l: on a link itself) | file | result | log lines
lget | @/link | 0 | DEBUG [deserializeFromBuffer] Label deserialization: state: 00
get  | @/bare | -1 | DEBUG [getFromXattr] Extended attribute not found: PATH
get  | @/empty | -1 | ERROR [getFromXattr] LabelError: Extended attribute is empty: security.zorv: PATH
get  | @/bad | -1 | DEBUG [deserializeFromBuffer] Label deserialization: state: 80\nERROR [getFromXattr] LabelError: Label deserialization failed: Buffer too small for required data: PATH
get  | @/LONG | -1 | ERROR [getFromXattr] exception: filesystem error: status: File name too long [PATH]: PATH
lset | @/link | 0 | DEBUG [serializeToBuffer] Serialized tid_: 78563412\nDEBUG [serializeToBuffer] Serialized state: ff\nDEBUG [setToXattr] lsetxattr: 0, path: PATH
set  | @/bare | 0 | DEBUG [serializeToBuffer] Serialized tid_: 78563412\nDEBUG [serializeToBuffer] Serialized state: ff\nDEBUG [setToXattr] setxattr: 0, path: PATH
get  | @/bare | 0 | DEBUG [deserializeFromBuffer] Label deserialization: state: ff\nDEBUG [deserializeFromBuffer] Label deserialization: tid: 12345678
set  | /proc/version | -1 | DEBUG [serializeToBuffer] Serialized tid_: 78563412\nDEBUG [serializeToBuffer] Serialized state: ff\nDEBUG [setToXattr] setxattr: -1, path: PATH\nERROR [setToXattr] LabelError: Filesystem does not support extended attributes: : PATH
set  | @/mount/file | -1 | DEBUG [serializeToBuffer] Serialized tid_: 78563412\nDEBUG [serializeToBuffer] Serialized state: ff\nDEBUG [setToXattr] setxattr: -1, path: PATH\nERROR [setToXattr] LabelError: Failed to set extended attribute: Read-only file system: PATH
set  | @/LONG | -2 | ERROR [setToXattr] exception: filesystem error: status: File name too long [PATH]: PATH
)";
    CapturedLog log;
    for (const Lines& cells : readTable(kTable, 4)) {
        const std::string path =
            replaceAll(replaceAll(cells[1], "@", tree.path()), "LONG", std::string(256, 'n'));
        const bool noDereference = cells[0][0] == 'l';
        const bool sets = cells[0].find("set") != std::string::npos;
        Label read;
        EXPECT_EQ(sets ? kFull.setToXattr(path, noDereference) : read.getFromXattr(path, noDereference),
                  std::stoi(cells[2]))
            << path;
        EXPECT_EQ(log.take(), split(replaceAll(cells[3], "PATH", path), "\n")) << path;
    }
    EXPECT_EQ(umount(readOnly.c_str()), 0);
    EXPECT_EQ(labelAttribute(tree.path("bare")), kFullHex);
    EXPECT_EQ(labelAttribute(tree.path("link")), kFullHex);
}
