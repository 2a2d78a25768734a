#include "fscanner/common/debug.h"
#include "support/current_directory.h"
#include "support/scoped_locale.h"
#include "support/temporary_directory.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>

using namespace fscanner;
namespace fs = std::filesystem;

namespace {

// Volatile, as the compiler would refuse null texts.
char* volatile noText = nullptr;
wchar_t* volatile noWideText = nullptr;

class DebugLog : public testing::Test {
protected:
    void TearDown() override { startDebug(nullptr); }

    std::string contents() const { return readWholeFile(log_); }
    /// The output of one call.
    template <typename... Arguments>
    std::string logged(const char* format, Arguments... arguments) {
        startDebug(log_.c_str());
        debug(format, arguments...);
        return contents();
    }
    template <typename... Arguments>
    void expectAsLibc(const char* format, Arguments... arguments) {
        char expected[2000];
        std::snprintf(expected, sizeof expected, format, arguments...);
        EXPECT_EQ(logged(format, arguments...), expected) << format;
    }

    TemporaryDirectory directory_;
    std::string log_ = directory_ / "log";
};

TEST_F(DebugLog, IsOffUntilStartedAndResumesWithoutEmptying) {
    const CurrentDirectory current(directory_.path());
    debug("lost\n");
    EXPECT_FALSE(startDebug());
    EXPECT_TRUE(fs::is_empty(directory_.path()));
    writeWholeFile(log_, "old");
    ASSERT_TRUE(startDebug(log_.c_str()));
    EXPECT_EQ(contents(), "");
    debug("one\n");
    stopDebug();
    debug("lost\n");
    EXPECT_TRUE(startDebug());
    debug("two\n");
    EXPECT_EQ(contents(), "one\ntwo\n");
}

TEST_F(DebugLog, ForgetsAPathThatFails) {
    const std::size_t slashes = 1023 - log_.size();
    const std::string longest = std::string(slashes, '/') + log_;
    for (const std::string& bad : {directory_ / "no/log", std::string(), "/" + longest}) {
        ASSERT_TRUE(startDebug(longest.c_str()));
        EXPECT_FALSE(startDebug(bad.c_str()));
        EXPECT_FALSE(debugInfo);
        EXPECT_FALSE(startDebug());
    }
    ASSERT_TRUE(startDebug(longest.c_str()));
    debug("x\n");
    EXPECT_EQ(contents(), "x\n");
    EXPECT_FALSE(startDebug(nullptr));
    EXPECT_FALSE(startDebug());
}

TEST_F(DebugLog, FormatsAsLibcDoes) {
    const ScopedLocale locale("C.UTF-8");
    expectAsLibc("%d|%i|%u|%x|%X|%o|%#x|%+d|% d|%05d|%-5d|%.3d", -1, 2, 3u, 255u, 255u, 8u, 255u, 7,
                 7, 42, 42, 7);
    expectAsLibc("%hhd %hd %ld %lld %jd %zd %td", 300, 70000, LONG_MIN, LLONG_MAX, INTMAX_MIN,
                 static_cast<ssize_t>(-5), static_cast<ptrdiff_t>(-6));
    expectAsLibc("%hhu %hu %lu %llu %ju %zu", 300, 70000, ULONG_MAX, ULLONG_MAX, UINTMAX_MAX,
                 SIZE_MAX);
    expectAsLibc("%f %.2f %e %g %a %Lf %10.1f|", 1.5, 2.345, 3e10, 1e-7, 0.5, 2.5L, 9.99);
    expectAsLibc("%c|%3c|%-3c|%s|%10s|%-10s|%.2s|%5.1s|", 'a', 'b', 'c', "text", "text", "text",
                 "text", "text");
    expectAsLibc("%*d|%-*d|%*d|%.*s|%.*s|%*.*d|", 6, 1, 6, 2, -6, 3, 2, "text", -1, "text", 8, 3,
                 4);
    expectAsLibc("100%% %p %5%|", static_cast<void*>(this));
    expectAsLibc("%s|%.3s|%8s|", +noText, +noText, +noText);
    expectAsLibc("%S|%ls|%8ls|%-8ls|%.2ls|%.3ls|%C%lc|", L"\x20AC", L"h\xE9", L"h\xE9", L"h\xE9",
                 L"h\xE9llo", L"h\xE9llo", L'\xE9', L'z');
    expectAsLibc("%ls|%.3ls|%.6ls|", +noWideText, +noWideText, +noWideText);
    EXPECT_EQ(logged("50%, %y, %1$s %", 1), "50%, %y, %1$s %") << "not understood, and kept";
    expectAsLibc("%I64d|%'d|%300d|%.200d", 5, 1234567, 1, 2);  // I is a flag, 64 a width
}

TEST_F(DebugLog, NeverLosesAWideText) {
    for (const char* name : {"C", "C.UTF-8"}) {
        const ScopedLocale locale(name);
        EXPECT_EQ(logged("a '%S' b\n", L"h\xE9\x20AC"), "a 'h\xC3\xA9\xE2\x82\xAC' b\n") << name;
        EXPECT_EQ(logged("'%8ls'%c\n", L"\xE9\xDCFF", 'x'), "'     \xC3\xA9\xFF'x\n") << name;
        EXPECT_EQ(logged("'%.3ls'\n", L"\xE9\x20AC"), "'\xC3\xA9'\n") << name;
        EXPECT_EQ(logged("%S", +noWideText), "(null)") << name;
        EXPECT_EQ(logged("%lc%C", L'\x20AC', L'\xE9'), "\xE2\x82\xAC\xC3\xA9") << name;
    }
    EXPECT_EQ(logged("%ls!", std::wstring(100'000, L'\xE9').c_str()).size(), 200'001u);
}

TEST_F(DebugLog, KeepsErrnoAndDescriptors) {
    ASSERT_TRUE(startDebug(log_.c_str()));
    const int before = dup(0);
    close(before);
    const char* format = "%S: %m\n";
    errno = ENOENT;
    debug(format, L"\xE9");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(contents(), "\xC3\xA9: No such file or directory\n");
    fs::remove(log_);
    fs::create_directory(log_);  // cannot be opened: the line is lost
    errno = EPERM;
    debug("lost\n");
    EXPECT_EQ(errno, EPERM);
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
}

}  // namespace
