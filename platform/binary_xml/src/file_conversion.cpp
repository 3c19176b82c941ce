#include "binary_xml/file_conversion.h"

#include <fcntl.h>
#include <libxml/parser.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

#include "binary_xml/abx_format.h"
#include "support/fd_io.h"
#include "support/unique_fd.h"

namespace Zarvo::BinaryXml {
namespace {

bool LooksLikeTextXml(std::string_view source) {
    static constexpr std::string_view UTF8_BOM = "\xEF\xBB\xBF";
    if (source.substr(0, 2) == "\xFE\xFF" || source.substr(0, 2) == "\xFF\xFE") {
        return true;  // UTF-16, which libxml2 reads as well
    }
    if (source.substr(0, UTF8_BOM.size()) == UTF8_BOM) {
        source.remove_prefix(UTF8_BOM.size());
    }
    std::size_t first = source.find_first_not_of(" \t\r\n");
    return first != std::string_view::npos && source[first] == '<';
}

bool HasRootElement(std::string_view text) {
    if (text.size() > static_cast<std::size_t>(INT32_MAX)) {
        return false;
    }
    xmlDocPtr doc =
        xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr,
                      XML_PARSE_RECOVER | XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    bool found = doc != nullptr && xmlDocGetRootElement(doc) != nullptr;
    xmlFreeDoc(doc);
    return found;
}

}  // namespace

Status ReadSourceFile(const std::string &path, std::string &content) {
    if (path.empty()) {
        return Status::SOURCE_UNREADABLE;
    }
    Host::UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat info {};
    if (fd.Get() < 0 || fstat(fd.Get(), &info) != 0 || !S_ISREG(info.st_mode)) {
        return Status::SOURCE_UNREADABLE;
    }
    if (static_cast<std::size_t>(info.st_size) > MAX_SOURCE_BYTES) {
        return Status::TOO_LARGE;
    }
    content.clear();
    content.reserve(static_cast<std::size_t>(info.st_size));
    char buffer[65536];
    for (;;) {
        ssize_t got = read(fd.Get(), buffer, sizeof(buffer));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            return Status::SOURCE_UNREADABLE;
        }
        if (got == 0) {
            return Status::OK;
        }
        if (content.size() + static_cast<std::size_t>(got) > MAX_SOURCE_BYTES) {
            return Status::TOO_LARGE;  // the file grew while it was read
        }
        content.append(buffer, static_cast<std::size_t>(got));
    }
}

Status WriteFileAtomically(const std::string &path, std::string_view content) {
    if (path.empty() || path.back() == '/') {
        return Status::DESTINATION_UNWRITABLE;
    }
    std::vector<char> temporary(path.begin(), path.end());
    static constexpr std::string_view SUFFIX = ".tmp-XXXXXX";
    temporary.insert(temporary.end(), SUFFIX.begin(), SUFFIX.end());
    temporary.push_back('\0');
    Host::UniqueFd fd(mkostemp(temporary.data(), O_CLOEXEC));
    if (fd.Get() < 0) {
        return Status::DESTINATION_UNWRITABLE;
    }
    bool written = Host::WriteAll(fd.Get(), content.data(), content.size()) && fsync(fd.Get()) == 0;
    written = fd.Close() && written;
    if (!written || rename(temporary.data(), path.c_str()) != 0) {
        unlink(temporary.data());
        return Status::DESTINATION_UNWRITABLE;
    }
    return Status::OK;
}

Status ToTextXml(std::string_view source, std::string &xml, const DecodeOptions &options) {
    if (source.empty()) {
        return Status::TRUNCATED;
    }
    // "ABX" with another version byte, or a file cut inside the magic, is binary XML gone wrong.
    if (source.substr(0, 3) == ABX_MAGIC.substr(0, 3) || ABX_MAGIC.substr(0, source.size()) == source) {
        return DecodeAbx(source, xml, options);
    }
    if (!LooksLikeTextXml(source) || !HasRootElement(source)) {
        return Status::MALFORMED;
    }
    xml.assign(source);
    return Status::OK;
}

Status ConvertFile(const std::string &source, const std::string &destination, const DecodeOptions &options) {
    std::string content;
    Status status = ReadSourceFile(source, content);
    if (status != Status::OK) {
        return status;
    }
    std::string xml;
    status = ToTextXml(content, xml, options);
    if (status != Status::OK) {
        return status;
    }
    return WriteFileAtomically(destination, xml);
}

}  // namespace Zarvo::BinaryXml
