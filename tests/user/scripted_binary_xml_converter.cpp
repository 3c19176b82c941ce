// Stands in for the platform's converter in one test program, so that every status a converter
// may return can be produced; the linker takes this definition before the platform library's.
#include "scripted_binary_xml_converter.h"

namespace Zarvo {
namespace UpdateEngine {

XmlConvertStatus g_scriptedConvertStatus = 0;

XmlConvertStatus BinaryXmlConverter::Convert(const std::string &, const std::string &) {
    return g_scriptedConvertStatus;
}

}  // namespace UpdateEngine
}  // namespace Zarvo
