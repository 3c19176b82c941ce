#include "binary_xml/status.h"

namespace Zarvo::BinaryXml {

const char *Describe(Status status) {
    switch (status) {
        case Status::OK:
            return "success";
        case Status::SOURCE_UNREADABLE:
            return "the source cannot be opened or read";
        case Status::TRUNCATED:
            return "the input ends early";
        case Status::MALFORMED:
            return "the input holds a malformed token, type or format";
        case Status::BAD_STRING_INDEX:
            return "the input refers to an interned string that does not exist";
        case Status::INVALID_CHARACTER:
            return "the input holds a character that XML cannot carry";
        case Status::BAD_STRUCTURE:
            return "the elements of the input are unbalanced or mismatched";
        case Status::DESTINATION_UNWRITABLE:
            return "the destination cannot be written";
        case Status::TOO_LARGE:
            return "the input or its text form is too large";
    }
    return "unknown failure";
}

}  // namespace Zarvo::BinaryXml
