#pragma once

#include <string>

#include "fscanner/export.h"

namespace fscanner {

/// Where the library and its plug-ins read their settings from: a key of a
/// section has a text or is absent. See docs/configuration.md.
class FSCANNER_EXPORT FsConfig {
public:
    virtual ~FsConfig();
    /// What was wrong at the last reading; 0 when nothing was.
    virtual int getError() const = 0;
    /// A decimal number: signs ("-" flips), digits, and one of "K" (times 1024) or
    /// "M" (times 1048576), in either case. It wraps at 32 bits: "4096M" is 0. Any
    /// other text gives the default.
    virtual int getInteger(const char* section, const char* key, int defaultValue) const = 0;
    /// An absent or empty value gives the default (null: empty).
    virtual std::string getString(const char* section, const char* key,
                                  const char* defaultValue) const = 0;
};

/// The settings of the configuration file. Each call reads the file again, so
/// that a change counts at once.
class FSCANNER_EXPORT FsConfig_TAV : public FsConfig {
public:
    int getError() const override;
    int getInteger(const char* section, const char* key, int defaultValue) const override;
    std::string getString(const char* section, const char* key,
                          const char* defaultValue) const override;
    /// What was wrong, with the file and the line; empty when nothing was.
    std::string getErrorText() const;
};

}  // namespace fscanner
