#include "fscanner/store/undo_journal.h"

#include <atomic>
#include <optional>

#include "fscanner/common/crc32.h"
#include "fscanner/common/path_text.h"
#include "fscanner/platform/paths.h"
#include "fscanner/platform/sysfactory.h"
#include "fscanner/store/bytes.h"

namespace fscanner {

namespace {

constexpr std::string_view kMagic = "FSCNUNDO";
constexpr std::uint32_t kVersion = 1;
constexpr std::size_t kBootIdLength = 36;
constexpr unsigned kUsedAt = 52;  // behind magic, version, boot ID and their checksum
constexpr unsigned kHeaderLength = 56;
constexpr std::size_t kChecksum = 4;

enum Kind : std::uint32_t { STATE = 1, BLOCK, BESIDE, REPLACING, DONE };

enum StateForm : std::uint32_t { ABSENT, BLOCKS, WHOLE };

// Empty when the system does not tell. Such a journal is never used for recovery.
std::string bootId() {
    const auto text = readWholeFile("/proc/sys/kernel/random/boot_id", 1000);
    return text && text->size() >= kBootIdLength ? text->substr(0, kBootIdLength) : "";
}

std::string header(const std::string& boot) {
    std::string bytes(kMagic);
    appendInteger(bytes, kVersion);
    bytes += boot;
    bytes.resize(kUsedAt - kChecksum);
    appendInteger(bytes, crc32(bytes));
    return bytes;
}

std::string_view text(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// A name in the journal must not lead to another directory.
bool takeFileName(ByteRange& in, std::wstring& name) {
    return takeName(in, name) && !name.empty() && name.find(L'/') == name.npos && name != L"." &&
           name != L"..";
}

}  // namespace

/// Writes the old blocks of one file to the journal.
class UndoJournal::Watch : public BlockWatch {
public:
    Watch(UndoJournal& journal, unsigned file) : journal_(journal), file_(file) {}

    // The entry is complete before the block changes, also as a later process sees it after this
    // one was killed. The fences in `note` keep the compiler from reordering the stores. The
    // processor needs no fence: once the process is dead, all its stores are visible.
    bool beforeChange(unsigned offset, std::span<const std::byte> block) override {
        content_.clear();
        appendInteger(content_, file_);
        appendInteger(content_, offset);
        appendBytes(content_, block);
        return journal_.note(BLOCK, content_);
    }

private:
    UndoJournal& journal_;
    unsigned file_;
    Bytes content_;
};

UndoJournal::UndoJournal(std::wstring directory, const std::wstring& name)
    : directory_(std::move(directory)) {
    endWithSeparator(directory_);
    path_ = pathOf(name);
}

UndoJournal::~UndoJournal() = default;

// ---- Writing ----------------------------------------------------------------

// Writes the header and the first entry before the file is mapped, so that the journal is never
// seen without them. `writeSmallFile` also replaces a file that somebody linked to this name.
bool UndoJournal::start(bool changed) {
    remove();
    std::string bytes = header(bootId());
    appendInteger(bytes, std::uint32_t{kHeaderLength});
    if (!changed) bytes += text(entry(DONE, {}));
    if (!writeSmallFile(path_, bytes.data(), static_cast<unsigned>(bytes.size()))) return false;
    auto file = SysFactory::createMmFile(path_.c_str());
    if (!file->open() || !file->seek(0, SEEK_FROM_END)) return false;
    file->setSyncOnClose(false);
    file_ = std::move(file);
    return true;
}

const UndoJournal::Bytes& UndoJournal::entry(unsigned kind, const Bytes& content) {
    entry_.clear();
    appendInteger(entry_, kind);
    appendInteger(entry_, static_cast<std::uint32_t>(content.size()));
    appendBytes(entry_, content);
    appendInteger(entry_, crc32(text(entry_)));
    return entry_;
}

bool UndoJournal::note(unsigned kind, const Bytes& content) {
    if (!file_) return false;
    const Bytes& bytes = entry(kind, content);
    const auto length = static_cast<unsigned>(bytes.size());
    if (file_->write(bytes.data(), length) != length) return false;
    std::byte* const used = file_->change(kUsedAt, 4);
    if (!used) return false;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    storeInteger<std::uint32_t>(used, file_->logicalSize());
    std::atomic_signal_fence(std::memory_order_seq_cst);
    return true;
}

// False for a file that cannot be read, as it could not be restored. Anything but a regular file
// is as good as absent.
bool UndoJournal::appendSmall(Bytes& content, const std::wstring& path) {
    const std::optional<std::string> bytes = readSmallFile(path);
    if (!bytes && isRegularFile(path)) return false;
    appendName(content, lastName(path));
    appendInteger(content, bytes ? WHOLE : ABSENT);
    if (!bytes) return true;
    appendInteger(content, static_cast<std::uint32_t>(bytes->size()));
    appendBytes(content, std::as_bytes(std::span(*bytes)));
    return true;
}

bool UndoJournal::keep(const std::vector<LinuxMmFile*>& files,
                       const std::vector<std::wstring>& smallFiles) {
    Bytes content;
    for (const LinuxMmFile* file : files) {
        appendName(content, lastName(file->path()));
        appendInteger(content, BLOCKS);
        appendInteger(content, file->logicalSize());
    }
    for (const std::wstring& path : smallFiles)
        if (!appendSmall(content, path)) return false;
    if (!note(STATE, content)) return false;
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (i == watches_.size())
            watches_.push_back(std::make_unique<Watch>(*this, static_cast<unsigned>(i)));
        files[i]->addWatch(*watches_[i]);
    }
    return true;
}

bool UndoJournal::announce(const Renames& renames) {
    Bytes content;
    for (const auto& [from, to] : renames) {
        appendName(content, lastName(from));
        appendName(content, lastName(to));
    }
    return note(BESIDE, content);
}

bool UndoJournal::noteReplacing() {
    return note(REPLACING, {});
}

bool UndoJournal::noteDone() {
    return note(DONE, {});
}

void UndoJournal::remove() {
    file_.reset();
    watches_.clear();
    removeFile(path_.c_str());
}

// ---- Recovery ---------------------------------------------------------------

/// A journal's contents, as `recover` needs them. Views into the bytes that were read.
struct UndoJournal::Contents {
    struct File {
        std::wstring name;
        std::uint32_t form = ABSENT;
        std::uint32_t size = 0;
        ByteRange content;  // of a small file
    };
    struct Block {
        std::uint32_t file = 0;
        std::uint32_t offset = 0;
        ByteRange bytes;
    };
    bool thisBoot = false;
    bool replacing = false;
    std::vector<File> files;
    std::vector<Block> blocks;
    Renames renames;  // names without the directory

    bool read(std::string_view bytes) {
        if (bytes.size() < kHeaderLength) return false;
        std::uint32_t used = 0;
        ByteRange(bytes.substr(kUsedAt)).takeInteger(used);
        const std::string boot(bytes.substr(kMagic.size() + 4, kBootIdLength));
        const std::string current = bootId();
        if (!bytes.starts_with(header(boot))) return false;
        thisBoot = !current.empty() && boot == current;
        // An incomplete last entry is no damage, as long as it lies behind `used`. A complete one
        // behind `used` is taken too: its change may not have been made, but undoing it does no
        // harm.
        std::size_t end = kHeaderLength;
        while (const std::size_t length = readEntry(bytes.substr(end))) end += length;
        return end >= used && end > kHeaderLength;
    }

private:
    /// Reads one entry and returns its length; 0 when there is no complete entry.
    std::size_t readEntry(std::string_view bytes) {
        ByteRange in(bytes);
        std::uint32_t kind = 0, length = 0, checksum = 0;
        if (!in.takeInteger(kind) || !in.takeInteger(length)) return 0;
        const std::byte* const content = in.take(length);
        if (!content || !in.takeInteger(checksum)) return 0;
        const std::size_t size = bytes.size() - in.left();
        if (checksum != crc32(bytes.substr(0, size - kChecksum))) return 0;
        return take(kind, ByteRange(content, content + length)) ? size : 0;
    }
    bool take(std::uint32_t kind, ByteRange content) {
        switch (kind) {
            case STATE:
                return takeState(content);
            case BLOCK:
                return takeBlock(content);
            case BESIDE:
                return takeRenames(content);
            case REPLACING:
                replacing = true;
                return true;
            case DONE:
                forget();
                return true;
            default:
                return false;
        }
    }
    void forget() {
        replacing = false;
        files.clear();
        blocks.clear();
        renames.clear();
    }
    bool takeState(ByteRange in) {
        forget();
        while (!in.empty()) {
            File file;
            if (!takeFileName(in, file.name) || !in.takeInteger(file.form) || file.form > WHOLE)
                return false;
            if (file.form != ABSENT && !in.takeInteger(file.size)) return false;
            if (file.form == WHOLE) {
                const std::byte* const content = in.take(file.size);
                if (!content) return false;
                file.content = ByteRange(content, content + file.size);
            }
            files.push_back(std::move(file));
        }
        return true;
    }
    bool takeBlock(ByteRange in) {
        Block block;
        if (!in.takeInteger(block.file) || !in.takeInteger(block.offset)) return false;
        if (block.file >= files.size() || files[block.file].form != BLOCKS) return false;
        block.bytes = in;
        const std::uint32_t size = files[block.file].size;
        if (block.offset > size || in.left() > size - block.offset) return false;
        blocks.push_back(block);
        return true;
    }
    bool takeRenames(ByteRange in) {
        renames.clear();
        while (!in.empty()) {
            auto& [from, to] = renames.emplace_back();
            if (!takeFileName(in, from) || !takeFileName(in, to)) return false;
        }
        return true;
    }
};

bool UndoJournal::recover() const {
    const std::optional<std::string> bytes = readSmallFile(path_);
    Contents journal;
    if (!bytes || !journal.read(*bytes)) return false;
    if (journal.thisBoot && journal.replacing) return finish(journal);
    for (const auto& [from, to] : journal.renames) removeFile(pathOf(from).c_str());
    return journal.thisBoot && undo(journal);
}

// A file whose temporary name is absent was renamed before the interruption.
bool UndoJournal::finish(const Contents& journal) const {
    for (const auto& [from, to] : journal.renames) {
        if (presenceOf(pathOf(from)) == Presence::absent) continue;
        if (renameFile(pathOf(from).c_str(), pathOf(to).c_str()) != 0) return false;
    }
    return syncDirectory(directory_);
}

namespace {

// Restores a small file. It is synced even if its content is already right, because that may not be
// on disk yet.
bool putBack(const std::wstring& path, std::string_view content) {
    const bool there = readSmallFile(path) == content ||
                       writeSmallFile(path, content.data(), static_cast<unsigned>(content.size()));
    return there && syncFile(path);
}

}  // namespace

// A block may have been noted twice; the first entry holds the original bytes. So the entries are
// applied backwards. Tables come before small files, which may need the space that is cut off.
bool UndoJournal::undo(const Contents& journal) const {
    std::vector<RestoredFile> tables(journal.files.size());
    for (std::size_t i = 0; i < tables.size(); ++i) {
        const Contents::File& file = journal.files[i];
        if (file.form == BLOCKS && !tables[i].open(pathOf(file.name), file.size)) return false;
    }
    for (auto block = journal.blocks.rbegin(); block != journal.blocks.rend(); ++block)
        if (!tables[block->file].put(block->offset, block->bytes.at(), block->bytes.left()))
            return false;
    for (std::size_t i = 0; i < tables.size(); ++i)
        if (journal.files[i].form == BLOCKS && !tables[i].cut()) return false;
    for (const Contents::File& file : journal.files) {
        const std::wstring path = pathOf(file.name);
        if (file.form == ABSENT && removeFile(path.c_str()) != 0 && isRegularFile(path))
            return false;
        if (file.form == WHOLE && !putBack(path, text({file.content.at(), file.content.left()})))
            return false;
    }
    return syncDirectory(directory_);
}

}  // namespace fscanner
