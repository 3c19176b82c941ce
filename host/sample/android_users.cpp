#include "android_users.h"

#include <filesystem>
#include <fstream>
#include <memory>

#include "binary_xml/abx_writer.h"

namespace Zarvo::Fixtures {
namespace {

constexpr int32_t NO_PROFILE_GROUP = -10000;
constexpr int32_t NO_DEVICE_OWNER = -10000;
const std::string PHOTO_FILE_NAME = "photo.png";

// Receives the XML events of one file, in the order and with the value types Android's
// serializer uses, and renders them in one of the two forms.
class XmlSink {
public:
    virtual ~XmlSink() = default;
    virtual void StartTag(const std::string &name) = 0;
    virtual void IntAttribute(const std::string &name, int32_t value) = 0;
    virtual void LongAttribute(const std::string &name, int64_t value) = 0;
    virtual void BoolAttribute(const std::string &name, bool value) = 0;
    virtual void StringAttribute(const std::string &name, const std::string &value) = 0;
    virtual void Text(const std::string &text) = 0;
    virtual void EndTag(const std::string &name) = 0;
    virtual std::string Finish() = 0;
};

class AbxSink : public XmlSink {
public:
    explicit AbxSink(BinaryXml::AbxWriter::Supplementary supplementary) : writer_(supplementary) {
        writer_.StartDocument();
    }
    void StartTag(const std::string &name) override { writer_.StartTag(name); }
    void IntAttribute(const std::string &name, int32_t value) override { writer_.Attribute(name, value); }
    void LongAttribute(const std::string &name, int64_t value) override { writer_.Attribute(name, value); }
    void BoolAttribute(const std::string &name, bool value) override { writer_.Attribute(name, value); }
    void StringAttribute(const std::string &name, const std::string &value) override {
        writer_.Attribute(name, std::string_view(value));
    }
    void Text(const std::string &text) override { writer_.Text(text); }
    void EndTag(const std::string &name) override { writer_.EndTag(name); }
    std::string Finish() override {
        writer_.EndDocument();
        return writer_.Data();
    }

private:
    BinaryXml::AbxWriter writer_;
};

// Text XML as Android's FastXmlSerializer writes it: a standalone declaration, four-space
// indentation, empty elements closed with " />".
class TextSink : public XmlSink {
public:
    TextSink() : out_("<?xml version='1.0' encoding='utf-8' standalone='yes' ?>\n") {}
    void StartTag(const std::string &name) override {
        CloseStartTag();
        out_ += std::string(depth_ * 4, ' ') + "<" + name;
        inStartTag_ = true;
        hasText_ = false;
        ++depth_;
    }
    void IntAttribute(const std::string &name, int32_t value) override {
        RawAttribute(name, std::to_string(value));
    }
    void LongAttribute(const std::string &name, int64_t value) override {
        RawAttribute(name, std::to_string(value));
    }
    void BoolAttribute(const std::string &name, bool value) override {
        RawAttribute(name, value ? "true" : "false");
    }
    void StringAttribute(const std::string &name, const std::string &value) override {
        RawAttribute(name, Escape(value, true));
    }
    void Text(const std::string &text) override {
        if (inStartTag_) {
            out_ += ">";
            inStartTag_ = false;
        }
        out_ += Escape(text, false);
        hasText_ = true;
    }
    void EndTag(const std::string &name) override {
        --depth_;
        if (inStartTag_) {
            out_ += " />\n";
            inStartTag_ = false;
        } else {
            if (!hasText_) {
                out_ += std::string(depth_ * 4, ' ');
            }
            out_ += "</" + name + ">\n";
        }
        hasText_ = false;
    }
    std::string Finish() override { return out_; }

private:
    void RawAttribute(const std::string &name, const std::string &value) {
        out_ += " " + name + "=\"" + value + "\"";
    }

    void CloseStartTag() {
        if (inStartTag_) {
            out_ += ">\n";
            inStartTag_ = false;
        }
    }

    static std::string Escape(const std::string &text, bool attribute) {
        std::string escaped;
        for (char c : text) {
            switch (c) {
                case '&':
                    escaped += "&amp;";
                    break;
                case '<':
                    escaped += "&lt;";
                    break;
                case '>':
                    escaped += "&gt;";
                    break;
                case '"':
                    escaped += attribute ? "&quot;" : "\"";
                    break;
                default:
                    escaped += c;
            }
        }
        return escaped;
    }

    std::string out_;
    size_t depth_ = 0;
    bool inStartTag_ = false;
    bool hasText_ = false;
};

std::unique_ptr<XmlSink> MakeSink(UserFileForm form) {
    switch (form) {
        case UserFileForm::BINARY:
            return std::make_unique<AbxSink>(BinaryXml::AbxWriter::Supplementary::FOUR_BYTE);
        case UserFileForm::BINARY_SURROGATE_PAIRS:
            return std::make_unique<AbxSink>(BinaryXml::AbxWriter::Supplementary::SURROGATE_PAIR);
        default:
            return std::make_unique<TextSink>();
    }
}

void EmptyElement(XmlSink &sink, const std::string &name) {
    sink.StartTag(name);
    sink.EndTag(name);
}

bool WriteFile(const std::filesystem::path &path, const std::string &content, std::string &error) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    out.close();
    if (!out) {
        error = "cannot write " + path.string() + ".";
        return false;
    }
    return true;
}

bool WriteUserFile(const std::filesystem::path &path, const std::string &content, bool withReserveCopy,
                   std::string &error) {
    return WriteFile(path, content, error) &&
           (!withReserveCopy || WriteFile(path.string() + ".reservecopy", content, error));
}

}  // namespace

std::string AndroidPhotoPath(int32_t userId) {
    return "/data/system/users/" + std::to_string(userId) + "/" + PHOTO_FILE_NAME;
}

std::string EncodeUserList(const AndroidUsers &users, UserFileForm form) {
    int32_t nextSerialNumber = 0;
    for (const auto &user : users.users) {
        nextSerialNumber = std::max(nextSerialNumber, user.serialNumber + 1);
    }
    auto sink = MakeSink(form);
    sink->StartTag("users");
    sink->IntAttribute("nextSerialNumber", nextSerialNumber);
    sink->IntAttribute("version", users.version);
    if (users.userTypeConfigVersion) {
        sink->IntAttribute("userTypeConfigVersion", *users.userTypeConfigVersion);
    }
    sink->StartTag("guestRestrictions");
    sink->StartTag("restrictions");
    sink->BoolAttribute("no_sms", true);
    sink->BoolAttribute("no_install_unknown_sources", true);
    sink->BoolAttribute("no_config_wifi", false);
    sink->EndTag("restrictions");
    sink->EndTag("guestRestrictions");
    if (users.withDeviceOwnerUserId) {
        sink->StartTag("deviceOwnerUserId");
        sink->IntAttribute("id", NO_DEVICE_OWNER);
        sink->EndTag("deviceOwnerUserId");
    }
    for (const auto &user : users.users) {
        sink->StartTag("user");
        sink->IntAttribute("id", user.id);
        sink->EndTag("user");
    }
    sink->EndTag("users");
    return sink->Finish();
}

std::string EncodeUserFile(const AndroidUser &user, UserFileForm form) {
    auto sink = MakeSink(form);
    sink->StartTag("user");
    sink->IntAttribute("id", user.id);
    sink->IntAttribute("serialNumber", user.serialNumber);
    sink->IntAttribute("flags", user.flags);
    if (user.type.has_value()) {
        sink->StringAttribute("type", *user.type);
    }
    sink->LongAttribute("created", user.created);
    sink->LongAttribute("lastLoggedIn", user.lastLoggedIn);
    if (user.lastLoggedInFingerprint) {
        sink->StringAttribute("lastLoggedInFingerprint", *user.lastLoggedInFingerprint);
    }
    if (user.lastEnteredForeground) {
        sink->LongAttribute("lastEnteredForeground", *user.lastEnteredForeground);
    }
    if (user.icon.has_value()) {
        sink->StringAttribute("icon", *user.icon);
    } else if (user.photo.has_value()) {
        sink->StringAttribute("icon", AndroidPhotoPath(user.id));
    }
    if (user.profileGroupId != NO_PROFILE_GROUP) {
        sink->IntAttribute("profileGroupId", user.profileGroupId);
        sink->IntAttribute("profileBadge", 0);
    }
    if (user.name.has_value()) {
        sink->StartTag("name");
        sink->Text(*user.name);
        sink->EndTag("name");
    }
    EmptyElement(*sink, "restrictions");
    EmptyElement(*sink, "device_policy_local_restrictions");
    EmptyElement(*sink, "device_policy_global_restrictions");
    if (user.withUserProperties) {
        EmptyElement(*sink, "userProperties");
    }
    sink->StartTag("ignorePrepareStorageErrors");
    sink->Text("false");
    sink->EndTag("ignorePrepareStorageErrors");
    sink->EndTag("user");
    return sink->Finish();
}

bool WriteAndroidUsers(const std::string &dir, const AndroidUsers &users, UserFileForm form,
                       std::string &error) {
    std::error_code code;
    std::filesystem::create_directories(dir, code);
    if (code) {
        error = "cannot create " + dir + ": " + code.message() + ".";
        return false;
    }
    const std::filesystem::path root(dir);
    if (!WriteUserFile(root / "userlist.xml", EncodeUserList(users, form), users.withReserveCopies, error)) {
        return false;
    }
    for (const auto &user : users.users) {
        const std::string id = std::to_string(user.id);
        if (!WriteUserFile(root / (id + ".xml"), EncodeUserFile(user, form), users.withReserveCopies,
                           error)) {
            return false;
        }
        if (user.photo.has_value()) {
            std::filesystem::create_directories(root / id, code);
            if (code || !WriteFile(root / id / PHOTO_FILE_NAME, *user.photo, error)) {
                error = error.empty() ? "cannot create " + (root / id).string() + "." : error;
                return false;
            }
        }
    }
    return true;
}

std::string SampleAvatarPng() {
    // 1x1 RGBA, fully transparent.
    static const unsigned char png[] = {
        0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A, 0x0A, 0x00, 0x00, 0x00, 0x0D, 0x49, 0x48, 0x44, 0x52, 0x00,
        0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x08, 0x06, 0x00, 0x00, 0x00, 0x1F, 0x15, 0xC4, 0x89, 0x00,
        0x00, 0x00, 0x0A, 0x49, 0x44, 0x41, 0x54, 0x78, 0x9C, 0x63, 0x00, 0x01, 0x00, 0x00, 0x05, 0x00, 0x01,
        0x0D, 0x0A, 0x2D, 0xB4, 0x00, 0x00, 0x00, 0x00, 0x49, 0x45, 0x4E, 0x44, 0xAE, 0x42, 0x60, 0x82,
    };
    return std::string(reinterpret_cast<const char *>(png), sizeof(png));
}

AndroidUsers SamplePhoneUsers() {
    AndroidUsers users;
    AndroidUser owner;
    owner.id = 0;
    owner.serialNumber = 0;
    owner.flags =
        USER_FLAG_PRIMARY | USER_FLAG_ADMIN | USER_FLAG_INITIALIZED | USER_FLAG_FULL | USER_FLAG_SYSTEM;
    owner.type = USER_TYPE_SYSTEM;
    owner.created = 0;
    owner.lastLoggedIn = 1700000000000;
    users.users.push_back(owner);

    AndroidUser secondary;
    secondary.id = 10;
    secondary.serialNumber = 10;
    secondary.flags = USER_FLAG_INITIALIZED | USER_FLAG_FULL;
    secondary.type = USER_TYPE_SECONDARY;
    secondary.created = 1669985155155;
    secondary.lastLoggedIn = 1699990000123;
    secondary.name = "Zoë Łukasiewicz \xF0\x9F\x8C\xBB";  // Latin with diacritics and an emoji beyond the BMP
    secondary.photo = SampleAvatarPng();
    users.users.push_back(secondary);

    AndroidUser guest;
    guest.id = 11;
    guest.serialNumber = 11;
    guest.flags = USER_FLAG_GUEST | USER_FLAG_INITIALIZED | USER_FLAG_FULL;
    guest.type = USER_TYPE_GUEST;
    guest.created = 1679000000000;
    guest.lastLoggedIn = 1679000100000;
    guest.name = "Guest";
    users.users.push_back(guest);

    AndroidUser work;
    work.id = 12;
    work.serialNumber = 12;
    work.flags = USER_FLAG_INITIALIZED | USER_FLAG_MANAGED_PROFILE | USER_FLAG_PROFILE;
    work.type = USER_TYPE_MANAGED_PROFILE;
    work.created = 1689000000000;
    work.lastLoggedIn = 1699000000000;
    work.name = "Work profile";
    work.profileGroupId = 0;
    users.users.push_back(work);
    return users;
}

}  // namespace Zarvo::Fixtures
