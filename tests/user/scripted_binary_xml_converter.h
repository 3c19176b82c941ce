#ifndef TESTS_USER_SCRIPTED_BINARY_XML_CONVERTER_H
#define TESTS_USER_SCRIPTED_BINARY_XML_CONVERTER_H

#include "binary_xml_converter.h"

namespace Zarvo {
namespace UpdateEngine {

// What every conversion returns in a program linked with the scripted converter.
extern XmlConvertStatus g_scriptedConvertStatus;

}  // namespace UpdateEngine
}  // namespace Zarvo

#endif  // TESTS_USER_SCRIPTED_BINARY_XML_CONVERTER_H
