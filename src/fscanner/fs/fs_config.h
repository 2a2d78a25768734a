#pragma once

#include <memory>
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
    /// An absent or empty value gives the default (null: empty), and so does a failure,
    /// such as a lack of memory.
    virtual std::string getString(const char* section, const char* key,
                                  const char* defaultValue) const = 0;
};

/// The settings of the configuration file. Each call reads the file again, so
/// that a change counts at once. Several threads may read; each is told of the errors of
/// its own last reading.
class FSCANNER_EXPORT FsConfig_TAV : public FsConfig {
public:
    int getError() const override;
    int getInteger(const char* section, const char* key, int defaultValue) const override;
    std::string getString(const char* section, const char* key,
                          const char* defaultValue) const override;
    /// What was wrong, with the file and the line; empty when nothing was.
    std::string getErrorText() const;
};

/// The settings of one moment: the configuration files are read once, by the constructor.
/// One thread may read it while others do.
class FSCANNER_EXPORT FsSettings : public FsConfig {
public:
    FsSettings();
    FsSettings(const FsSettings&) = delete;
    FsSettings& operator=(const FsSettings&) = delete;
    ~FsSettings() override;
    /// What was wrong when the files were read; 0 when nothing was.
    int getError() const override;
    int getInteger(const char* section, const char* key, int defaultValue) const override;
    std::string getString(const char* section, const char* key,
                          const char* defaultValue) const override;
    /// The first thing that was wrong, with the file and the line; empty when nothing was.
    std::string getErrorText() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace fscanner
