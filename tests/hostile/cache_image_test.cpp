// Caches whose files are cut, altered, exchanged or gone: an answer is the right one,
// or a code comes instead; and the next use makes the cache good again.

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <random>

#include "hostile/cache_image.h"
#include "support/fault_scale.h"

namespace fscanner {
namespace {

constexpr std::size_t kSlot = 8, kHeads = 65536 * kSlot;

std::string word(std::uint32_t value) {
    std::string bytes(4, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(value);
        value >>= 8;
    }
    return bytes;
}

std::uint32_t wordAt(const std::string& bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 4; i-- > 0;)
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
}

class CacheDamage : public testing::TestWithParam<bool> {
protected:
    CacheDamage() : image(GetParam()) {
        for (std::size_t i = kFirstIndexFile; i < kCacheFiles.size(); ++i)
            for (std::size_t at = 0; at < image.good(i).size(); at += kSlot)
                if (wordAt(image.good(i), at) != ~0U) used_[i].push_back(at);
    }
    ~CacheDamage() override {
        RecordProperty("images", images_);
        RecordProperty("slowest_milliseconds", static_cast<int>(slowest_ * 1000));
    }

    std::size_t below(std::size_t limit) { return random_() % limit; }
    std::size_t usedSlot(std::size_t file) { return used_[file][below(used_[file].size())]; }
    // Where a change can matter: of an index most heads are empty.
    std::size_t place(std::size_t file) {
        if (file < kFirstIndexFile || below(8) == 0) return below(image.good(file).size());
        return usedSlot(file) + below(kSlot);
    }
    void setNext(std::size_t file, std::size_t slot, std::size_t next) {
        image.overwrite(file, slot + 4, word(static_cast<std::uint32_t>(next / kSlot)));
    }
    std::string damageAtRandom();
    static bool cannotBeTold(const std::string& what, std::size_t query);
    void trial(const std::string& what);

    CacheImage image;
    std::mt19937 random_{7};
    std::map<std::size_t, std::vector<std::size_t>> used_;
    double slowest_ = 0;
    int images_ = 0;
};

// What was done, ending in the file's name.
std::string CacheDamage::damageAtRandom() {
    std::size_t file = below(kCacheFiles.size());
    const std::size_t index = kFirstIndexFile + below(kCacheFiles.size() - kFirstIndexFile);
    const std::size_t slot = usedSlot(index), other = usedSlot(index);
    std::string what;
    switch (below(6)) {
        case 0: {
            const std::size_t at = place(file);
            image.overwrite(
                file, at,
                std::string(1, static_cast<char>(image.good(file)[at] ^ (1 << below(8)))));
            what = "a flipped bit";
            break;
        }
        case 1:
        case 2: {
            const std::uint32_t value = below(2) ? 0 : ~0U;
            image.overwrite(file, place(file) & ~std::size_t{3}, word(value));
            what = "a word of " + std::to_string(value);
            break;
        }
        case 3:
            setNext(file = index, slot, slot);
            what = "a slot that follows itself";
            break;
        case 4:
            setNext(file = index, slot, other);
            setNext(file, other, slot);
            what = "two slots that follow each other";
            break;
        default:
            file = below(2) ? kDirectoriesOffsets : kFilesOffsets;
            image.overwrite(file, below(image.good(file).size() / 4) * 4,
                            word(static_cast<std::uint32_t>(below(2) ? random_() : below(40000))));
            what = "an offset";
            break;
    }
    return what + " in " + kCacheFiles[file];
}

// Values have no checksum: what stands for another value of the same form is one. And
// a lookup sees neither an entry that reads as removed nor the end of a cut chain.
bool CacheDamage::cannotBeTold(const std::string& what, std::size_t query) {
    const bool hides = what.ends_with("in files.pxx") || what.ends_with("in files_FILENAME.idx");
    return what.ends_with("in files.dat") || what.ends_with("in dirs.dat") ||
           (query == kExactName && hides);
}

void CacheDamage::trial(const std::string& what) {
    SCOPED_TRACE(what + ", image " + std::to_string(++images_));
    for (std::size_t turn = 0; turn < 6; ++turn) {
        const auto start = std::chrono::steady_clock::now();
        // Whoever hangs is ended; how long the others took is a figure, no verdict.
        alarm(60);
        bool right = false;
        // The third makes its trees anew: what is damaged is also removed and built upon.
        const std::size_t query = (static_cast<std::size_t>(images_) + turn) % 4;
        const int status = image.ask(query, right, turn == 2 ? 0U - 10 : kDay);
        alarm(0);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        slowest_ = std::max(slowest_, took.count());
        EXPECT_TRUE(status == FS_CACHE_UNUSABLE ||
                    (status == 0 && (right || cannotBeTold(what, query))) ||
                    (status == FS_CACHE_FAILURE && image.isBlocked()))
            << "turn " << turn << ": " << status << (right ? ", right" : ", wrong");
    }
    image.unblock();
    writeWholeFile(image.path("dirs.cuflag"), "");
    for (std::size_t query = 0; query < image.queries.size(); ++query) {
        bool right = false;
        EXPECT_EQ(image.ask(query, right), 0);
        EXPECT_TRUE(right) << "after a rebuild";
    }
    image.restore();
}

TEST_P(CacheDamage, BytesWordsAndChains) {
    for (int i = 0; i < 250 * faultScale() && !HasFailure(); ++i) trial(damageAtRandom());
}

TEST_P(CacheDamage, EveryFileCutOrGrown) {
    for (std::size_t file = 0; file < kCacheFiles.size() && !HasFailure(); ++file) {
        const std::size_t whole = image.good(file).size();
        for (const std::size_t length :
             {std::size_t{0}, std::size_t{1}, std::size_t{4095}, std::size_t{4096},
              std::size_t{4097}, std::size_t{32767}, std::size_t{32768}, std::size_t{32769},
              kHeads - 8, kHeads, kHeads + 8, whole - 8, whole - 4, whole - 1, whole + 1, whole + 4,
              whole + 8, whole + 4096}) {
            // A longer counter is no fault; and it has no other lengths.
            if (length > whole + 4096 || length == whole || (whole == 4 && length > 4)) continue;
            image.cut(file, length);
            trial(std::string(kCacheFiles[file]) + " of " + std::to_string(length) + " bytes");
        }
    }
}

TEST_P(CacheDamage, EveryFileMissingExchangedOrSomethingElse) {
    for (std::size_t file = 0; file < kCacheFiles.size() && !HasFailure(); ++file) {
        const std::string path = image.path(kCacheFiles[file]);
        std::filesystem::remove(path);
        trial(path + " missing");
        std::filesystem::remove(path);
        std::filesystem::create_directory(path);
        trial(path + " a directory");
        std::filesystem::remove(path);
        ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
        trial(path + " a FIFO");
        std::filesystem::remove(path);
        std::filesystem::create_symlink("/dev/zero", path);
        trial(path + " a link to a device");
        for (std::size_t other = 0; other < file; ++other) {
            std::filesystem::rename(path, path + ".");
            std::filesystem::rename(image.path(kCacheFiles[other]), path);
            std::filesystem::rename(path + ".", image.path(kCacheFiles[other]));
            trial(path + " exchanged for " + kCacheFiles[other]);
        }
    }
}

// Whatever lies under the mark's name is a mark: the cache is not believed.
TEST_P(CacheDamage, MarksOfEveryKind) {
    const TempTree elsewhere;
    const std::string mark = image.path("dirs.cuflag"), victim = elsewhere.path("victim");
    const std::string content = "precious";
    writeWholeFile(victim, content);
    for (const char* kind : {"file", "link", "dangling", "fifo", "directory"}) {
        for (const std::size_t file : {kDirectoriesOffsets, kFilesOffsets}) image.cut(file, 0);
        const std::string what = kind;
        if (what == "file") writeWholeFile(mark, "text");
        if (what == "link") std::filesystem::create_symlink(victim, mark);
        if (what == "dangling") std::filesystem::create_symlink(victim + ".not", mark);
        if (what == "fifo" && mkfifo(mark.c_str(), 0600) != 0) ADD_FAILURE() << mark;
        if (what == "directory") std::filesystem::create_directories(mark + "/full");
        for (std::size_t query = 0; query < image.queries.size(); ++query) {
            bool right = false;
            EXPECT_EQ(image.ask(query, right), 0) << kind;
            EXPECT_TRUE(right) << kind;
        }
        EXPECT_EQ(readWholeFile(victim), content);
        EXPECT_FALSE(std::filesystem::exists(victim + ".not"));
        image.restore();
    }
}

INSTANTIATE_TEST_SUITE_P(Encodings, CacheDamage, testing::Values(false, true),
                         [](const auto& form) { return form.param ? "compressed" : "fixed"; });

}  // namespace
}  // namespace fscanner
