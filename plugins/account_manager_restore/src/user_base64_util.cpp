#include "user_base64_util.h"

#include <openssl/bio.h>
#include <openssl/buffer.h>
#include <openssl/evp.h>

#include <climits>

#include "update_log.h"

namespace Zarvo {
namespace UpdateEngine {

std::string UserBase64Util::Base64Encode(const std::string &input) {
    BIO *memBio = BIO_new(BIO_s_mem());
    if (memBio == nullptr) {
        PLUGIN_LOGE("Base64Encode error: memBio is nullptr.");
        return "";
    }
    BIO *b64Bio = BIO_new(BIO_f_base64());
    if (b64Bio == nullptr) {
        PLUGIN_LOGE("Base64Encode error: b64Bio is nullptr.");
        BIO_free(memBio);
        return "";
    }
    BIO *chain = BIO_push(b64Bio, memBio);
    BIO_set_flags(b64Bio, BIO_FLAGS_BASE64_NO_NL);
    // BIO_write takes an int length; larger inputs cannot be written in one call.
    if (input.size() > static_cast<size_t>(INT_MAX) ||
        BIO_write(chain, input.data(), static_cast<int>(input.size())) < 1) {
        PLUGIN_LOGE("Base64Encode error: bio write fail.");
        BIO_free_all(chain);
        return "";
    }
    (void)BIO_ctrl(chain, BIO_CTRL_FLUSH, 0, nullptr);
    BUF_MEM *buffer = nullptr;
    std::string result;
    if (BIO_ctrl(chain, BIO_C_GET_BUF_MEM_PTR, 0, &buffer) < 1 || buffer == nullptr) {
        PLUGIN_LOGE("Base64Encode error: bio get mem ptr fail.");
    } else {
        result.assign(buffer->data, buffer->length);
    }
    BIO_free_all(chain);
    return result;
}

}  // namespace UpdateEngine
}  // namespace Zarvo
