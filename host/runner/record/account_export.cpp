#include "account_export.h"

#include <memory>

namespace Zarvo::Host {
namespace {

using Json = nlohmann::json;
using DomBuilder = nlohmann::detail::json_sax_dom_parser<Json>;
const std::string EXTRAS_KEY = "extras";

// Parse events to two document builders: the elements of a top-level "extras" array each to a
// builder of its own, which hands the element on once it is complete; everything else to the
// account's.
class ExportEvents {
public:
    ExportEvents(Json &account, const std::function<void(Json &, int)> &onExtra)
        : account_(account, false), onExtra_(onExtra) {}

    int ExtrasMembers() const { return extrasMembers_; }

    bool null() {
        return Scalar([](DomBuilder &to) { return to.null(); }, [] { return Json(nullptr); });
    }
    bool boolean(bool value) {
        return Scalar([value](DomBuilder &to) { return to.boolean(value); }, [value] { return Json(value); });
    }
    bool number_integer(Json::number_integer_t value) {
        return Scalar([value](DomBuilder &to) { return to.number_integer(value); },
                      [value] { return Json(value); });
    }
    bool number_unsigned(Json::number_unsigned_t value) {
        return Scalar([value](DomBuilder &to) { return to.number_unsigned(value); },
                      [value] { return Json(value); });
    }
    bool number_float(Json::number_float_t value, const Json::string_t &text) {
        return Scalar([value, &text](DomBuilder &to) { return to.number_float(value, text); },
                      [value] { return Json(value); });
    }
    bool string(Json::string_t &value) {
        return Scalar([&value](DomBuilder &to) { return to.string(value); },
                      [&value] { return Json(std::move(value)); });
    }
    bool binary(Json::binary_t &value) {
        return Scalar([&value](DomBuilder &to) { return to.binary(value); },
                      [&value] { return Json::binary(std::move(value)); });
    }
    bool key(Json::string_t &name) {
        if (element_ != nullptr) {
            return element_->key(name);
        }
        if (depth_ == 1) {
            nextIsExtras_ = name == EXTRAS_KEY;
            extrasMembers_ += nextIsExtras_ ? 1 : 0;
        }
        return account_.key(name);
    }
    bool start_object(std::size_t length) {
        return Open([length](DomBuilder &to) { return to.start_object(length); }, false);
    }
    bool start_array(std::size_t length) {
        return Open([length](DomBuilder &to) { return to.start_array(length); }, true);
    }
    bool end_object() {
        return Close([](DomBuilder &to) { return to.end_object(); });
    }
    bool end_array() {
        return Close([](DomBuilder &to) { return to.end_array(); });
    }
    template <typename Exception>
    bool parse_error(std::size_t position, const std::string &token, const Exception &error) {
        return account_.parse_error(position, token, error);
    }

private:
    bool AtExtra() const { return inExtras_ && depth_ == 2; }

    template <typename ToBuilder, typename MakeValue>
    bool Scalar(ToBuilder &&toBuilder, MakeValue &&makeValue) {
        if (element_ != nullptr) {
            return toBuilder(*element_);
        }
        if (AtExtra()) {
            Json extra = makeValue();
            onExtra_(extra, extrasMembers_);
            return true;
        }
        return toBuilder(account_);
    }

    template <typename ToBuilder>
    bool Open(ToBuilder &&toBuilder, bool array) {
        if (element_ == nullptr && AtExtra()) {
            extra_ = Json();
            element_ = std::make_unique<DomBuilder>(extra_, false);
        }
        if (element_ != nullptr) {
            ++elementDepth_;
            return toBuilder(*element_);
        }
        inExtras_ = array && depth_ == 1 && nextIsExtras_;
        ++depth_;
        return toBuilder(account_);
    }

    template <typename ToBuilder>
    bool Close(ToBuilder &&toBuilder) {
        if (element_ != nullptr) {
            if (!toBuilder(*element_)) {
                return false;
            }
            if (--elementDepth_ == 0) {
                element_.reset();
                onExtra_(extra_, extrasMembers_);
                extra_ = Json();
            }
            return true;
        }
        if (depth_ == 2) {
            inExtras_ = false;
        }
        --depth_;
        return toBuilder(account_);
    }

    DomBuilder account_;
    const std::function<void(Json &, int)> &onExtra_;
    Json extra_;
    std::unique_ptr<DomBuilder> element_;
    int elementDepth_ = 0;
    int depth_ = 0;
    bool nextIsExtras_ = false;
    bool inExtras_ = false;
    int extrasMembers_ = 0;
};

}  // namespace

bool ReadAccountExport(const std::string &text, nlohmann::json &account, int &extrasMembers,
                       const std::function<void(nlohmann::json &extra, int member)> &onExtra) {
    account = Json();
    ExportEvents events(account, onExtra);
    const bool read = Json::sax_parse(text, &events);
    extrasMembers = events.ExtrasMembers();
    return read;
}

int ExtrasMember(const nlohmann::json &account, int extrasMembers) {
    const auto found = account.is_object() ? account.find(EXTRAS_KEY) : account.end();
    return found != account.end() && found->is_array() ? extrasMembers : 0;
}

}  // namespace Zarvo::Host
