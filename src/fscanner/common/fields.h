#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

namespace fscanner {

/// A terminated wide text that owns its characters. Up to 127 characters are stored
/// in the object, longer texts on the heap. The length is stored too, so that a
/// view costs nothing.
class InlineText {
public:
    static constexpr std::size_t kInlineLength = 127;

    InlineText() { inline_[0] = L'\0'; }
    InlineText(const InlineText& other) : InlineText() { assign(other.view()); }
    InlineText& operator=(const InlineText& other) {
        if (this != &other) assign(other.view());
        return *this;
    }

    /// Stores a copy up to the first U+0000. `text` may point into this object.
    void assign(std::wstring_view text);
    void clear();

    /// Both results are valid until the next change.
    const wchar_t* c_str() const { return heap_ ? heap_.get() : inline_; }
    std::wstring_view view() const { return {c_str(), length_}; }
    std::size_t length() const { return length_; }
    bool empty() const { return length_ == 0; }

private:
    wchar_t inline_[kInlineLength + 1];
    std::unique_ptr<wchar_t[]> heap_;
    std::size_t length_ = 0;
};

/// Type codes of fields. Table headers store them, so the values are fixed.
enum FieldType : unsigned {
    FIELD_INT8 = 1,
    FIELD_INT16 = 2,
    FIELD_INT32 = 3,
    FIELD_INT64 = 4,
    FIELD_TEXT = 5,
};

/// One named, typed value slot. Owns its name. One thread at a time.
class Field {
public:
    Field(const wchar_t* name, unsigned type);
    Field(const Field& other);

    /// Does nothing. Part of the prescribed interface, first in the virtual table.
    virtual void dummy() = 0;
    virtual ~Field();
    /// The field's share of `Fields::size()` in bytes; not its size on disk.
    virtual unsigned size() const = 0;

    /// Replaces the name with a copy. False for null, which changes nothing, and
    /// when memory runs out, which removes the old name. (The constructors and the
    /// assignment throw `std::bad_alloc` instead.)
    bool setName(const wchar_t* name);
    /// The name, owned by the field; null when it has none.
    const wchar_t* name() const { return name_.get(); }
    unsigned type() const { return type_; }
    /// True until a value is assigned.
    bool isNull() const { return null_; }

    /// How often a named field of this process got a different name. A pointer that
    /// was looked up by name is still right while this and `Fields::revision()` keep
    /// their values.
    static std::uint64_t renames();

protected:
    /// Copies the null flag, and the name unless the other field has none.
    Field& operator=(const Field& other);
    void setNotNull() { null_ = false; }

private:
    void copyName(const wchar_t* name);

    std::unique_ptr<wchar_t[]> name_;
    unsigned type_;
    bool null_ = true;
};

/// An unsigned number; 0 when never set.
template <typename T, FieldType CODE, unsigned SIZE>
class IntegerField final : public Field {
public:
    static constexpr FieldType kType = CODE;
    using Value = T;

    IntegerField() : Field(nullptr, CODE) {}
    explicit IntegerField(const wchar_t* name) : Field(name, CODE) {}
    IntegerField(const IntegerField& other) = default;
    IntegerField& operator=(const IntegerField& other) = default;

    void dummy() override {}
    unsigned size() const override { return SIZE; }

    void value(T x) {
        value_ = x;
        setNotNull();
    }
    T value() const { return value_; }

private:
    T value_ = 0;
};

using Int8Field = IntegerField<unsigned char, FIELD_INT8, 5>;
using Int16Field = IntegerField<unsigned short, FIELD_INT16, 6>;
using Int32Field = IntegerField<unsigned, FIELD_INT32, 8>;
using Int64Field = IntegerField<unsigned long long, FIELD_INT64, 12>;

/// A wide string, or null.
class TextField final : public Field {
public:
    static constexpr FieldType kType = FIELD_TEXT;

    TextField() : Field(nullptr, FIELD_TEXT) {}
    explicit TextField(const wchar_t* name) : Field(name, FIELD_TEXT) {}
    TextField(const TextField& other) = default;
    TextField& operator=(const TextField& other) = default;

    void dummy() override {}
    unsigned size() const override { return 8 + 4 * static_cast<unsigned>(text_.length()); }

    /// Stores a copy. Null makes `value()` null but does not change `isNull()`. `text`
    /// may point into the field's own value. A field without a name ignores the call.
    void value(const wchar_t* text);
    /// The same for a text without a terminator. The text ends at its first U+0000.
    void assign(std::wstring_view text);
    /// The value, owned by the field and valid until the next assignment; may be null.
    const wchar_t* value() const { return absent_ ? nullptr : text_.c_str(); }
    /// The value as a view, empty when it is null; valid as long as `value()`. The view
    /// is followed by a terminator.
    std::wstring_view view() const { return text_.view(); }

private:
    InlineText text_;
    bool absent_ = false;
};

/// The field cast to class `F`; null for null or a field of another class.
template <typename F>
F* fieldAs(Field* field) {
    return field && field->type() == F::kType ? static_cast<F*>(field) : nullptr;
}

/// An ordered list of owned fields: a table's schema, a record's buffer, or the
/// variables of a criteria. One thread at a time.
class Fields {
public:
    Fields() = default;
    Fields(const Fields& other);
    Fields(Fields&& other) noexcept;
    Fields& operator=(const Fields& other);
    Fields& operator=(Fields&& other) noexcept;
    ~Fields() = default;

    /// Append a copy. False for a field without a name.
    bool add(const Int8Field& field);
    bool add(const Int16Field& field);
    bool add(const Int32Field& field);
    bool add(const Int64Field& field);
    bool add(const TextField& field);
    /// Appends a field without a value. False for null or an invalid type code.
    bool add(const wchar_t* name, unsigned typeCode);

    unsigned count() const { return static_cast<unsigned>(fields_.size()); }
    /// The i-th field, owned by the list; `i` must be below `count()`.
    Field* at(unsigned i) const { return fields_[i].get(); }
    /// The first field of exactly this name; null if there is none.
    Field* name(const wchar_t* name) const;
    Field* name(std::wstring_view name) const;
    /// The i-th field cast to class `F`; null when `i` is out of range or the field is of
    /// another class. Typed access by index goes through here.
    template <typename F>
    F* as(unsigned i) const {
        return i < count() ? fieldAs<F>(at(i)) : nullptr;
    }

    /// Sum of the fields' `size()`.
    unsigned size() const;
    void removeAll();

    /// A process-wide unique number of this list's present set of fields. While it
    /// keeps its value, pointers to the fields stay valid. 0 for a list that was never
    /// filled.
    std::uint64_t revision() const { return revision_; }

private:
    template <typename F>
    bool addCopy(const F& field);
    void append(std::unique_ptr<Field> field);
    void swap(Fields& other) noexcept;

    std::vector<std::unique_ptr<Field>> fields_;
    std::uint64_t revision_ = 0;
};

}  // namespace fscanner
