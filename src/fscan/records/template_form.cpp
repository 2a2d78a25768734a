// The form of --format: "{size} {path}".

#include <algorithm>
#include <utility>
#include <vector>

#include "fscan/match/file_details.h"
#include "fscan/options/words.h"
#include "fscan/output/output.h"
#include "fscan/records/record_form.h"

namespace fscan {

namespace {

/// A piece of plain text and the field behind it, if there is one.
struct Piece {
    std::string text;
    const DetailField* field = nullptr;
};

class TemplateForm : public RecordForm {
public:
    TemplateForm(std::vector<Piece> pieces, char terminator)
        : pieces_(std::move(pieces)), terminator_(terminator) {}

    void write(const Match& match, Output& out) override {
        const FileDetails& file = *match.details;
        for (const Piece& piece : pieces_) {
            out.write(piece.text);
            if (piece.field == nullptr) continue;
            const std::string value = piece.field->text(match, file);
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
        const auto fields = detailFields();
        const auto field = std::find_if(fields.begin(), fields.end(),
                                        [&name](const DetailField& f) { return f.name == name; });
        if (field == fields.end()) {
            std::vector<std::string> known;
            for (const DetailField& f : fields) known.emplace_back(f.name);
            error_ = "no field {" + name + "}" + suggestionText(name, known);
            return;
        }
        pieces_.push_back({std::exchange(current_, {}), &*field});
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

}  // namespace fscan
