#ifndef HOST_RUNNER_JSON_WRITER_H
#define HOST_RUNNER_JSON_WRITER_H

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace Zarvo::Host {

class JsonWriter;

// A value of a document that is written by a function when the output reaches it instead of
// being held in the document (there it stands as a placeholder).
struct StreamedValue {
    nlohmann::json::json_pointer at;
    std::function<void(JsonWriter &)> write;
};

// A document some of whose values are streamed.
struct StreamedDocument {
    nlohmann::json document;
    std::vector<StreamedValue> streamed;
};

// Writes JSON text exactly as nlohmann's serializer dumps a document (text that is not UTF-8
// replaced by U+FFFD), with the streamed values written in their places as they come.
class JsonWriter {
public:
    // `indentStep` 0 and `pretty` false: compact text.
    JsonWriter(nlohmann::detail::output_adapter_t<char> output, bool pretty, unsigned indentStep);

    void Document(const StreamedDocument &document);

    // Inside a streamed value: the value itself, held whole.
    void Value(const nlohmann::json &value);
    // ... a string too long to copy into a document, escaped piece by piece.
    void String(const std::string &text);
    // ... or an array whose elements come one at a time.
    void BeginArray();
    void Element(const nlohmann::json &element);
    void EndArray();

private:
    void Write(const nlohmann::json &value, const nlohmann::json::json_pointer &at,
               const std::vector<StreamedValue> &streamed);
    void Indent(unsigned width);

    nlohmann::detail::output_adapter_t<char> output_;
    nlohmann::detail::serializer<nlohmann::json> serializer_;
    bool pretty_;
    unsigned indentStep_;
    unsigned indent_ = 0;
    bool arrayEmpty_ = true;
};

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_JSON_WRITER_H
