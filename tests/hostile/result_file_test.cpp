// Result files that were cut or altered: records before the damage are read, and
// sorting loses and invents nothing.

#include "hostile/result_file_check.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "fscanner/fs/encoded_record.h"
#include "support/fault_scale.h"

namespace fscanner {
namespace {

class ResultDamage : public testing::Test {
protected:
    ResultDamage() {
        FsResultSet_OnFile set;
        for (int i = 0; i < 400; ++i) {
            FsFileInfo record;
            record.setFilePath((L"/d" + std::to_wstring(i * 7 % 13)).c_str());
            std::wstring name(static_cast<std::size_t>(i % 90), i % 3 ? L'n' : L'\xdcff');
            record.setFileName((name += std::to_wstring(i * 37 % 400)).c_str());
            record.setFileSize(static_cast<unsigned>(i * 31 % 50));
            if (i % 2) record.setLastModifyTime(i);
            set.getWriter()->addRecord(record);
            whole_.push_back(record);
        }
        set.getWriter()->close();
        good_ = readWholeFile(results_.file());
        const auto* at = reinterpret_cast<const unsigned char*>(good_.data());
        std::size_t end = 0;
        while (end < good_.size()) ends_.push_back(end += readWellFormed(at + end).length);
        EXPECT_EQ(ends_.size(), whole_.size());
    }

    // Every record that ends before the damage is unchanged.
    std::size_t trial(const std::string& bytes, std::size_t damage) {
        const auto random = static_cast<unsigned>(random_());
        const ResultFileVerdict verdict = checkResultFile(directory_ / "r", bytes, 1 + random % 4,
                                                          1 + random / 4 % 2, random % 16 < 8);
        EXPECT_TRUE(verdict.keptAll);
        EXPECT_TRUE(verdict.inOrder);
        EXPECT_GE(verdict.records.size(), endingBefore(damage));
        const std::size_t intact = std::min(endingBefore(damage), verdict.records.size());
        for (std::size_t i = 0; i < intact; ++i) {
            EXPECT_STREQ(verdict.records[i].getPath(), whole_[i].getPath());
            EXPECT_STREQ(verdict.records[i].getName(), whole_[i].getName());
            EXPECT_EQ(verdict.records[i].knownMask(), whole_[i].knownMask());
        }
        return verdict.records.size();
    }
    std::size_t endingBefore(std::size_t at) const {
        return static_cast<std::size_t>(
            std::count_if(ends_.begin(), ends_.end(), [at](std::size_t end) { return end <= at; }));
    }
    std::size_t below(std::size_t limit) { return random_() % limit; }

    ResultDirectory results_;
    TemporaryDirectory directory_{memoryDirectory()};
    std::string good_;
    std::vector<FsFileInfo> whole_;
    std::vector<std::size_t> ends_;
    std::mt19937 random_{5};
};

TEST_F(ResultDamage, BytesAndWords) {
    for (int i = 0; i < 300 * faultScale() && !HasFailure(); ++i) {
        SCOPED_TRACE(i);
        std::string bytes = good_;
        const std::size_t at = below(bytes.size() - 4);
        const std::size_t kind = below(4);
        if (kind == 0) bytes[at] = static_cast<char>(bytes[at] ^ (1 << below(8)));
        if (kind == 1) bytes.erase(at, 1 + below(8));
        if (kind > 1) bytes.replace(at, 4, 4, kind == 2 ? '\0' : '\xff');
        trial(bytes, at);
    }
}

TEST_F(ResultDamage, Cuts) {
    const auto cut = [&](std::size_t length) {
        EXPECT_EQ(trial(good_.substr(0, length), length), endingBefore(length)) << length;
    };
    ASSERT_GT(good_.size(), 32769U);
    for (const std::size_t page : {4096U, 32768U})
        for (const std::size_t length : {page - 1, page, page + 1}) cut(length);
    for (std::size_t length = 0; length < 300 && !HasFailure(); ++length) {
        cut(length);
        if (length % 7 != 0) continue;
        cut(good_.size() - length);
        // As left by a writer that died: zeros up to the next step of growth.
        trial(good_.substr(0, length) + std::string(32768 - length, '\0'), length);
    }
}

}  // namespace
}  // namespace fscanner
