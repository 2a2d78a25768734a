// Caches whose files are cut, altered, exchanged or gone: the answer is right, or a status
// reports a failure, and the next use makes the cache good again.

#include <sys/stat.h>

#include <map>
#include <random>

#include "fscanner/store/bytes.h"
#include "hostile/cache_image.h"
#include "support/fault_scale.h"

namespace fscanner {
namespace {

constexpr std::size_t kSlot = 8, kHeads = 65536 * kSlot;

std::string word(std::uint32_t value) {
    value = littleEndian(value);
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

class CacheDamage : public testing::TestWithParam<bool> {
protected:
    CacheDamage() : image(GetParam()) {
        for (std::size_t i = kFirstIndexFile; i < kSums; ++i)
            for (std::size_t at = 0; at < image.good(i).size(); at += kSlot)
                if (image.good(i).compare(at, 4, word(~0U)) != 0) used_[i].push_back(at);
    }

    std::size_t below(std::size_t limit) { return random_() % limit; }
    std::size_t usedSlot(std::size_t file) { return used_[file][below(used_[file].size())]; }
    // Places where a change can matter: in an index most heads are empty.
    std::size_t place(std::size_t file) {
        if (!used_.contains(file) || below(8) == 0) return below(image.good(file).size());
        return usedSlot(file) + below(kSlot);
    }
    void setNext(std::size_t file, std::size_t slot, std::size_t next) {
        image.overwrite(file, slot + 4, word(static_cast<std::uint32_t>(next / kSlot)));
    }
    std::size_t blockOf(std::size_t file, std::size_t block);
    std::string damageAtRandom(unsigned kinds);
    static bool cannotBeTold(const std::string& what, std::size_t query);
    void trial(const std::string& what);
    void expectRightAnswers();

    CacheImage image;
    std::mt19937 random_{7};
    std::map<std::size_t, std::vector<std::size_t>> used_;
    std::size_t images_ = 0;
};

// A random multiple of `block`, up to the file's size.
std::size_t CacheDamage::blockOf(std::size_t file, std::size_t block) {
    return below(image.good(file).size() / block + 1) * block % (image.good(file).size() + 1);
}

std::string CacheDamage::damageAtRandom(unsigned kinds) {
    std::size_t file = below(kCacheFiles.size());
    const std::size_t index = kFirstIndexFile + below(kSums - kFirstIndexFile);
    const std::size_t slot = usedSlot(index), other = usedSlot(index);
    const unsigned kind = static_cast<unsigned>(below(kinds));
    if (kind == 0) {
        const std::size_t at = place(file);
        const int flipped = image.good(file)[at] ^ (1 << below(8));
        image.overwrite(file, at, std::string(1, static_cast<char>(flipped)));
    } else if (kind < 3) {
        image.overwrite(file, place(file) & ~std::size_t{3}, word(below(2) ? 0 : ~0U));
    } else if (kind < 5) {
        // A slot that follows itself, or two that follow each other.
        file = index;
        setNext(file, slot, kind == 3 ? slot : other);
        if (kind == 4) setNext(file, other, slot);
    } else if (kind == 5) {
        file = below(2) ? kDirectoriesOffsets : kFilesOffsets;
        image.overwrite(file, below(image.good(file).size() / 4) * 4,
                        word(static_cast<std::uint32_t>(below(2) ? random_() : below(40000))));
    } else if (kind == 6) {
        const std::size_t at = place(file);
        const std::size_t length = std::min(image.good(file).size() - at, 1 + below(9000));
        image.overwrite(file, at, std::string(length, '\0'));
    } else if (kind == 7) {
        image.cut(file, below(image.good(file).size()));
    } else {
        // Blocks are exchanged, or one comes from the earlier files.
        const std::size_t block = std::size_t{512} << below(6);
        const std::size_t from = blockOf(file, block), to = blockOf(file, block);
        const std::string& content = image.good(file);
        if (kind == 9) {
            image.overwrite(file, to,
                            image.earlier(file).substr(std::min(to, image.earlier(file).size()),
                                                       std::min(block, content.size() - to)));
        } else {
            const std::size_t length = std::min(block, content.size() - std::max(from, to));
            image.overwrite(file, to, content.substr(from, length));
            image.overwrite(file, from, content.substr(to, length));
        }
    }
    return "damage " + std::to_string(kind) + " in " + kCacheFiles[file];
}

// With checksums that fit again, a changed value of the same form is valid. And a lookup sees
// neither an entry that reads as removed nor the end of a cut chain: a
// name, or the directory at which a search or a refresh begins.
bool CacheDamage::cannotBeTold(const std::string& what, std::size_t query) {
    if (!what.starts_with("summed")) return false;
    const auto isIn = [&](const char* file) { return what.ends_with(file); };
    const bool hidesNames = isIn(" files.pxx") || isIn(" files_FILENAME.idx");
    return isIn(" files.dat") || isIn(" dirs.dat") || isIn(" dirs_PATHNAME.idx") ||
           (query == kExactName && hidesNames);
}

void CacheDamage::trial(const std::string& what) {
    SCOPED_TRACE(what + ", image " + std::to_string(++images_));
    for (std::size_t turn = 0; turn < 6; ++turn) {
        bool right = false;
        // The third query makes its trees anew: damaged data is also removed and built upon.
        const std::size_t query = (images_ + turn) % image.queries.size();
        const int status = image.ask(query, right, turn == 2 ? kAllOld : kDay);
        SCOPED_TRACE("turn " + std::to_string(turn));
        const int failure = image.isBlocked() ? FS_CACHE_FAILURE : FS_CACHE_UNUSABLE;
        EXPECT_THAT(status, testing::AnyOf(0, FS_CACHE_UNUSABLE, failure));
        if (status == 0 && !cannotBeTold(what, query)) {
            EXPECT_TRUE(right);
        }
    }
    image.unblock();
    writeWholeFile(image.path("dirs.cuflag"), "");
    expectRightAnswers();
    image.restore();
}

void CacheDamage::expectRightAnswers() {
    for (std::size_t query = 0; query < image.queries.size(); ++query) {
        bool right = false;
        EXPECT_EQ(image.ask(query, right), 0);
        EXPECT_TRUE(right);
    }
}

TEST_P(CacheDamage, BytesWordsChainsAndBlocks) {
    for (int i = 0; i < 250 * faultScale() && !HasFailure(); ++i) trial(damageAtRandom(10));
}

// The files are compared with each other, too.
TEST_P(CacheDamage, WhatHasTheRightChecksums) {
    for (int i = 0; i < 150 * faultScale() && !HasFailure(); ++i) {
        const std::string what = damageAtRandom(6);
        image.sumUp();
        trial("summed " + what);
    }
}

TEST_P(CacheDamage, EveryFileCutOrGrown) {
    for (std::size_t file = 0; file < kCacheFiles.size() && !HasFailure(); ++file) {
        const std::size_t whole = image.good(file).size();
        for (const std::size_t length :
             {std::size_t{0}, std::size_t{1}, std::size_t{4095}, std::size_t{4096},
              std::size_t{4097}, std::size_t{32767}, std::size_t{32768}, std::size_t{32769},
              kHeads - 8, kHeads, kHeads + 8, whole - 8, whole - 4, whole - 1, whole + 1, whole + 4,
              whole + 8, whole + 4096}) {
            // A longer counter is not a fault, and other lengths do not occur.
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

// Anything under the mark's name is a mark: the cache is not trusted.
TEST_P(CacheDamage, MarksThatAreNoFiles) {
    const std::string mark = image.path("dirs.cuflag");
    for (const bool dangling : {true, false}) {
        SCOPED_TRACE(dangling);
        for (const std::size_t file : {kDirectoriesOffsets, kFilesOffsets}) image.cut(file, 0);
        if (dangling) std::filesystem::create_symlink("nowhere", mark);
        if (!dangling) std::filesystem::create_directories(mark + "/full");
        expectRightAnswers();
        EXPECT_FALSE(std::filesystem::exists(image.path("nowhere")));
        image.restore();
    }
}

INSTANTIATE_TEST_SUITE_P(Encodings, CacheDamage, testing::Values(false, true),
                         [](const auto& form) { return form.param ? "compressed" : "fixed"; });

}  // namespace
}  // namespace fscanner
