#pragma once

namespace fscan {

/// The page of --report: HTML with the words {NONCE} and {DATA} where a report has its own.
extern const char* const kReportPage;

}  // namespace fscan
