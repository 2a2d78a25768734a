#include "fscanner/common/fields.h"

#include <atomic>
#include <cwchar>
#include <new>

namespace fscanner {

namespace {

// Relaxed order is enough: the numbers only have to differ, they publish no other data.
std::atomic<std::uint64_t> renameCount{0};
std::atomic<std::uint64_t> revisionCount{0};

std::uint64_t nextRevision() {
    return revisionCount.fetch_add(1, std::memory_order_relaxed) + 1;
}

/// An empty field of the class for a type code; null for an invalid code.
std::unique_ptr<Field> makeField(unsigned typeCode, const wchar_t* name) {
    switch (typeCode) {
        case FIELD_INT8:
            return std::make_unique<Int8Field>(name);
        case FIELD_INT16:
            return std::make_unique<Int16Field>(name);
        case FIELD_INT32:
            return std::make_unique<Int32Field>(name);
        case FIELD_INT64:
            return std::make_unique<Int64Field>(name);
        case FIELD_TEXT:
            return std::make_unique<TextField>(name);
        default:
            return nullptr;
    }
}

template <typename F>
std::unique_ptr<Field> copyAs(const Field& field) {
    return std::make_unique<F>(static_cast<const F&>(field));
}

std::unique_ptr<Field> copyField(const Field& field) {
    switch (field.type()) {
        case FIELD_INT8:
            return copyAs<Int8Field>(field);
        case FIELD_INT16:
            return copyAs<Int16Field>(field);
        case FIELD_INT32:
            return copyAs<Int32Field>(field);
        case FIELD_INT64:
            return copyAs<Int64Field>(field);
        case FIELD_TEXT:
            return copyAs<TextField>(field);
        default:
            return nullptr;
    }
}

}  // namespace

Field::Field(const wchar_t* name, unsigned type) : type_(type) {
    copyName(name);
}

Field::Field(const Field& other) : type_(other.type_), null_(other.null_) {
    copyName(other.name());
}

Field::~Field() = default;

Field& Field::operator=(const Field& other) {
    if (this == &other) return *this;
    copyName(other.name());
    null_ = other.null_;
    return *this;
}

bool Field::setName(const wchar_t* name) {
    if (!name) return false;
    const std::size_t room = std::wcslen(name) + 1;
    std::unique_ptr<wchar_t[]> copy(new (std::nothrow) wchar_t[room]);
    if (copy) std::wmemcpy(copy.get(), name, room);
    const bool renamed = name_ && (!copy || std::wcscmp(name_.get(), copy.get()) != 0);
    if (renamed) renameCount.fetch_add(1, std::memory_order_relaxed);
    name_ = std::move(copy);
    return name_ != nullptr;
}

// Throws rather than leave a field without its name: that would be a different schema.
void Field::copyName(const wchar_t* name) {
    if (name && !setName(name)) throw std::bad_alloc();
}

std::uint64_t Field::renames() {
    return renameCount.load(std::memory_order_relaxed);
}

void TextField::value(const wchar_t* text) {
    if (text) return assign({text, std::wcslen(text)});
    // Deliberate: a field without a name takes no value.
    if (!name()) return;
    text_.clear();
    absent_ = true;
}

void TextField::assign(std::wstring_view text) {
    if (!name()) return;
    text_.assign(text);
    absent_ = false;
    setNotNull();
}

Fields::Fields(const Fields& other) {
    fields_.reserve(other.fields_.size());
    for (const auto& field : other.fields_) {
        if (auto copy = copyField(*field)) append(std::move(copy));
    }
}

Fields::Fields(Fields&& other) noexcept {
    swap(other);
}

/// Copies first, because the source may be this list.
Fields& Fields::operator=(const Fields& other) {
    Fields copy(other);
    swap(copy);
    return *this;
}

Fields& Fields::operator=(Fields&& other) noexcept {
    Fields taken(std::move(other));
    swap(taken);
    return *this;
}

void Fields::swap(Fields& other) noexcept {
    fields_.swap(other.fields_);
    std::swap(revision_, other.revision_);
}

void Fields::append(std::unique_ptr<Field> field) {
    fields_.push_back(std::move(field));
    revision_ = nextRevision();
}

template <typename F>
bool Fields::addCopy(const F& field) {
    if (!field.name()) return false;
    append(std::make_unique<F>(field));
    return true;
}

bool Fields::add(const Int8Field& field) {
    return addCopy(field);
}
bool Fields::add(const Int16Field& field) {
    return addCopy(field);
}
bool Fields::add(const Int32Field& field) {
    return addCopy(field);
}
bool Fields::add(const Int64Field& field) {
    return addCopy(field);
}
bool Fields::add(const TextField& field) {
    return addCopy(field);
}

bool Fields::add(const wchar_t* name, unsigned typeCode) {
    if (!name) return false;
    auto field = makeField(typeCode, name);
    if (!field || !field->name()) return false;
    append(std::move(field));
    return true;
}

Field* Fields::name(const wchar_t* name) const {
    return name ? this->name(std::wstring_view(name)) : nullptr;
}

Field* Fields::name(std::wstring_view name) const {
    for (const auto& field : fields_) {
        if (field->name() && name == field->name()) return field.get();
    }
    return nullptr;
}

unsigned Fields::size() const {
    unsigned total = 0;
    for (const auto& field : fields_) total += field->size();
    return total;
}

void Fields::removeAll() {
    fields_.clear();
    revision_ = nextRevision();
}

// ---- Short texts ------------------------------------------------------------

/// Releases the old block last, because `text` may point into it.
void InlineText::assign(std::wstring_view text) {
    text = text.substr(0, text.find(L'\0'));
    std::unique_ptr<wchar_t[]> block;
    if (text.size() > kInlineLength) {
        block = std::make_unique_for_overwrite<wchar_t[]>(text.size() + 1);
    }
    wchar_t* target = block ? block.get() : inline_;
    if (!text.empty()) std::wmemmove(target, text.data(), text.size());
    target[text.size()] = L'\0';
    length_ = text.size();
    heap_ = std::move(block);
}

void InlineText::clear() {
    heap_.reset();
    inline_[0] = L'\0';
    length_ = 0;
}

}  // namespace fscanner
