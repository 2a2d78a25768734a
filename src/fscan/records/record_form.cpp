#include "fscan/records/record_form.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "fscan/match/match.h"
#include "fscan/options/options.h"
#include "fscan/options/words.h"
#include "fscan/output/output.h"
#include "fscan/process/interruption.h"
#include "fscan/records/path_text.h"
#include "fscan/text/json_text.h"
#include "fscan/text/text.h"
#include "fscan/text/values.h"
#include "fscanner/fs/fs_fileinfo.h"

namespace fscan {

namespace {

class PathForm : public RecordForm {
public:
    PathForm(const Options& options, bool terminal)
        : path_(options, terminal), terminator_(options.nullTerminated ? '\0' : '\n') {}

    void write(const Match& match, Output& out) override {
        path_.write(match, out);
        if (match.isDirectory()) out.write("/");
        out.write({&terminator_, 1});
    }
    FactsNeeded needsFacts() const override { return path_.needsFacts(); }

private:
    PathText path_;
    char terminator_;
};

class LongForm : public PathForm {
public:
    LongForm(const Options& options, bool terminal)
        : PathForm(options, terminal), exact_(options.exactSizes) {}

    void write(const Match& match, Output& out) override {
        const FileFacts& file = match.facts;
        const std::string size = exact_ ? std::to_string(file.size) : sizeText(file.size);
        out.write(fmt::format("{} {:>{}} {:16} ", attributeText(file.attributes), size,
                              exact_ ? 12 : 5, file.known ? momentText(file.modified) : "-"));
        PathForm::write(match, out);
    }
    FactsNeeded needsFacts() const override { return FactsNeeded::examined; }

private:
    bool exact_;
};

// ---- For programs: JSON and CSV ----

Json attributeWords(unsigned attributes) {
    struct Word {
        unsigned bit;
        const char* text;
    };
    using namespace fscanner;
    static constexpr std::array<Word, 13> words = {{{FS_ATTR_REGULAR_FILE, "regular"},
                                                    {FS_ATTR_DIRECTORY, "directory"},
                                                    {FS_ATTR_SYMBOLIC_LINK, "link"},
                                                    {FS_ATTR_CHARACTER_DEVICE, "device"},
                                                    {FS_ATTR_OWNER_READ, "owner-read"},
                                                    {FS_ATTR_OWNER_WRITE, "owner-write"},
                                                    {FS_ATTR_OWNER_EXECUTE, "owner-execute"},
                                                    {FS_ATTR_GROUP_READ, "group-read"},
                                                    {FS_ATTR_GROUP_WRITE, "group-write"},
                                                    {FS_ATTR_GROUP_EXECUTE, "group-execute"},
                                                    {FS_ATTR_OTHERS_READ, "others-read"},
                                                    {FS_ATTR_OTHERS_WRITE, "others-write"},
                                                    {FS_ATTR_OTHERS_EXECUTE, "others-execute"}}};
    Json found = Json::array();
    for (const Word& word : words)
        if ((attributes & word.bit) != 0) found.push_back(word.text);
    return found;
}

Json jsonOf(std::monostate) {
    return {};
}
template <class Value>
Json jsonOf(const Value& value) {
    return Json(value);
}
Json jsonOf(AttributeBits attributes) {
    return {{"bits", attributes.bits}, {"words", attributeWords(attributes.bits)}};
}

using Fields = std::vector<const DetailField*>;

/// The fields of one of the forms, in order.
Fields fieldsOf(DetailField::Forms form, bool withType) {
    Fields chosen;
    const auto all = detailFields();
    for (const DetailField& field : all)
        if ((field.forms & form) != 0 && (withType || &field != &all.back()))
            chosen.push_back(&field);
    return chosen;
}

Json objectOf(const Match& match, const Fields& fields) {
    Json object;
    for (const DetailField* field : fields) {
        const FieldValue value = field->value(match, *match.details);
        if (const auto* text = std::get_if<std::string>(&value); text && field->foreign)
            putBytes(object, field->name, *text);
        else
            object[field->name] = std::visit([](const auto& held) { return jsonOf(held); }, value);
    }
    return object;
}

class JsonForm : public RecordForm {
public:
    JsonForm(bool array, bool withTypes)
        : fields_(fieldsOf(DetailField::json, withTypes)), array_(array) {}

    void begin(Output& out) override {
        if (array_) out.write("[");
    }
    void write(const Match& match, Output& out) override {
        if (array_) out.write(first_ ? "\n" : ",\n");
        first_ = false;
        out.writeForeign(jsonText(objectOf(match, fields_)));
        if (!array_) out.write("\n");
    }
    void end(Output& out) override {
        if (array_) out.write(first_ ? "]\n" : "\n]\n");
    }
    FactsNeeded needsFacts() const override { return FactsNeeded::detailed; }

private:
    Fields fields_;
    bool array_;
    bool first_ = true;
};

class CsvForm : public RecordForm {
public:
    explicit CsvForm(bool withTypes) : fields_(fieldsOf(DetailField::text, withTypes)) {}

    void begin(Output& out) override {
        for (const DetailField* field : fields_) {
            out.write(separator(field));
            out.write(field->name);
        }
        out.write("\r\n");
    }
    void write(const Match& match, Output& out) override {
        for (const DetailField* field : fields_) {
            out.write(separator(field));
            out.writeForeign(csvText(textOf(field->value(match, *match.details))));
        }
        out.write("\r\n");
    }
    FactsNeeded needsFacts() const override { return FactsNeeded::detailed; }

private:
    std::string_view separator(const DetailField* field) const {
        return field == fields_.front() ? "" : ",";
    }
    Fields fields_;
};

}  // namespace

std::unique_ptr<RecordForm> makeRecordForm(const Options& options, bool terminal) {
    switch (options.form) {
        case OutputForm::json:
        case OutputForm::jsonArray:
            return std::make_unique<JsonForm>(options.form == OutputForm::jsonArray,
                                              options.withTypes);
        case OutputForm::csv:
            return std::make_unique<CsvForm>(options.withTypes);
        case OutputForm::longer:
            return std::make_unique<LongForm>(options, terminal);
        default:
            return std::make_unique<PathForm>(options, terminal);
    }
}

namespace {

/// Plain text, and the field that follows it, if there is one.
struct Piece {
    std::string text;
    const DetailField* field = nullptr;
};

class TemplateForm : public RecordForm {
public:
    TemplateForm(std::vector<Piece> pieces, char terminator)
        : pieces_(std::move(pieces)), terminator_(terminator) {}

    void write(const Match& match, Output& out) override {
        for (const Piece& piece : pieces_) {
            out.write(piece.text);
            if (piece.field == nullptr) continue;
            const std::string value = textOf(piece.field->value(match, *match.details));
            piece.field->foreign ? out.writeForeign(value) : out.write(value);
        }
        out.write({&terminator_, 1});
    }
    FactsNeeded needsFacts() const override { return FactsNeeded::detailed; }

private:
    std::vector<Piece> pieces_;
    char terminator_;
};

/// Reads a template piece by piece.
class TemplateReader {
public:
    explicit TemplateReader(std::string_view text) : rest_(text) {}

    bool read() {
        while (!rest_.empty() && error_.empty()) readNext();
        if (!current_.empty()) pieces_.push_back({current_, nullptr});
        return error_.empty();
    }
    std::vector<Piece> pieces() { return std::move(pieces_); }
    const std::string& error() const { return error_; }

private:
    void readNext() {
        const char c = take();
        if (c == '\\' && !rest_.empty()) {
            current_ += escaped(take());
        } else if ((c == '{' || c == '}') && rest_.starts_with(c)) {
            current_ += take();
        } else if (c == '{') {
            readField();
        } else {
            current_ += c;
        }
    }
    void readField() {
        const std::size_t end = rest_.find('}');
        if (end == rest_.npos) {
            error_ = "a field has no '}'; a brace is written '{{'";
            return;
        }
        const std::string name(rest_.substr(0, end));
        rest_.remove_prefix(end + 1);
        const Fields fields = fieldsOf(DetailField::text, true);
        const auto field = std::find_if(fields.begin(), fields.end(),
                                        [&name](const DetailField* f) { return f->name == name; });
        if (field == fields.end()) {
            std::vector<std::string> known;
            for (const DetailField* f : fields) known.emplace_back(f->name);
            error_ = "no field {" + name + "}" + suggestionText(name, known);
            return;
        }
        pieces_.push_back({std::exchange(current_, {}), *field});
    }
    char take() {
        const char c = rest_.front();
        rest_.remove_prefix(1);
        return c;
    }
    static char escaped(char c) {
        if (c == 'n') return '\n';
        if (c == 't') return '\t';
        return c == '0' ? '\0' : c;
    }

    std::string_view rest_;
    std::string current_;
    std::vector<Piece> pieces_;
    std::string error_;
};

}  // namespace

std::unique_ptr<RecordForm> makeTemplateForm(const std::string& text, char terminator,
                                             std::string& error) {
    TemplateReader reader(text);
    if (!reader.read()) {
        error = reader.error();
        return nullptr;
    }
    return std::make_unique<TemplateForm>(reader.pieces(), terminator);
}

RecordPrinter::RecordPrinter(const Options& options, std::unique_ptr<RecordForm> form, Output& out)
    : MatchConsumer(options.limit),
      form_(std::move(form)),
      out_(out),
      countOnly_(options.countOnly) {
    if (!countOnly_) form_->begin(out_);
}

bool RecordPrinter::consume(const Match& match) {
    if (!countOnly_) {
        form_->write(match, out_);
        out_.endRecord();
    }
    return out_.error() == 0 && !Interruption::pending();
}

void RecordPrinter::finish() {
    if (countOnly_) {
        out_.write(fmt::format("{}\n", count()));
    } else {
        form_->end(out_);
    }
}

}  // namespace fscan
