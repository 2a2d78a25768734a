// The sort of result files, by callbacks and on the encoded bytes.

#include <gmock/gmock.h>

#include <algorithm>
#include <climits>
#include <random>

#include "fscanner/fs/naturalmerge.h"
#include "fscanner/fs/record_merge.h"
#include "hostile/result_file_check.h"

namespace fscanner {
namespace {

using ::testing::ElementsAre;

using namespace std::string_literals;

NaturalMergeSort callbackSorter(unsigned key) {
    constexpr NaturalMergeSort::Compare compare[] = {fs_compare_path, fs_compare_file,
                                                     fs_compare_pathname, fs_compare_size};
    return {compare[key - 1], fs_read, fs_write, fs_readCurrent, fs_free};
}

struct Record {
    std::wstring path;
    std::wstring name;
    unsigned size;
    unsigned known = 3;  // the bits of FsFileInfo::knownMask()
};

class NaturalMerge : public ::testing::Test {
protected:
    void write(const std::vector<Record>& records) {
        FsResultSetWriter_OnFile writer(file_.c_str());
        for (const Record& r : records) {
            FsFileInfo record;
            record.setFilePath(r.path.c_str());
            record.setFileName(r.name.c_str());
            if (r.known & 1) record.setFileAttr(0);
            if (r.known & 2) record.setFileSize(r.size);
            if (r.known & 0x100) record.setLastModifyTime(77);
            ASSERT_EQ(writer.addRecord(record), 0);
        }
    }
    std::string content() const { return readWholeFile(file_); }
    bool sort(NaturalMergeSort sorter, unsigned direction, bool caseSensitive = true) {
        return sorter.sort(std::wstring(file_.begin(), file_.end()).c_str(), direction,
                           caseSensitive);
    }
    bool sortEncoded(unsigned key, unsigned direction, bool caseSensitive = true) {
        NaturalMergeSort sorter = callbackSorter(key);
        sorter.setEncodedMerge(std::make_unique<ResultRecordMerge>(key));
        return sort(std::move(sorter), direction, caseSensitive);
    }
    // The file after both ways of sorting, which have to agree.
    std::string sortBothWays(unsigned key, unsigned direction, bool caseSensitive = true) {
        const std::string before = content();
        EXPECT_TRUE(sort(callbackSorter(key), direction, caseSensitive));
        const std::string byCallbacks = content();
        replaceFile(file_, before);
        EXPECT_TRUE(sortEncoded(key, direction, caseSensitive));
        EXPECT_EQ(content() == byCallbacks, true)
            << "key " << key << ", direction " << direction << ", case " << caseSensitive;
        return byCallbacks;
    }
    // All records, each in one line.
    std::vector<std::wstring> lines() {
        replaceFile(file_ + "_copy", content());  // a reader removes its file
        FsResultSetReader_OnFile reader((file_ + "_copy").c_str());
        std::vector<std::wstring> all;
        for (const FsFileInfo& r : readAllRecords(reader))
            all.push_back(std::wstring(r.getPath()) + L"|" + r.getName() + L"|" +
                          std::to_wstring(r.knownMask() & 2 ? r.getSize() : 0));
        return all;
    }

    TemporaryDirectory directory_;
    std::string file_ = directory_ / "records";
};

TEST_F(NaturalMerge, OrderOfTiesIsTheAlgorithmsOwn) {
    // Runs 1 | 0 1 2 | 1: the third run joins the first in its file, and so "e"
    // comes before "c" although both are read later. So the sort is not stable, on purpose.
    write({{L"", L"a", 1}, {L"", L"b", 0}, {L"", L"c", 1}, {L"", L"d", 2}, {L"", L"e", 1}});
    sortBothWays(FS_SORT_SIZE, FS_SORT_ASCENDING);
    EXPECT_THAT(lines(), ElementsAre(L"|b|0", L"|a|1", L"|e|1", L"|c|1", L"|d|2"));
}

// Texts whose encodings meet every boundary: equal starts, joins with and
// without a slash, all lengths of UTF-8, bytes that no locale decodes. The size
// is known in most, and stands in different places.
std::vector<Record> randomRecords(std::mt19937& random, int count) {
    const std::wstring parts[] = {L"",       L"a",       L"A",      L"/",     L"z",
                                  L"\x7f",   L"\x80",    L"\x7ff",  L"\xe9",  L"\xc9",
                                  L"\xdc80", L"\x10000", L"\xffff", L"a\x800"};
    const auto pick = [&](unsigned n) { return static_cast<unsigned>(random()) % n; };
    const auto text = [&] {
        std::wstring t;
        for (unsigned n = pick(4); n > 0; --n) t += parts[pick(std::size(parts))];
        return t;
    };
    std::vector<Record> records;
    const unsigned sizes = 1 + pick(50);
    for (int i = 0; i < count; ++i)
        records.push_back({L"/" + text(), text(), pick(3) == 0 ? UINT_MAX - pick(2) : pick(sizes),
                           pick(4) + (pick(2) << 8)});
    return records;
}

TEST_F(NaturalMerge, BothWaysAgreeAndAreSorted) {
    std::mt19937 random(42);
    for (int round = 0; round < 48; ++round) {
        const unsigned key = 1 + static_cast<unsigned>(round) % 4;
        const unsigned direction = 1 + static_cast<unsigned>(round) / 4 % 2;
        const bool caseSensitive = round / 8 % 2 == 0;
        write(randomRecords(random, static_cast<int>(random() % 120)));
        auto before = lines();
        const std::string bytes = content();
        ASSERT_EQ(sortBothWays(key, direction, caseSensitive).size(), bytes.size())
            << "round " << round;
        auto after = lines();
        std::sort(before.begin(), before.end());
        std::sort(after.begin(), after.end());
        ASSERT_EQ(before, after) << "records were lost or changed, round " << round;
        ASSERT_TRUE(checkResultFile(file_ + "_copy", bytes, key, direction, caseSensitive).inOrder)
            << "round " << round;
    }
}

TEST_F(NaturalMerge, RecordsThatWouldChangeGoThroughTheCallbacks) {
    const std::string tail = "\0\0\0\2b\0\0\0\0"s;
    const std::string second[] = {
        "\0\0\0\0"s + tail,          // a null path
        "\0\0\0\4/\0x"s + tail,      // a zero byte
        "\0\0\0\3\xc1\xa1"s + tail,  // overlong
        "\0\0\0\2\x80"s + tail,      // a stray byte
        "\0\0\0\2\xe2"s + tail,      // a cut character
    };
    const auto expectAgreement = [&](const std::string& file) {
        replaceFile(file_, file);
        sortBothWays(FS_SORT_PATH, FS_SORT_ASCENDING);
        sortBothWays(FS_SORT_PATHNAME, FS_SORT_DESCENDING);
    };
    const std::string first = "\0\0\0\3/z"s + tail, last = "\0\0\0\2a"s + tail;
    for (const std::string& record : second) expectAgreement(first + record + last);
    expectAgreement(first + last + "\0\0\0\2a\0\0"s);  // a cut record
}

TEST_F(NaturalMerge, WrongRequestsAndFailedWritesLoseNothing) {
    const auto failing = [] {
        const auto failToWrite = [](AbstractFile*, void*) { return 0; };
        return NaturalMergeSort(fs_compare_file, fs_read, failToWrite, fs_readCurrent, fs_free);
    };
    write({});
    EXPECT_EQ(sortBothWays(FS_SORT_NAME, FS_SORT_ASCENDING), "");
    write({{L"", L"b", 1}, {L"", L"a", 0}});
    const std::string before = content();
    EXPECT_FALSE(sort(failing(), 1));
    EXPECT_FALSE(sort(callbackSorter(2), 0));
    EXPECT_FALSE(sortEncoded(2, 3));
    EXPECT_FALSE(callbackSorter(2).sort(nullptr, 1, true));
    EXPECT_FALSE(sort(NaturalMergeSort(fs_compare_file, fs_read, fs_write, nullptr, fs_free), 1));
    EXPECT_EQ(content(), before);
    NaturalMergeSort encoded = failing();
    encoded.setEncodedMerge(std::make_unique<ResultRecordMerge>(2));
    EXPECT_TRUE(sort(std::move(encoded), 1)) << "whole files need no callbacks";
    EXPECT_THAT(lines(), ElementsAre(L"|a|0", L"|b|1"));
    std::filesystem::remove(file_);
    EXPECT_FALSE(sort(callbackSorter(2), 1));
    EXPECT_TRUE(std::filesystem::is_empty(directory_.path()));
}

}  // namespace
}  // namespace fscanner
