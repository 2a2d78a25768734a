#include "fscan/sort/spill_file.h"

namespace fscan {

namespace {

constexpr unsigned knownTime = 0x100;

const wchar_t* widen(std::string_view bytes, std::wstring& text) {
    text.clear();
    for (const char c : bytes) text += static_cast<wchar_t>(static_cast<unsigned char>(c));
    return text.c_str();
}

void narrow(const wchar_t* text, std::string& bytes) {
    for (; *text != 0; ++text) bytes += static_cast<char>(*text);
}

fscanner::FsSortKey libraryKey(SortKey key) {
    switch (key) {
        case SortKey::path:
            return fscanner::FS_SORT_PATH;
        case SortKey::name:
            return fscanner::FS_SORT_NAME;
        case SortKey::pathname:
            return fscanner::FS_SORT_PATHNAME;
        case SortKey::size:
            break;
    }
    return fscanner::FS_SORT_SIZE;
}

}  // namespace

SpillFile::SpillFile() {
    results_ = std::make_unique<fscanner::FsResultSet_OnFile>(fscanner::FsUnnamed::unnamed);
}

bool SpillFile::add(const Match& match) {
    record_.clear();
    record_.setFilePath(widen(match.directory(), text_));
    record_.setFileName(widen(match.name(), text_));
    record_.setFileAttr(match.facts.attributes);
    record_.setFileSize(match.facts.size);
    if (match.facts.known) record_.setLastModifyTime(match.facts.modified);
    if (results_->getWriter()->addRecord(record_) != 0) return false;
    ++added_;
    return true;
}

void SpillFile::sort(SortOrder order) {
    reader_.reset(results_->getReader());
    results_.reset();
    reader_->sort(libraryKey(order.key),
                  order.reversed ? fscanner::FS_SORT_DESCENDING : fscanner::FS_SORT_ASCENDING,
                  true);
    reader_->moveFirst();
}

bool SpillFile::next(Match& match) {
    if (!reader_->getNext(record_)) return false;
    ++given_;
    path_.clear();
    narrow(record_.getPath(), path_);
    if (!path_.empty() && path_ != "/") path_ += '/';
    match.nameAt = path_.size();
    narrow(record_.getName(), path_);
    match.path = path_;
    const bool known = (record_.knownMask() & knownTime) != 0;
    match.facts = {known, record_.getAttr(), record_.getSize(),
                   known ? record_.getLastModifyTime() : 0};
    return true;
}

}  // namespace fscan
