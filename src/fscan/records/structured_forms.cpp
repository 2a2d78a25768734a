// The forms for programs: JSON and CSV.

#include <array>

#include "fscan/match/file_details.h"
#include "fscan/output/output.h"
#include "fscan/records/record_form.h"
#include "fscan/text/json_text.h"
#include "fscan/text/values.h"
#include "fscanner/fs/fs_fileinfo.h"

namespace fscan {

namespace {

Json attributeWords(unsigned attributes) {
    struct Word {
        unsigned bit;
        const char* text;
    };
    using namespace fscanner;
    static constexpr std::array<Word, 12> words = {{{FS_ATTR_REGULAR_FILE, "regular"},
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

Json jsonOf(const Match& match, bool withType) {
    const FileDetails& file = *match.details;
    Json object;
    putBytes(object, "path", std::string(match.path));
    putBytes(object, "name", std::string(match.name()));
    putBytes(object, "directory", std::string(match.directory()));
    object["exists"] = file.examined ? Json(true) : Json();
    object["kind"] = kindText(file.attributes);
    object["size"] = file.size;
    object["attributes"] = {{"bits", file.attributes}, {"words", attributeWords(file.attributes)}};
    const auto whenExamined = [&file](const auto& value) {
        return file.examined ? Json(value) : Json();
    };
    object["modified"] = whenExamined(utcText(file.modified));
    object["accessed"] = whenExamined(utcText(file.accessed));
    object["changed"] = whenExamined(utcText(file.changed));
    object["user"] = whenExamined(file.user);
    object["group"] = whenExamined(file.group);
    object["inode"] = whenExamined(file.inode);
    object["device"] = whenExamined(file.device);
    object["links"] = whenExamined(file.links);
    if (withType) {
        const std::string type = typeText(match, file);
        object["type"] = type.empty() ? Json() : Json(type);
    }
    return object;
}

class JsonForm : public RecordForm {
public:
    JsonForm(bool array, bool withTypes) : array_(array), withTypes_(withTypes) {}

    void begin(Output& out) override {
        if (array_) out.write("[");
    }
    void write(const Match& match, Output& out) override {
        if (array_) out.write(first_ ? "\n" : ",\n");
        first_ = false;
        out.writeForeign(jsonText(jsonOf(match, withTypes_)));
        if (!array_) out.write("\n");
    }
    void end(Output& out) override {
        if (array_) out.write(first_ ? "]\n" : "\n]\n");
    }
    FactsNeeded needsFacts() const override { return FactsNeeded::detailed; }

private:
    bool array_;
    bool withTypes_;
    bool first_ = true;
};

class CsvForm : public RecordForm {
public:
    explicit CsvForm(bool withTypes)
        : fields_(detailFields().first(detailFields().size() - (withTypes ? 0 : 1))) {}

    void begin(Output& out) override {
        for (const DetailField& field : fields_) {
            out.write(separator(field));
            out.write(field.name);
        }
        out.write("\r\n");
    }
    void write(const Match& match, Output& out) override {
        const FileDetails& file = *match.details;
        for (const DetailField& field : fields_) {
            out.write(separator(field));
            out.writeForeign(quoted(field.text(match, file)));
        }
        out.write("\r\n");
    }
    FactsNeeded needsFacts() const override { return FactsNeeded::detailed; }

private:
    std::string_view separator(const DetailField& field) const {
        return &field == fields_.data() ? "" : ",";
    }
    static std::string quoted(const std::string& text) {
        if (text.find_first_of(",\"\r\n") == text.npos) return text;
        std::string result = "\"";
        for (const char c : text) result += c == '"' ? "\"\"" : std::string(1, c);
        return result + '"';
    }

    std::span<const DetailField> fields_;
};

}  // namespace

std::unique_ptr<RecordForm> makeJsonForm(bool array, bool withTypes) {
    return std::make_unique<JsonForm>(array, withTypes);
}

std::unique_ptr<RecordForm> makeCsvForm(bool withTypes) {
    return std::make_unique<CsvForm>(withTypes);
}

}  // namespace fscan
