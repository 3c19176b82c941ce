#include "json_writer.h"

#include <algorithm>

namespace Zarvo::Host {
namespace {

using Json = nlohmann::json;
constexpr size_t STRING_PIECE = 64 * 1024;

bool Inside(const Json::json_pointer &at, const Json::json_pointer &outer) {
    const std::string prefix = outer.to_string() + "/";
    return at.to_string().compare(0, prefix.size(), prefix) == 0;
}

}  // namespace

JsonWriter::JsonWriter(nlohmann::detail::output_adapter_t<char> output, bool pretty, unsigned indentStep)
    : output_(output),
      serializer_(output, ' ', Json::error_handler_t::replace),
      pretty_(pretty),
      indentStep_(indentStep) {}

void JsonWriter::Document(const StreamedDocument &document) {
    indent_ = 0;
    Write(document.document, Json::json_pointer(), document.streamed);
}

void JsonWriter::Write(const Json &value, const Json::json_pointer &at,
                       const std::vector<StreamedValue> &streamed) {
    for (const StreamedValue &part : streamed) {
        if (part.at == at) {
            part.write(*this);
            return;
        }
    }
    const bool holdsStreamed = std::any_of(streamed.begin(), streamed.end(),
                                           [&at](const StreamedValue &part) { return Inside(part.at, at); });
    if (!holdsStreamed || !value.is_structured() || value.empty()) {
        Value(value);
        return;
    }
    // As the serializer lays out a container, with each member written here so that a streamed one
    // inside it can be reached.
    const bool object = value.is_object();
    const unsigned outer = indent_;
    output_->write_character(object ? '{' : '[');
    if (pretty_) {
        output_->write_character('\n');
    }
    indent_ = outer + indentStep_;
    size_t index = 0;
    for (auto it = value.begin(); it != value.end(); ++it, ++index) {
        if (index > 0) {
            output_->write_characters(pretty_ ? ",\n" : ",", pretty_ ? 2 : 1);
        }
        if (pretty_) {
            Indent(indent_);
        }
        if (object) {
            serializer_.dump(Json(it.key()), false, false, 0);
            output_->write_characters(pretty_ ? ": " : ":", pretty_ ? 2 : 1);
            Write(*it, at / it.key(), streamed);
        } else {
            Write(*it, at / index, streamed);
        }
    }
    indent_ = outer;
    if (pretty_) {
        output_->write_character('\n');
        Indent(indent_);
    }
    output_->write_character(object ? '}' : ']');
}

void JsonWriter::Value(const Json &value) {
    serializer_.dump(value, pretty_, false, indentStep_, indent_);
}

void JsonWriter::String(const std::string &text) {
    std::string piece;
    nlohmann::detail::serializer<Json> escaper(nlohmann::detail::output_adapter<char>(piece), ' ',
                                               Json::error_handler_t::replace);
    output_->write_character('"');
    for (size_t start = 0; start < text.size();) {
        // Pieces end before an ASCII byte, where no UTF-8 sequence (or fault in one) is cut: each
        // is escaped as it would be within the whole.
        size_t end = std::min(text.size(), start + STRING_PIECE);
        while (end < text.size() && static_cast<unsigned char>(text[end]) >= 0x80) {
            ++end;
        }
        piece.clear();
        escaper.dump(Json(text.substr(start, end - start)), false, false, 0);
        output_->write_characters(piece.data() + 1, piece.size() - 2);
        start = end;
    }
    output_->write_character('"');
}

void JsonWriter::BeginArray() {
    arrayEmpty_ = true;
}

void JsonWriter::Element(const Json &element) {
    output_->write_character(arrayEmpty_ ? '[' : ',');
    arrayEmpty_ = false;
    if (pretty_) {
        output_->write_character('\n');
        Indent(indent_ + indentStep_);
    }
    serializer_.dump(element, pretty_, false, indentStep_, indent_ + indentStep_);
}

void JsonWriter::EndArray() {
    if (arrayEmpty_) {
        output_->write_characters("[]", 2);
        return;
    }
    if (pretty_) {
        output_->write_character('\n');
        Indent(indent_);
    }
    output_->write_character(']');
}

void JsonWriter::Indent(unsigned width) {
    static const std::string SPACES(64, ' ');
    for (unsigned left = width; left > 0;) {
        const unsigned now = std::min<unsigned>(left, static_cast<unsigned>(SPACES.size()));
        output_->write_characters(SPACES.data(), now);
        left -= now;
    }
}

}  // namespace Zarvo::Host
