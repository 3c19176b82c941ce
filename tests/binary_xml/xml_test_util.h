#ifndef ZARVO_TESTS_XML_TEST_UTIL_H
#define ZARVO_TESTS_XML_TEST_UTIL_H

#include <filesystem>
#include <string>

namespace Zarvo::Testing {

// Whether libxml2 reads `xml` without recovery and finds a root element.
bool ParsesStrictly(const std::string &xml);

// A one-line form of the root element's tree: names, attributes in order, and text with
// white-space-only text left out and CDATA merged into text. Empty when libxml2 cannot read it.
// With `recover`, libxml2 reads the way the plug-in does (keeping the first root).
std::string Canonical(const std::string &xml, bool recover = false);

std::string ReadFile(const std::filesystem::path &path);

}  // namespace Zarvo::Testing

#endif  // ZARVO_TESTS_XML_TEST_UTIL_H
