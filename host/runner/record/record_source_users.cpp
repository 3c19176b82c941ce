#include "record_source_users.h"

#include <dirent.h>
#include <fcntl.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>
#include <unordered_set>

#include "binary_xml/abx_decoder.h"
#include "support/fd_io.h"
#include "support/unique_fd.h"

namespace Zarvo::Host {
namespace {

// Far above any real user file or avatar; a larger file is described instead of read.
constexpr size_t MAX_USER_FILE_BYTES = 4u << 20;
constexpr size_t MAX_PHOTO_BYTES = 8u << 20;
// What the record keeps of the phone's users, whatever the snapshot holds: Android's user names
// are far shorter than a name's bound, and a phone has a handful of users.
constexpr size_t MAX_NAME_BYTES = 1024;
constexpr size_t MAX_ALL_PHOTOS_BYTES = 32u << 20;
const std::string CUT_MARK = "\u2026";
const std::string LISTED_AGAIN = "the user list names it again; it was read once";
const std::string PNG_SIGNATURE = "\x89PNG\r\n\x1a\n";

struct FlagName {
    int64_t bit;
    const char *name;
};
constexpr FlagName FLAG_NAMES[] = {
    {0x1, "PRIMARY"},      {0x2, "ADMIN"},
    {0x4, "GUEST"},        {0x8, "RESTRICTED"},
    {0x10, "INITIALIZED"}, {0x20, "MANAGED_PROFILE"},
    {0x40, "DISABLED"},    {0x80, "QUIET_MODE"},
    {0x100, "EPHEMERAL"},  {0x200, "DEMO"},
    {0x400, "FULL"},       {0x800, "SYSTEM"},
    {0x1000, "PROFILE"},   {0x2000, "EPHEMERAL_ON_CREATE"},
    {0x4000, "MAIN"},      {0x8000, "FOR_TESTING"},
};

// Reads a regular file without following a link at its name; empty problem on success.
std::string ReadFile(const std::string &path, size_t limit, std::string &content) {
    const UniqueFd file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    const int fd = file.Get();
    if (fd < 0) {
        return errno == ENOENT ? "the file is not in the snapshot"
                               : std::string("it cannot be opened: ") + std::strerror(errno);
    }
    struct stat info {};
    if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        return "it is not a regular file";
    }
    if (static_cast<uint64_t>(info.st_size) > limit) {
        return "it holds more than " + std::to_string(limit >> 20) + " MiB";
    }
    const int failed = ReadUpTo(fd, limit, content);
    if (failed == EFBIG) {
        return "it holds more than " + std::to_string(limit >> 20) + " MiB";
    }
    return failed == 0 ? "" : std::string("it cannot be read: ") + std::strerror(failed);
}

using XmlDocument = std::unique_ptr<xmlDoc, void (*)(xmlDocPtr)>;
using XmlParser = std::unique_ptr<xmlParserCtxt, void (*)(xmlParserCtxtPtr)>;

thread_local bool documentTypeMet = false;

// Stops the parse at a document type declaration. Only declared entities can expand, and only a
// document type declares them; the parser calls this after decoding, so every encoding is met.
void StopAtDocumentType(void *parser, const xmlChar *, const xmlChar *, const xmlChar *) {
    documentTypeMet = true;
    xmlStopParser(static_cast<xmlParserCtxtPtr>(parser));
}

// Parses a user file in either form. Document types are refused: Android never writes one, and
// entity declarations are the way a hostile file would blow up a parser.
XmlDocument ParseUserXml(const std::string &bytes, std::string &form, std::string &problem) {
    XmlDocument none(nullptr, xmlFreeDoc);
    std::string text;
    if (BinaryXml::HasAbxMagic(bytes)) {
        form = "binary XML";
        if (BinaryXml::DecodeAbx(bytes, text) != BinaryXml::Status::OK) {
            problem = "it is not valid binary XML";
            return none;
        }
        // Interned strings let a few bytes stand for many: the text is held to a text file's bound.
        if (text.size() > MAX_USER_FILE_BYTES) {
            problem = "its binary form unfolds to more than " + std::to_string(MAX_USER_FILE_BYTES >> 20) +
                      " MiB of text";
            return none;
        }
    } else {
        form = "text XML";
        text = bytes;
    }
    if (text.size() > static_cast<size_t>(INT32_MAX)) {
        problem = "it is too large";
        return none;
    }
    XmlParser parser(xmlNewParserCtxt(), xmlFreeParserCtxt);
    if (parser == nullptr) {
        problem = "it could not be parsed: out of memory";
        return none;
    }
    parser->sax->internalSubset = StopAtDocumentType;
    documentTypeMet = false;
    XmlDocument doc(
        xmlCtxtReadMemory(parser.get(), text.data(), static_cast<int>(text.size()), "user.xml", nullptr,
                          XML_PARSE_NONET | XML_PARSE_RECOVER | XML_PARSE_NOERROR | XML_PARSE_NOWARNING),
        xmlFreeDoc);
    if (documentTypeMet) {
        problem = "it declares a document type, which Android's user files never do";
        return none;
    }
    if (doc == nullptr || xmlDocGetRootElement(doc.get()) == nullptr) {
        problem = "it is not XML that can be read";
        return none;
    }
    return doc;
}

bool IsElement(xmlNodePtr node, const char *name) {
    return node != nullptr && node->type == XML_ELEMENT_NODE &&
           xmlStrcmp(node->name, reinterpret_cast<const xmlChar *>(name)) == 0;
}

std::optional<std::string> Attribute(xmlNodePtr node, const char *name) {
    xmlChar *value = xmlGetProp(node, reinterpret_cast<const xmlChar *>(name));
    if (value == nullptr) {
        return std::nullopt;
    }
    std::string text(reinterpret_cast<const char *>(value));
    xmlFree(value);
    return text;
}

std::optional<int64_t> IntAttribute(xmlNodePtr node, const char *name) {
    std::optional<std::string> text = Attribute(node, name);
    int64_t value = 0;
    if (!text || text->empty() ||
        std::from_chars(text->data(), text->data() + text->size(), value).ptr !=
            text->data() + text->size()) {
        return std::nullopt;
    }
    return value;
}

// The name as far as MAX_NAME_BYTES, cut between two UTF-8 characters and marked.
std::string ShownName(std::string name) {
    if (name.size() <= MAX_NAME_BYTES) {
        return name;
    }
    size_t end = MAX_NAME_BYTES;
    while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0) == 0x80) {
        --end;
    }
    name.resize(end);
    return name + CUT_MARK;
}

std::string LastComponent(const std::string &path) {
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Reads one user's file and, while `photoBudget` allows, its photo.
SourceUser ReadUser(const std::string &dir, int id, size_t &photoBudget) {
    SourceUser user;
    user.id = id;
    std::string bytes;
    user.problem = ReadFile(dir + std::to_string(id) + ".xml", MAX_USER_FILE_BYTES, bytes);
    if (!user.problem.empty()) {
        return user;
    }
    XmlDocument doc = ParseUserXml(bytes, user.form, user.problem);
    if (doc == nullptr) {
        return user;
    }
    xmlNodePtr root = xmlDocGetRootElement(doc.get());
    if (!IsElement(root, "user")) {
        user.problem = "its root element is not a user";
        return user;
    }
    user.type = Attribute(root, "type");
    user.flags = IntAttribute(root, "flags");
    for (xmlNodePtr child = root->children; child != nullptr; child = child->next) {
        if (IsElement(child, "name")) {
            xmlChar *content = xmlNodeGetContent(child);
            user.name = ShownName(content != nullptr ? reinterpret_cast<const char *>(content) : "");
            xmlFree(content);
            break;
        }
    }
    // The photo is looked up as the plug-in does: by the last component of the icon attribute, in
    // the user's own folder, so that an attribute cannot lead out of the work tree.
    std::string icon = LastComponent(Attribute(root, "icon").value_or("photo.png"));
    std::string photo;
    if (!icon.empty() && icon != "." && icon != ".." &&
        ReadFile(dir + std::to_string(id) + "/" + icon, std::min(MAX_PHOTO_BYTES, photoBudget), photo)
            .empty() &&
        photo.compare(0, PNG_SIGNATURE.size(), PNG_SIGNATURE) == 0) {
        photoBudget -= photo.size();
        user.photoPng = std::move(photo);
    }
    return user;
}

// The ids of the <id>.xml files of the folder, when the list cannot tell them.
std::vector<int> UserFileIds(const std::string &dir) {
    std::vector<int> ids;
    std::unique_ptr<DIR, int (*)(DIR *)> listing(opendir(dir.c_str()), closedir);
    if (listing == nullptr) {
        return ids;
    }
    while (dirent *entry = readdir(listing.get())) {
        const std::string name = entry->d_name;
        int id = 0;
        auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), id);
        if (error == std::errc() && end != name.data() && std::string(end) == ".xml" && id >= 0) {
            ids.push_back(id);
        }
    }
    std::sort(ids.begin(), ids.end());
    return ids;
}

}  // namespace

SourceUserList ReadSourceUsers(const std::string &sourceXmlDir) {
    const std::string dir =
        sourceXmlDir.empty() || sourceXmlDir.back() == '/' ? sourceXmlDir : sourceXmlDir + "/";
    SourceUserList list;
    std::vector<int> ids;
    std::string bytes;
    list.problem = ReadFile(dir + "userlist.xml", MAX_USER_FILE_BYTES, bytes);
    if (list.problem.empty()) {
        XmlDocument doc = ParseUserXml(bytes, list.form, list.problem);
        xmlNodePtr root = doc != nullptr ? xmlDocGetRootElement(doc.get()) : nullptr;
        if (doc != nullptr && !IsElement(root, "users")) {
            list.problem = "its root element is not a user list";
        } else if (doc != nullptr) {
            list.version = IntAttribute(root, "version");
            for (xmlNodePtr child = root->children; child != nullptr; child = child->next) {
                std::optional<int64_t> id =
                    IsElement(child, "user") ? IntAttribute(child, "id") : std::nullopt;
                if (id && *id >= 0 && *id <= INT32_MAX) {
                    ids.push_back(static_cast<int>(*id));
                }
            }
        }
    }
    if (!list.problem.empty()) {
        ids = UserFileIds(dir);
    }
    std::unordered_set<int> read;
    size_t photoBudget = MAX_ALL_PHOTOS_BYTES;
    for (int id : ids) {
        if (read.insert(id).second) {
            list.users.push_back(ReadUser(dir, id, photoBudget));
        } else {
            SourceUser again;
            again.id = id;
            again.problem = LISTED_AGAIN;
            list.users.push_back(std::move(again));
        }
    }
    return list;
}

std::string UserFlagNames(int64_t flags) {
    std::string names;
    uint64_t rest = static_cast<uint32_t>(flags);
    for (const FlagName &flag : FLAG_NAMES) {
        if ((rest & static_cast<uint64_t>(flag.bit)) != 0) {
            names += (names.empty() ? "" : "|") + std::string(flag.name);
            rest &= ~static_cast<uint64_t>(flag.bit);
        }
    }
    for (uint64_t bit = 0x10000; bit <= 0x80000000u; bit <<= 1) {
        if ((rest & bit) != 0) {
            char hex[16];
            std::snprintf(hex, sizeof(hex), "0x%08llX", static_cast<unsigned long long>(bit));
            names += (names.empty() ? "" : "|") + std::string(hex);
        }
    }
    return names.empty() ? "none" : names;
}

}  // namespace Zarvo::Host
