#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>

#include "fscanner/common/strings.h"
#include "fscanner/common/utf8.h"
#include "fscanner/filetype/file_program.h"
#include "fscanner/filetype/filetypehelper.h"
#include "support/temporary_directory.h"

namespace fscanner {

inline StringList<wchar_t> wordList(std::initializer_list<const wchar_t*> words) {
    StringList<wchar_t> list;
    for (const wchar_t* word : words) list.insert(word);
    return list;
}

/// A directory of files, and programs that stand in for `file` and count their runs.
class FileTypeTest : public testing::Test {
protected:
    FileTypeTest() { fileProgram().mayKeepRunning = false; }
    ~FileTypeTest() override { fileProgram() = saved_; }

    std::string path(const std::string& name) const { return files_ / name; }
    void write(const std::string& name, const std::string& bytes = "text\n") {
        writeWholeFile(path(name), bytes);
    }
    /// From now on, `script` is run with the arguments of `file`.
    void standIn(const std::string& script) {
        const std::string program = tools_ / "file";
        writeWholeFile(program, "#!/bin/sh\necho run >> '" + (tools_ / "runs") + "'\n" + script);
        ::chmod(program.c_str(), 0700);
        std::filesystem::remove(tools_ / "runs");
        fileProgram().path = program;
    }
    void countRuns() { standIn("exec '" + saved_.path + "' \"$@\"\n"); }
    std::ptrdiff_t runs() const {
        const std::string log = readWholeFile(tools_ / "runs");
        return std::count(log.begin(), log.end(), '\n');
    }

    static bool hasChildren() { return ::waitpid(-1, nullptr, WNOHANG) >= 0 || errno != ECHILD; }

    using Method = bool (FileTypeChecker::*)(const wchar_t*, wchar_t**);
    /// The description of the file, or "unknown".
    std::string typeOfPath(const std::string& whole, Method method) {
        const std::wstring wide = toWide(whole);
        wchar_t* info = nullptr;
        if (!(checker_.*method)(wide.c_str(), &info)) return "unknown";
        const HeapText line(info);
        EXPECT_EQ(std::wstring(info).substr(0, wide.size() + 2), wide + L": ");
        return toMultibyte(info + wide.size() + 2);
    }
    std::string typeOf(const std::string& name, Method method = &FileTypeChecker::getFileTypeEx) {
        return typeOfPath(path(name), method);
    }

    const FileProgram saved_ = fileProgram();
    TemporaryDirectory files_;
    TemporaryDirectory tools_;
    FileTypeChecker checker_;
};

}  // namespace fscanner
