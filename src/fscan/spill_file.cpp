#include "spill_file.h"

#include <signal.h>

#include "fscanner/fs/fs_resource_manager.h"

namespace fscan {

namespace {

const wchar_t* widen(std::string_view bytes, std::wstring& text) {
    text.clear();
    for (const char c : bytes) text += static_cast<wchar_t>(static_cast<unsigned char>(c));
    return text.c_str();
}

void narrow(const wchar_t* text, std::string& bytes) {
    for (; *text != 0; ++text) bytes += static_cast<char>(*text);
}

// The library removes its temporary files; then the signal does what it would have.
void removeFilesAndEnd(int signal) {
    fscanner::FsResourceManager::getInstance()->invokeCleanupHandlers(signal);
    ::signal(signal, SIG_DFL);
    ::raise(signal);
}

void removeFilesOnSignals() {
    fscanner::FsResourceManager::getInstance();  // made before a handler asks for it
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        struct sigaction action {};
        if (::sigaction(signal, nullptr, &action) != 0 || action.sa_handler == SIG_IGN) continue;
        action.sa_handler = removeFilesAndEnd;
        ::sigaction(signal, &action, nullptr);
    }
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
    removeFilesOnSignals();
    results_ = std::make_unique<fscanner::FsResultSet_OnFile>();
}

bool SpillFile::add(const Match& match) {
    record_.clear();
    record_.setFilePath(widen(match.directory(), text_));
    record_.setFileName(widen(match.name(), text_));
    if (match.facts.known) {
        record_.setFileAttr(match.facts.attributes);
        record_.setFileSize(match.facts.size);
        record_.setLastModifyTime(match.facts.modified);
    }
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
    if (!path_.empty() && path_.back() != '/') path_ += '/';
    match.nameAt = path_.size();
    narrow(record_.getName(), path_);
    match.path = path_;
    match.facts = {};
    if (record_.knownMask() != 0)
        match.facts = {true, record_.getAttr(), record_.getSize(), record_.getLastModifyTime()};
    return true;
}

}  // namespace fscan
