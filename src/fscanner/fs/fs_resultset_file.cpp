#include "fscanner/fs/fs_resultset_file.h"

#undef NDEBUG  // the assertion in an exported constructor has to work in release builds, too
#include <cassert>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "fscanner/common/debug.h"
#include "fscanner/common/utf8.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_serializator_file.h"
#include "fscanner/fs/naturalmerge.h"
#include "fscanner/fs/no_throw.h"
#include "fscanner/fs/record_merge.h"
#include "fscanner/fs/temp_files.h"
#include "fscanner/platform/sysfactory.h"

namespace fscanner {

namespace {

constexpr int kNoTempNameStatus = 41;
constexpr int kNameTries = 16;

std::unique_ptr<LinuxMmFile> makeFile(const char* name) {
    if (name == nullptr) return nullptr;
    const std::unique_ptr<wchar_t[]> wide(myMbsToWcs(name));
    std::unique_ptr<LinuxMmFile> file = SysFactory::createMmFile(wide.get());
    if (file) file->setSyncOnClose(false);  // results need not survive a power cut
    return file;
}

NaturalMergeSort::Compare comparator(unsigned key) {
    switch (key) {
        case FS_SORT_PATH:
            return fs_compare_path;
        case FS_SORT_NAME:
            return fs_compare_file;
        case FS_SORT_PATHNAME:
            return fs_compare_pathname;
        case FS_SORT_SIZE:
            return fs_compare_size;
        default:
            return nullptr;
    }
}

// The result of the sort goes to the log only: `sort` returns whether it was attempted.
void sortFile(const std::string& name, const std::string& directory, unsigned key,
              unsigned direction, bool caseSensitive) {
    std::wstring wide = toWide(name);
    debug("FsResultSetReader_OnFile::sort - file name is %ls\n", wide.c_str());
    NaturalMergeSort sorter(comparator(key), fs_read, fs_write, fs_readCurrent, fs_free);
    if (!directory.empty()) sorter.setDirectory(directory);
    sorter.setEncodedMerge(std::make_unique<ResultRecordMerge>(key));
    debug("FsResultSetReader_OnFile::sort - naturalMergeSort object created!\n");
    sorter.sort(wide.c_str(), direction, caseSensitive);
    debug("FsResultSetReader_OnFile::sort - file sorted!\n");
}

}  // namespace

FsResultSetWriter_OnFile::FsResultSetWriter_OnFile(const char* name) : file_(makeFile(name)) {
    if (!file_) return;
    removable_ = std::make_unique<RemovableFile>(name);
    if (file_->create()) removable_->identify();
    serializator_ = std::make_unique<FsSerializator_OnFile>(file_.get(), true);
}

FsResultSetWriter_OnFile::~FsResultSetWriter_OnFile() = default;

int FsResultSetWriter_OnFile::addRecord(const wchar_t* path, const wchar_t* name,
                                        unsigned long long size, unsigned attributes) {
    FsFileInfo record;
    record.setFilePath(path);
    record.setFileName(name);
    record.setFileSize(size);
    record.setFileAttr(attributes);
    if (record.hasError()) return -1;  // no memory for a text
    return FsResultSetWriter_OnFile::addRecord(record);
}

int FsResultSetWriter_OnFile::addRecord(const FsFileInfo& record) {
    return serializator_ ? record.saveObject(*serializator_) : -1;
}

// The file grows in steps, filled with zeros, and zeros would be read as records. So a file that
// cannot be cut to its content is removed.
int FsResultSetWriter_OnFile::close() {
    if (serializator_ && !file_->close()) {
        debug("FsResultSetWriter_OnFile::close - '%s' is not complete, removed\n",
              removable_->name().c_str());
        removable_->remove();
    }
    serializator_.reset();
    return 0;
}

FsResultSetReader_OnFile::FsResultSetReader_OnFile(const char* filename) {
    // NOLINTNEXTLINE(modernize-use-nullptr): the text of the assertion is part of the interface
    assert(filename != 0);
    source_ = std::make_unique<RemovableFile>(filename);
    source_->identify();
}

FsResultSetReader_OnFile::FsResultSetReader_OnFile(std::shared_ptr<TemporaryFile> unnamed)
    : source_(std::make_unique<RemovableFile>(unnamed ? unnamed->path() : "")),
      unnamed_(std::move(unnamed)) {}

FsResultSetReader_OnFile::~FsResultSetReader_OnFile() {
    closeFile();
    source_->remove();
}

void FsResultSetReader_OnFile::closeFile() {
    serializator_.reset();
    file_.reset();
}

void FsResultSetReader_OnFile::moveFirst() {
    closeFile();
    noThrow("FsResultSetReader_OnFile::moveFirst", [this] {
        file_ = makeFile(source_->name().c_str());
        if (!file_) return;
        if (file_->open()) source_->identify();
        serializator_ = std::make_unique<FsSerializator_OnFile>(file_.get(), true);
    });
}

bool FsResultSetReader_OnFile::getNext(FsFileInfo& out) {
    return serializator_ && out.loadObject(*serializator_) == 0;
}

int FsResultSetReader_OnFile::setBookmark() {
    if (!file_) return 0;
    bookmark_ = static_cast<unsigned>(file_->tell());
    return 1;
}

int FsResultSetReader_OnFile::toBookmark() {
    if (!serializator_) return 0;
    serializator_->reset();
    file_->seek(bookmark_, SEEK_FROM_START);
    return 1;
}

int FsResultSetReader_OnFile::sort(unsigned key, unsigned direction, bool caseSensitive) {
    debug("FsResultSetReader_OnFile::sort - entering...\n");
    const bool known = comparator(key) != nullptr;
    if (known) {
        closeFile();  // the sort rewrites the file
        noThrow("FsResultSetReader_OnFile::sort", [&] {
            sortFile(source_->name(), unnamed_ ? unnamed_->directory() : "", key, direction,
                     caseSensitive);
        });
    }
    debug("FsResultSetReader_OnFile::sort - exiting...\n");
    return known ? 1 : 0;
}

FsResultSet_OnFile::FsResultSet_OnFile() {
    chooseName();
}

FsResultSet_OnFile::FsResultSet_OnFile(FsUnnamed) {
    const TempNameSource& places = tempNameSource();
    unnamed_ = TemporaryFile::create(places.fallbackDirectory);
    if (!unnamed_) unnamed_ = TemporaryFile::create(places.directory);
}

// The reader shares the registration, so that the cleanup handlers still remove the file after
// the set was destroyed.
void FsResultSet_OnFile::chooseName() {
    const auto [path, created] = chooseTempName();
    claimed_ = created;
    debug("The temp file name is: %s\n", path.empty() ? "(null)" : path.c_str());
    if (path.empty()) {
        debug("Exiting due to null temp file name: ");
        debug("%s", std::strerror(errno));
        debug("\n");
        std::exit(kNoTempNameStatus);  // without a file there is no result set
    }
    debug("name ok: %s\n", path.c_str());
    file_ = addTempFileHandler(path);
    if (created) file_->identify();
}

// Creates the file. If another process has taken the name since it was chosen, chooses again.
bool FsResultSet_OnFile::claimFile() {
    for (int i = 0; !claimed_ && i < kNameTries; ++i) {
        claimed_ = file_->create();
        if (claimed_ || errno != EEXIST) break;
        chooseName();
    }
    return claimed_;
}

FsResultSet_OnFile::~FsResultSet_OnFile() {
    writer_.reset();
    if (claimed_ && reader_ == nullptr) file_->remove();
}

const char* FsResultSet_OnFile::pathToWrite() {
    if (unnamed_) return unnamed_->path().c_str();
    return file_ != nullptr && claimFile() ? file_->name().c_str() : nullptr;
}

FsResultSetWriter* FsResultSet_OnFile::getWriter() {
    if (!writer_) writer_ = std::make_unique<FsResultSetWriter_OnFile>(pathToWrite());
    return writer_.get();
}

FsResultSetReader* FsResultSet_OnFile::getReader() {
    if (reader_ == nullptr) {
        if (writer_) writer_->close();
        const char* const path = pathToWrite();
        // If the file was not created here, a file of that name is not the result: the reader
        // gets an empty name, which opens nothing.
        auto* const reader = file_ != nullptr
                                 ? new FsResultSetReader_OnFile(path != nullptr ? path : "")
                                 : new FsResultSetReader_OnFile(unnamed_);
        reader->registration_ = file_;
        reader_ = reader;
    }
    return reader_;
}

}  // namespace fscanner
