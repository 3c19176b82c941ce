#ifndef HOST_RUNNER_HTML_PAGE_H
#define HOST_RUNNER_HTML_PAGE_H

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>

#include "json_writer.h"

namespace Zarvo::Host {

// A page that needs nothing but itself. `data` rides along as JSON in a script element that the
// browser never runs, and `script` renders it with DOM calls only. The page's
// Content-Security-Policy lets no other script or style run and loads nothing: images come as
// data: URIs only.
std::string SelfContainedPage(const std::string &title, const std::string &style, const std::string &script,
                              const nlohmann::json &data);

// The same page written straight to `out`: the data's JSON is escaped as it is serialized, never
// held as text.
void WriteSelfContainedPage(const std::string &title, const std::string &style, const std::string &script,
                            const nlohmann::json &data, std::ostream &out);
// ... with a data document some of whose values are streamed.
void WriteSelfContainedPage(const std::string &title, const std::string &style, const std::string &script,
                            const StreamedDocument &data, std::ostream &out);

// JSON that can stand inside a script element: "<", ">" and "&" (and U+2028, U+2029) as \u
// escapes, so that no text of the data can end the element or open a comment.
std::string JsonForScriptElement(const nlohmann::json &data);
void WriteJsonForScriptElement(const nlohmann::json &data, std::ostream &out);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_HTML_PAGE_H
