#include "support/printable.h"

namespace Zarvo::Support {

std::string Printable(const std::string &text) {
    std::string shown;
    shown.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const bool c1 = byte == 0xC2 && i + 1 < text.size() &&
                        static_cast<unsigned char>(text[i + 1]) >= 0x80 &&
                        static_cast<unsigned char>(text[i + 1]) <= 0x9F;
        if (byte < 0x20 || byte == 0x7F || c1) {
            shown += '?';
            i += c1 ? 1 : 0;
        } else {
            shown += text[i];
        }
    }
    return shown;
}

}  // namespace Zarvo::Support
