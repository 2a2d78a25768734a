#pragma once

#include <optional>
#include <string>
#include <vector>

#include "expr/sample_record.h"

namespace fscanner {

/// A value as the judge sees it.
struct Verdict {
    char type = NUMERIC;
    long long number = 0;
    std::wstring text;
    bool operator==(const Verdict&) const = default;
};

/// The slow and obvious evaluation of a tree: it recurses, copies every value,
/// and looks every name up. It judges the fast one.
class Judge {
public:
    /// `reading`: as in the evaluation that accompanies the reading of a criteria.
    Judge(const SampleRecord& record, bool caseSensitive, bool reading)
        : record_(record), caseSensitive_(caseSensitive), reading_(reading) {}

    /// Nothing when the tree has no value for the record.
    std::optional<Verdict> evaluate(const TreeNode* root);
    /// What "join" was called with.
    const std::vector<std::wstring>& calls() const { return calls_; }

private:
    struct Failure {};
    Verdict value(const TreeNode* node);
    Verdict leaf(const Token& token);
    Verdict field(const Field* field);
    Verdict call(const Token& token, const Verdict& first, const Verdict& second);
    Verdict binary(const Token& token, const Verdict& left, const Verdict& right);
    bool relation(long long code, const Verdict& left, const Verdict& right);
    bool textsEqual(const std::wstring& left, const std::wstring& right);
    long long arithmetic(long long code, long long left, long long right);

    const SampleRecord& record_;
    bool caseSensitive_;
    bool reading_;
    std::vector<std::wstring> calls_;
};

}  // namespace fscanner
