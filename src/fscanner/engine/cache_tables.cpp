#include "fscanner/engine/cache_tables.h"

#include <algorithm>
#include <cwchar>

#include "fscanner/common/debug.h"
#include "fscanner/common/wildcard.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/store/table_replacement.h"

namespace fscanner {

const wchar_t* field_ID = L"ID";

namespace {

static_assert(file_fields::kStored[FILES_FILENAME].name == file_fields::kName.name &&
              file_fields::kStored[FILES_ATTR].name == file_fields::kAttributes.name &&
              file_fields::kStored[FILES_SIZE].name == file_fields::kSize.name &&
              file_fields::kStored[FILES_PATHID].name == file_fields::kDirectoryId.name);

bool isField(const Field& field, const FieldKind& expected) {
    return field.type() == expected.type && std::wcscmp(field.name(), expected.name) == 0;
}

}  // namespace

// ---- Facts about a file -----------------------------------------------------

std::optional<FileFacts> FileFacts::of(const struct stat& info) {
    const FsFileInfo file;
    if (!file.updateFrom(info)) return std::nullopt;
    return FileFacts{file.getSize(), file.getAttr()};
}

FileFacts FileFacts::of(const RecordSet& file) {
    return {file.getFieldAsInt64(FILES_SIZE), file.getFieldAsInt32(FILES_ATTR)};
}

void FileFacts::writeTo(RecordSet& file) const {
    file.setFieldAsInt64(FILES_SIZE, size);
    file.setFieldAsInt32(FILES_ATTR, attributes);
}

// ---- The two tables ---------------------------------------------------------

const TableKind& TableKind::files() {
    static const TableKind kind{file_fields::kStored,
                                {file_fields::kName.name, file_fields::kDirectoryId.name}};
    return kind;
}

const TableKind& TableKind::directories() {
    static const TableKind kind{{{{field_ID, FIELD_INT32},
                                  {L"PATHNAME", FIELD_TEXT},
                                  {L"PARENTID", FIELD_INT32},
                                  {L"CREATIONTIME", FIELD_INT32}}},
                                {L"PATHNAME", field_ID, L"PARENTID"}};
    return kind;
}

bool isIndexedFileField(std::wstring_view name) {
    const auto& indexed = TableKind::files().indexed;
    return std::find(indexed.begin(), indexed.end(), name) != indexed.end();
}

bool TableKind::addTo(FS_Table& table) const {
    return std::all_of(fields.begin(), fields.end(), [&table](const FieldKind& field) {
        return table.addField(field.name, field.type);
    });
}

namespace {

std::wstring indexName(const std::wstring& table, const wchar_t* field) {
    return table + L"_" + field;
}

}  // namespace

void TableKind::addIndexes(FS_Table& table, const std::wstring& name) const {
    for (const wchar_t* field : indexed) table.addHashIndex(indexName(name, field).c_str(), field);
}

std::vector<std::wstring> TableKind::fileNames(const std::wstring& name) const {
    std::vector<std::wstring> indexes;
    for (const wchar_t* field : indexed) indexes.push_back(indexName(name, field));
    return TableReplacement::fileNames(name, indexes);
}

// A table of another schema, which a stranger or a damaged header left, is no table
// of this cache; one that lost an index would be searched in vain.
bool TableKind::fits(FS_Table& table) const {
    const Fields& schema = table.schema();
    if (schema.count() != fields.size()) return false;
    for (unsigned i = 0; i < fields.size(); ++i)
        if (!isField(*schema.at(i), fields[i])) return false;
    return std::all_of(indexed.begin(), indexed.end(), [&table](const wchar_t* field) {
        return table.searchHashIndexForFieldName(field, false) != nullptr;
    });
}

std::unique_ptr<FS_Table> TableKind::open(const std::wstring& name, const TablePlace& place) const {
    debug("FS_Cache::openTable - entering... [%ls]\n", name.c_str());
    auto table =
        std::make_unique<FS_Table>(name.c_str(), place.directory.c_str(), place.compressed);
    table->keepSums(place.sums);
    if (!table->open() || !fits(*table)) table.reset();
    debug("FS_Cache::openTable - exit. [retValue is %d]\n", table ? 1 : 0);
    return table;
}

std::unique_ptr<FS_Table> TableKind::create(const std::wstring& name, const TablePlace& place,
                                            const char* step) const {
    debug("FS_Cache::%s - entering...\n", step);
    auto table =
        std::make_unique<FS_Table>(name.c_str(), place.directory.c_str(), place.compressed);
    table->keepSums(place.sums);
    if (addTo(*table) && table->create()) {
        addIndexes(*table, name);
    } else {
        table.reset();
    }
    debug("FS_Cache::%s - exit. [retValue is %d]\n", step, table ? 1 : 0);
    return table;
}

// ---- Lookups ----------------------------------------------------------------

CacheLookups::CacheLookups() {
    for (const wchar_t* name : {L"id", L"pathid", L"parentid"}) variables_.add(name, FIELD_INT32);
    variables_.add(L"pathname", FIELD_TEXT);
    id_ = fieldAs<Int32Field>(variables_.at(0));
    pathId_ = fieldAs<Int32Field>(variables_.at(1));
    parentId_ = fieldAs<Int32Field>(variables_.at(2));
    pathName_ = fieldAs<TextField>(variables_.at(3));

    for (const wchar_t* name : {L"ID", L"PATHID", L"PARENTID"}) fields_.add(name, FIELD_INT32);
    fields_.add(L"PATHNAME", FIELD_TEXT);

    valid_ = true;
    const auto make = [this](const wchar_t* criteria) {
        auto evaluator = std::make_unique<CriteriaEvaluator>(criteria);
        valid_ = evaluator->setVariables(&variables_) && evaluator->setFields(&fields_) &&
                 evaluator->compile() && valid_;
        return evaluator;
    };
    ceByPathId_ = make(L"[PATHID]==pathid");
    ceByParentId_ = make(L"[PARENTID]==parentid");
    ceById_ = make(L"[ID]==id");
    ceByPathName_ = make(L"[PATHNAME]==pathname");
    ceAnyPathName_ = make(L"1==1");
}

bool CacheLookups::lookUp(RecordSet& records, CriteriaEvaluator& evaluator, const wchar_t* field,
                          Int32Field& variable, unsigned value) {
    hashInfo_.setType(NUMERIC);
    hashInfo_.setNumericValue(value);
    hashInfo_.setNValueString(field);
    variable.value(value);
    evaluator.setHashInfo(hashInfo_);
    records.setCriteria(&evaluator, true);
    return records.moveFirst();
}

bool CacheLookups::byId(RecordSet& directories, unsigned id) {
    return lookUp(directories, *ceById_, L"ID", *id_, id);
}

bool CacheLookups::byParentId(RecordSet& directories, unsigned id) {
    return lookUp(directories, *ceByParentId_, L"PARENTID", *parentId_, id);
}

bool CacheLookups::byPathId(RecordSet& files, unsigned id) {
    return lookUp(files, *ceByPathId_, L"PATHID", *pathId_, id);
}

bool CacheLookups::byPathName(RecordSet& directories, const std::wstring& name, bool caseFlag) {
    // A name that holds "*" or "?" would be compared as a pattern, or not at all.
    CriteriaEvaluator& evaluator = checkWildCard(name.c_str()) ? *ceAnyPathName_ : *ceByPathName_;
    hashInfo_.setType(STRING);
    hashInfo_.setStringValue(name.c_str());
    hashInfo_.setNValueString(L"PATHNAME");
    pathName_->value(name.c_str());
    evaluator.setHashInfo(hashInfo_);
    directories.setCriteria(&evaluator, caseFlag);
    return directories.moveFirst();
}

}  // namespace fscanner
