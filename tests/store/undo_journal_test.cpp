// The journal of a change: its notes, and the state of the files if nobody finished the change.

#include "fscanner/store/undo_journal.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <random>

#include "fscanner/common/crc32.h"
#include "fscanner/common/utf8.h"
#include "fscanner/store/bytes.h"
#include "support/format_example.h"
#include "support/temporary_directory.h"

namespace fscanner {
namespace {

namespace fs = std::filesystem;

class Journal : public testing::Test {
protected:
    using Files = std::map<std::string, std::string>;

    std::wstring wide(const std::string& name) const { return toWide(directory / name); }
    std::string bytes(const std::string& name) const { return readWholeFile(directory / name); }
    void write(const std::string& name, const std::string& content) const {
        writeWholeFile(directory / name, content);
    }
    std::unique_ptr<LinuxMmFile> open(const std::string& name) const {
        auto file = std::make_unique<LinuxMmFile>((directory / name).c_str());
        EXPECT_TRUE(file->open());
        return file;
    }
    static void put(LinuxMmFile& file, unsigned at, const std::string& content) {
        file.seek(at, SEEK_FROM_START);
        EXPECT_EQ(file.write(content.data(), static_cast<unsigned>(content.size())),
                  content.size());
    }
    // All files but the journal.
    Files files() const {
        Files all;
        for (const auto& entry : fs::directory_iterator(directory / ""))
            if (entry.path().filename() != "T.undo")
                all[entry.path().filename()] = readWholeFile(entry.path());
        return all;
    }
    void restore(const Files& all, const std::string& journalBytes) const {
        for (const auto& entry : fs::directory_iterator(directory / "")) fs::remove(entry.path());
        for (const auto& [name, content] : all) write(name, content);
        write("T.undo", journalBytes);
    }
    bool recover() const { return UndoJournal(toWide(directory / ""), L"T.undo").recover(); }

    TemporaryDirectory directory;
    UndoJournal journal{toWide(directory / ""), L"T.undo"};
};

TEST_F(Journal, WritesTheExample) {
    write("T.pxx", std::string("\x2c\0\0\0\x40\0\0\0", 8));
    write("T.counter", std::string("\3\0\0\0", 4));
    const Files before = files();
    const auto table = open("T.pxx");
    ASSERT_TRUE(journal.start(false));
    ASSERT_TRUE(journal.keep({table.get()}, {wide("T.counter"), wide("T.unread")}));
    std::memset(table->change(0, 4), 0, 4);
    put(*table, 8, std::string("\x60\0\0\0", 4));
    write("T.counter", std::string("\4\0\0\0", 4));
    write("T.unread", "FSUNREAD");
    std::string written = bytes("T.undo");
    std::uint32_t used = 0;
    ByteRange(std::string_view(written).substr(52)).takeInteger(used);
    EXPECT_EQ(written.find_first_not_of('\0', used), written.npos) << "room to grow";
    written.resize(used);
    // The boot ID of the example.
    written.replace(12, 36, "01234567-89ab-cdef-0123-456789abcdef");
    std::string sum;
    appendInteger(sum, crc32(written.substr(0, 48)));
    written.replace(48, 4, sum);
    EXPECT_EQ(written, exampleBytes("undo-file.md", 0));
    EXPECT_TRUE(recover());
    EXPECT_EQ(files(), before);
    const Files changed = files();
    write("T.undo", written);
    EXPECT_FALSE(recover()) << "of another boot";
    EXPECT_EQ(files(), changed);
}

// A process dies between any two changes, and later again in the middle of the recovery. A
// state that was noted later counts.
TEST_F(Journal, GoesBackToTheLastStateFromAnywhere) {
    std::mt19937 random(11);
    const auto below = [&](std::size_t n) { return static_cast<unsigned>(random() % n); };
    const auto letters = [&](unsigned n) {
        return std::string(n, static_cast<char>('a' + below(26)));
    };
    for (int round = 0; round < 40; ++round) {
        const char* const names[] = {"A.dat", "A.pxx", "empty"};
        write("A.dat", letters(1 + below(70000)));
        write("A.pxx", letters(1 + below(1000)));
        write("empty", "");
        write("small", letters(below(20)));
        std::vector<std::unique_ptr<LinuxMmFile>> tables;
        std::vector<LinuxMmFile*> kept;
        for (const char* name : names) kept.push_back(tables.emplace_back(open(name)).get());
        Files before;
        ASSERT_TRUE(journal.start(round % 2 == 0));
        ASSERT_EQ(recover(), round % 2 != 0) << "nothing was changed, or nobody knows what was";
        for (int step = 0; step < 60; ++step) {
            if (step == 0 || below(25) == 0) {
                ASSERT_TRUE(journal.keep(kept, {wide("small"), wide("new")}));
                before = files();
                for (std::size_t i = 0; i < kept.size(); ++i)
                    before[names[i]].resize(kept[i]->logicalSize());
            }
            LinuxMmFile& table = *kept[below(kept.size())];
            const unsigned at =
                below(3) == 0 ? table.logicalSize() : below(table.logicalSize() + 1);
            put(table, at, letters(1 + below(below(5) == 0 ? 40000 : 300)));
            if (below(10) == 0) write("small", letters(5));
            if (below(20) == 0) write("new", letters(5));
        }
        const Files died = files();
        const std::string noted = bytes("T.undo");
        tables.clear();
        restore(died, noted);
        EXPECT_TRUE(recover());
        EXPECT_EQ(files(), before) << round;
        for (int again = 0; again < 3; ++again) {
            Files halfway = files();
            const auto one = std::next(died.begin(), below(died.size()));
            halfway[one->first] = one->second;
            restore(halfway, noted);
            EXPECT_TRUE(recover());
            EXPECT_EQ(files(), before) << round;
        }
        journal.remove();
        EXPECT_FALSE(recover());
    }
}

// New files are removed or take their places, as the last note says.
TEST_F(Journal, FinishesAReplacementOrForgetsIt) {
    const Files old = {{"A.dat", "old"}, {"A.pxx", "older"}};
    const Files beside = {
        {"A.dat", "old"}, {"A.pxx", "older"}, {"A_cpt.dat", "new"}, {"A_cpt.pxx", "newer"}};
    const Files half = {{"A.dat", "new"}, {"A.pxx", "older"}, {"A_cpt.pxx", "newer"}};
    const Files replaced = {{"A.dat", "new"}, {"A.pxx", "newer"}};
    const Renames renames = {{wide("A_cpt.dat"), wide("A.dat")},
                             {wide("A_cpt.pxx"), wide("A.pxx")}};
    const std::vector<Files> found[] = {{old, beside}, {beside, half, replaced}, {replaced}};
    for (const int noted : {0, 1, 2}) {
        ASSERT_TRUE(journal.start(false));
        ASSERT_TRUE(journal.announce(renames));
        const bool told =
            (noted < 1 || journal.noteReplacing()) && (noted < 2 || journal.noteDone());
        ASSERT_TRUE(told);
        const std::string bytesNoted = bytes("T.undo");
        for (const Files& one : found[noted]) {
            restore(one, bytesNoted);
            EXPECT_TRUE(recover());
            EXPECT_EQ(files(), noted == 0 ? old : replaced);
        }
    }
}

// Whatever happens to its bytes: it is not used, or the files are as they were.
TEST_F(Journal, IsNotUsedWhenItIsDamaged) {
    write("A.pxx", std::string(300, 'a'));
    write("small", "s");
    const Files before = files();
    const auto table = open("A.pxx");
    ASSERT_TRUE(journal.start(false));
    ASSERT_TRUE(journal.keep({table.get()}, {wide("small")}));
    for (const unsigned at : {10u, 299u, 150u}) put(*table, at, "b");
    write("small", "changed");
    const Files died = files();
    const std::string good = bytes("T.undo");
    std::uint32_t used = 0;
    ByteRange(std::string_view(good).substr(52)).takeInteger(used);
    const auto check = [&](const std::string& noted, const std::string& what) {
        restore(died, noted);
        if (recover())
            EXPECT_EQ(files(), before) << what;
        else
            EXPECT_EQ(files(), died) << what;
    };
    for (std::size_t at = 0; at < used; ++at) {
        check(good.substr(0, at), "cut at " + std::to_string(at));
        for (int bit = 0; bit < 8; ++bit) {
            std::string bad = good;
            bad[at] = static_cast<char>(bad[at] ^ 1 << bit);
            check(bad, "bit " + std::to_string(bit) + " of " + std::to_string(at));
        }
    }
    check(good, "nothing");
    EXPECT_EQ(files(), before);
    // Files that are shorter than before, or gone, were not left by a change.
    for (const bool gone : {false, true}) {
        restore(died, good);
        gone ? fs::remove(directory / "A.pxx") : (fs::resize_file(directory / "A.pxx", 299), true);
        EXPECT_FALSE(recover());
    }
}

}  // namespace
}  // namespace fscanner
