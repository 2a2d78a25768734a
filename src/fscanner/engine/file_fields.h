#pragma once

#include <array>

#include "fscanner/common/fields.h"

namespace fscanner {

/// A field of a table, or of the records that a criteria reads.
struct FieldKind {
    const wchar_t* name;
    FieldType type;
};

/// The fields of a file: their names in a criteria and in the cache, and their types.
namespace file_fields {

inline constexpr FieldKind kName{L"FILENAME", FIELD_TEXT};
inline constexpr FieldKind kShortName{L"SHORTFILENAME", FIELD_TEXT};
inline constexpr FieldKind kSize{L"SIZE", FIELD_INT64};
inline constexpr FieldKind kAttributes{L"ATTR", FIELD_INT32};
inline constexpr FieldKind kDirectoryId{L"PATHID", FIELD_INT32};

/// Those that the criteria of a search may read, and their positions.
inline constexpr std::array kOfCriteria{kName, kShortName, kSize, kAttributes, kDirectoryId};
enum CriteriaField : unsigned { NAME, SHORT_NAME, SIZE, ATTRIBUTES, DIRECTORY_ID };

/// Those that the cache stores, in the order of its table (`FilesField`).
inline constexpr std::array kStored{kName, kAttributes, kSize, kDirectoryId};

/// Empty fields of `kOfCriteria`.
inline Fields forCriteria() {
    Fields fields;
    for (const FieldKind& kind : kOfCriteria) fields.add(kind.name, kind.type);
    return fields;
}

}  // namespace file_fields

}  // namespace fscanner
