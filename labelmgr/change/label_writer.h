#pragma once

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "labelmgr/files/file_pinner.h"
#include "labelmgr/files/flush.h"
#include "labelmgr/store/pending_table.h"

struct ChangeStep;

// What a step of the change does to one file.
struct FileStep {
    const ChangeStep* step;
    bool isTarget;  // the record is this file's own, not that of a pattern that it matches
};

// A file of a change. It is pinned from the look at its label until the change is told or
// taken back; where a change has too many files for that, it is found again by its path,
// and must then have the same inode and the label that it should have by now.
struct ChangedFile {
    PendingFile file = {};
    std::unique_ptr<PinnedFile> pin = nullptr;
    std::vector<FileStep> steps = {};  // once it is planned those that are told, one message each
    mode_t mode = 0;
    uint64_t mount = 0;
    int reason = 0;          // for throwFileError: why it could not be looked at
    bool isNeeded = false;   // without it the change fails
    bool isLeftOut = false;  // it did not take its label, and that is not told

    bool isToBeWritten() const { return file.former != file.wanted; }
};

using ChangedFiles = std::deque<ChangedFile>;

// Writes the labels of a change, brings them to the disk, and takes them back.
class LabelWriter {
 public:
    explicit LabelWriter(const Context& context) : pinner(context) {}

    // A PinnedFile or an EntryFile.
    template <typename File>
    void setLabel(const File& file, const LabelBytes& label) {
        file.setLabel(label);
        note(file);
    }
    // Throws OperationError, FileGone when the path leads to another file or another
    // label by now.
    void write(const ChangedFile& changed);
    // Has a file flushed whose label is right already: whoever wrote it may have died
    // before it was on disk.
    void noteRight(const std::string& path);
    // Waits until everything written or noted is on disk. Throws OperationError.
    void flush();

    // Gives files their former labels back, last first, and notes them; a file that has
    // another label than the wanted one is left alone. What cannot be put back, or is not
    // there while its file system is not, is logged and answered.
    FilesToKeep takeBack(const ChangedFiles& files);
    // Writes the wanted labels again, as far as possible.
    void writeAgain(const ChangedFiles& files);

 private:
    template <typename Work>
    void onFile(const ChangedFile& changed, Work work);
    template <typename File>
    void note(const File& file);

    FilePinner pinner;
    std::vector<UniqueFd> unflushedFiles;  // while they are few
    size_t noted = 0;
    WrittenFileSystems fileSystems;
};

constexpr size_t kFewFiles = 8;  // to flush one by one
