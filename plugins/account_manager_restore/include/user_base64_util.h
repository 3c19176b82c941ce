#ifndef USER_BASE64_UTIL_H
#define USER_BASE64_UTIL_H

#include <string>

namespace Zarvo {
namespace UpdateEngine {

class UserBase64Util {
public:
    // Standard base64 with "=" padding on one line; empty text when the input is empty or
    // the encoder cannot be set up.
    static std::string Base64Encode(const std::string &input);
};

}  // namespace UpdateEngine
}  // namespace Zarvo

#endif  // USER_BASE64_UTIL_H
