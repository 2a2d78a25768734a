#pragma once

#include <memory>
#include <string>

#include "fscanner/export.h"

namespace fscanner {

/// The settings of the library and its plug-ins. A setting is a text, named by a section and
/// a key; it may be absent. See docs/configuration.md.
///
/// `section` and `key` must not be null. No function throws.
class FSCANNER_EXPORT FsConfig {
public:
    virtual ~FsConfig();
    /// The error of the last reading: 0 none, 1 a malformed line, 2 an unreadable file.
    virtual int getError() const = 0;
    /// The setting as a number. Its text is any number of signs (each "-" flips the sign),
    /// decimal digits, and optionally "K" (times 1024) or "M" (times 1048576), in either case.
    /// The number wraps at 32 bits: "4096M" is 0. Any other text gives the default, and so does
    /// an absent setting.
    virtual int getInteger(const char* section, const char* key, int defaultValue) const = 0;
    /// The setting as a text. An absent or empty setting gives the default, and so does a
    /// failure, such as a lack of memory. A null default stands for the empty text.
    virtual std::string getString(const char* section, const char* key,
                                  const char* defaultValue) const = 0;
};

/// The settings of the configuration files, read again by each `getString` and `getInteger`,
/// so that a change takes effect at once. Any thread; errors are kept per thread.
class FSCANNER_EXPORT FsConfig_TAV : public FsConfig {
public:
    /// The first error met by this thread's last reading; 0 for none.
    int getError() const override;
    int getInteger(const char* section, const char* key, int defaultValue) const override;
    std::string getString(const char* section, const char* key,
                          const char* defaultValue) const override;
    /// The same error as "FILE:LINE: message", or "FILE: message"; empty for none.
    std::string getErrorText() const;
};

/// The settings as they were when the constructor read the configuration files. Several
/// threads may use one object.
class FSCANNER_EXPORT FsSettings : public FsConfig {
public:
    /// Without memory the object has no settings, and reports error 2.
    FsSettings();
    FsSettings(const FsSettings&) = delete;
    FsSettings& operator=(const FsSettings&) = delete;
    ~FsSettings() override;
    /// The first error met when the files were read; 0 for none.
    int getError() const override;
    int getInteger(const char* section, const char* key, int defaultValue) const override;
    std::string getString(const char* section, const char* key,
                          const char* defaultValue) const override;
    /// The same error as "FILE:LINE: message", or "FILE: message"; empty for none.
    std::string getErrorText() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace fscanner
