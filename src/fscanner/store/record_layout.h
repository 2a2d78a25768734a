#pragma once

#include <vector>

#include "fscanner/store/fields.h"

namespace fscanner {

/// How the records of one table are laid out: what both codecs need to know.
struct RecordLayout {
    /// The bitmap of null flags is built for at most so many fields.
    static constexpr unsigned MAX_FIELDS = 256;

    RecordLayout() = default;
    RecordLayout(const Fields& schema, bool compactForm) : compact(compactForm) {
        for (unsigned i = 0; i < schema.count(); ++i) {
            types.push_back(static_cast<FieldType>(schema.at(i)->type()));
        }
        bitmapLength = (schema.count() + 7) / 8;
    }

    unsigned count() const { return static_cast<unsigned>(types.size()); }

    std::vector<FieldType> types;
    unsigned bitmapLength = 0;
    bool compact = false;
};

}  // namespace fscanner
