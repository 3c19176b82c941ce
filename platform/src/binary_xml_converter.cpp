#include "binary_xml_converter.h"

#include <exception>

#include "binary_xml/file_conversion.h"

namespace Zarvo::UpdateEngine {

XmlConvertStatus BinaryXmlConverter::Convert(const std::string &source, const std::string &destination) {
    try {
        return static_cast<XmlConvertStatus>(BinaryXml::ConvertFile(source, destination));
    } catch (const std::exception &) {
        // Only memory exhaustion can get here: the document was too large to hold.
        return static_cast<XmlConvertStatus>(BinaryXml::Status::TOO_LARGE);
    }
}

}  // namespace Zarvo::UpdateEngine
