// Writes the seed corpus of every fuzz target, made with the project's own writers (binary XML
// encoder, Android fixture writers, device state), into <dir>/<target>/, replacing what is there.
// Usage: make_fuzz_seeds <dir>     (scripts/fuzz --regenerate-seeds writes fuzz/corpus/ with it)
#include <archive.h>
#include <archive_entry.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "account_db_fuzzer.h"
#include "android_accounts.h"
#include "android_users.h"
#include "archive_snapshot_fuzzer.h"
#include "binary_xml/abx_format.h"
#include "binary_xml/abx_writer.h"
#include "migrate_request_vocabulary.h"
#include "migrate_service/migrate_protocol.h"
#include "platform_control/device_state.h"
#include "source_users_fuzzer.h"

namespace {

namespace fs = std::filesystem;
using namespace Zarvo::Fixtures;
using Zarvo::BinaryXml::AbxWriter;

class SeedDir {
public:
    SeedDir(const fs::path &dir, const std::string &target) : dir_(dir / target) {
        fs::remove_all(dir_);
        fs::create_directories(dir_);
    }

    void Write(const std::string &name, const std::string &content) const {
        std::ofstream(dir_ / name, std::ios::binary) << content;
    }

private:
    fs::path dir_;
};

std::string ReadFile(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

std::string WithoutMagic(const std::string &abx) {
    return abx.substr(Zarvo::BinaryXml::ABX_MAGIC.size());
}

// Every token and value type of the binary form, and the shapes the decoder treats specially.
std::vector<std::pair<std::string, std::string>> WriterDocuments() {
    AbxWriter all;
    all.StartDocument()
        .Docdecl("users [<!ENTITY e \"x\">]")
        .Comment("before the root")
        .ProcessingInstruction("target data")
        .StartTag("r")
        .Attribute("s", "text & \"quotes\"\t")
        .AttributeInterned("i", "interned")
        .Attribute("n", std::int32_t{-7})
        .Attribute("l", std::int64_t{1700000000000})
        .Attribute("t", true)
        .Attribute("f", false)
        .Attribute("fl", 0.3f)
        .Attribute("d", 1e10)
        .AttributeIntHex("ih", -1)
        .AttributeLongHex("lh", 0x7fffffffffffLL)
        .AttributeBytesHex("bh", std::string("\x00\xff", 2))
        .AttributeBytesBase64("b64", "any bytes")
        .Attribute("s", "a repeated name")
        .Text("t\xc3\xa9xt \xf0\x9f\x98\x80 <&>\r")
        .Cdsect("raw ]]> \r")
        .EntityRef("amp")
        .EntityRef("#x1F600")
        .EntityRef("#60")
        .IgnorableWhitespace("\n  ")
        .StartTag("child")
        .EndTag("child")
        .Comment("a -- b -")
        .EndTag("r")
        .IgnorableWhitespace("\n")
        .StartTag("second")
        .EndTag("second")
        .EndDocument();
    AbxWriter deep;
    deep.StartDocument();
    for (int i = 0; i < 40; ++i) {
        deep.StartTag(i % 2 == 0 ? "a" : "b");
    }
    for (int i = 39; i >= 0; --i) {
        deep.EndTag(i % 2 == 0 ? "a" : "b");
    }
    deep.EndDocument();
    AbxWriter surrogates(AbxWriter::Supplementary::SURROGATE_PAIR);
    surrogates.StartTag("p:r").Attribute("xmlns:p", "urn:p").Text("\xf0\x9f\x90\xbc").EndTag("p:r");
    return {{"all-tokens", all.Data()}, {"deep", deep.Data()}, {"surrogate-pairs", surrogates.Data()}};
}

void WriteAbxDecoderSeeds(const fs::path &dir) {
    SeedDir seeds(dir, "abx_decoder_fuzzer");
    AndroidUsers users = SamplePhoneUsers();
    // The target puts the magic in front of every input.
    seeds.Write("userlist", WithoutMagic(EncodeUserList(users, UserFileForm::BINARY)));
    for (const AndroidUser &user : users.users) {
        seeds.Write("user-" + std::to_string(user.id),
                    WithoutMagic(EncodeUserFile(user, UserFileForm::BINARY)));
    }
    seeds.Write("user-10-surrogate-pairs",
                WithoutMagic(EncodeUserFile(users.users[1], UserFileForm::BINARY_SURROGATE_PAIRS)));
    for (const auto &[name, abx] : WriterDocuments()) {
        seeds.Write(name, WithoutMagic(abx));
    }
}

const char *const TEXT_DOCUMENTS[][2] = {
    {"namespaces",
     "<?xml version=\"1.0\"?>\n<p:r xmlns:p=\"urn:p\" xmlns=\"urn:d\" p:a=\"1\" b=\"x&amp;y\"><c "
     "p:d=\"\"/></p:r>"},
    {"character-data", "<r>t&#233;xt <![CDATA[<raw> & ]]>&lt;&#x1F600;<!-- note --><?pi data?>\n  </r>"},
    {"entities",
     "<!DOCTYPE r [<!ENTITY e \"x&#38;#38;y\"><!ENTITY f \"<b a='1'>t</b>\">]><r a=\"&e;\">&e;&f;</r>"},
    {"typed-values",
     "<r t=\"true\" f=\"false\" i=\"-2147483648\" l=\"9223372036854775807\" z=\"007\" s=\"-0\"/>"},
    {"around-the-root", "<!-- head --><?pi one?>\n<r>\r\n\t</r>\n<!-- tail -->"},
};

void WriteXmlToAbxSeeds(const fs::path &dir) {
    SeedDir seeds(dir, "xml_to_abx_fuzzer");
    AndroidUsers users = SamplePhoneUsers();
    seeds.Write("userlist.xml", EncodeUserList(users, UserFileForm::TEXT));
    seeds.Write("user-10.xml", EncodeUserFile(users.users[1], UserFileForm::TEXT));
    for (const auto &[name, text] : TEXT_DOCUMENTS) {
        seeds.Write(std::string(name) + ".xml", text);
    }
}

void WriteUserXmlSeeds(const fs::path &dir) {
    SeedDir seeds(dir, "user_xml_fuzzer");
    AndroidUsers users = SamplePhoneUsers();
    seeds.Write("userlist.abx", EncodeUserList(users, UserFileForm::BINARY));
    seeds.Write("userlist.xml", EncodeUserList(users, UserFileForm::TEXT));
    for (const AndroidUser &user : users.users) {
        std::string id = std::to_string(user.id);
        seeds.Write(id + ".abx", EncodeUserFile(user, UserFileForm::BINARY));
        seeds.Write(id + ".xml", EncodeUserFile(user, UserFileForm::TEXT));
    }
    // Files a restore refuses: Android 10 writes no user type, and a profile without a name.
    AndroidUser old = users.users[1];
    old.type.reset();
    seeds.Write("no-type.abx", EncodeUserFile(old, UserFileForm::BINARY));
    AndroidUser unnamed = users.users[3];
    unnamed.name.reset();
    seeds.Write("no-name.xml", EncodeUserFile(unnamed, UserFileForm::TEXT));
}

// Each character of an ASCII text as two bytes, the low one first, after a byte order mark.
std::string Utf16Le(const std::string &ascii) {
    std::string wide = "\xFF\xFE";
    for (char c : ascii) {
        wide += c;
        wide += '\0';
    }
    return wide;
}

void WriteSourceUsersSeeds(const fs::path &dir) {
    SeedDir seeds(dir, "source_users_fuzzer");
    const std::string separator(Zarvo::Fuzzing::SOURCE_USERS_PART_SEPARATOR);
    AndroidUsers users = SamplePhoneUsers();
    const AndroidUser &owner = users.users[0];
    const AndroidUser &full = users.users[1];
    for (UserFileForm form : {UserFileForm::TEXT, UserFileForm::BINARY}) {
        const std::string suffix = form == UserFileForm::TEXT ? ".xml" : ".abx";
        seeds.Write("owner" + suffix, EncodeUserList(users, form) + separator + EncodeUserFile(owner, form) +
                                          separator + SampleAvatarPng());
        seeds.Write("full" + suffix, EncodeUserList(users, form) + separator + EncodeUserFile(full, form));
    }
    // One user listed over and over, and a file in UTF-16 with entity declarations.
    std::string repeated = "<users version=\"10\">";
    for (int i = 0; i < 20; ++i) {
        repeated += "<user id=\"10\"/>";
    }
    seeds.Write("listed-again.xml", repeated + "</users>" + separator +
                                        EncodeUserFile(full, UserFileForm::TEXT) + separator +
                                        SampleAvatarPng());
    seeds.Write(
        "utf16-entities.xml",
        Utf16Le("<users><user id=\"10\"/></users>") + separator +
            Utf16Le("<?xml version=\"1.0\" encoding=\"UTF-16\"?><!DOCTYPE user [<!ENTITY a \"aaaaaaaa\">"
                    "<!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;\">]><user id=\"10\"><name>&b;&b;</name></user>"));
}

// Rewrites a database with 512-byte pages: the same schema and rows in far fewer bytes, so that
// the fuzzer spends its mutations on structure rather than on empty page space.
void UseSmallPages(const fs::path &db) {
    sqlite3 *handle = nullptr;
    int rc = sqlite3_open(db.c_str(), &handle);
    if (rc == SQLITE_OK) {
        rc = sqlite3_exec(handle, "PRAGMA page_size = 512; VACUUM;", nullptr, nullptr, nullptr);
    }
    sqlite3_close(handle);
    if (rc != SQLITE_OK) {
        throw std::runtime_error("cannot rewrite " + db.string() + " with small pages");
    }
}

void WriteAccountDbSeeds(const fs::path &dir, const fs::path &work) {
    SeedDir seeds(dir, "account_db_fuzzer");
    AccountsCeDb sample = SamplePhoneAccounts();
    AccountsCeDb legacy = sample;
    legacy.legacyAccountsColumns = true;
    AccountsCeDb wal = sample;
    wal.walMode = true;
    AccountsCeDb noCvid = sample;
    noCvid.accounts.erase(noCvid.accounts.begin() + 1);
    AccountsCeDb noLocale = sample;
    noLocale.locale.reset();
    AccountsCeDb noToken = sample;
    noToken.authtokens.pop_back();
    AccountsCeDb nulls;
    nulls.accounts = {{3, "", CVID_ACCOUNT_TYPE, std::nullopt}};
    nulls.authtokens = {{1, 3, CVID_ACCOUNT_TYPE, std::nullopt}};
    nulls.extras = {{1, std::nullopt, "k", std::nullopt}, {2, 3, "", std::nullopt}};
    const std::pair<const char *, const AccountsCeDb *> databases[] = {
        {"sample", &sample},          {"legacy-columns", &legacy}, {"wal", &wal},
        {"no-cvid-account", &noCvid}, {"no-locale", &noLocale},    {"no-cvid-token", &noToken},
        {"null-values", &nulls},
    };
    const std::string separator(Zarvo::Fuzzing::ACCOUNT_DB_PART_SEPARATOR);
    for (const auto &[name, content] : databases) {
        fs::path db = work / "accounts_ce.db";
        std::string error;
        if (!WriteAccountsCeDb(db.string(), *content, error)) {
            throw std::runtime_error(error);
        }
        // Two keep the device's 4096-byte pages; the others shrink.
        if (!content->walMode && std::string(name) != "sample") {
            UseSmallPages(db);
        }
        std::string input = ReadFile(db);
        if (fs::exists(db.string() + "-wal") || fs::exists(db.string() + "-journal")) {
            input += separator + ReadFile(db.string() + "-wal");
        }
        if (fs::exists(db.string() + "-journal")) {
            input += separator + ReadFile(db.string() + "-journal");
        }
        seeds.Write(std::string(name) + ".db", input);
    }
}

const char *const DEVICE_STATES[][2] = {
    {"accounts-and-faults.json",
     R"({"osAccounts": [{"localId": 100, "localName": "owner", "type": "ADMIN", "isActived": true,
  "serialNumber": 2023000000, "createTime": 1700000000000},
  {"localId": 101, "localName": "guest", "type": 2, "toBeRemoved": true}],
 "bundles": [{"name": "com.corvan.zmx.corvanid", "appId": 10040, "userIds": [100, 101]}],
 "faults": [{"operation": "CreateOsAccountWithFullInfo", "code": 12, "count": 2},
  {"operation": "GetRdbStore", "outOfMemory": true}]})"},
    {"migrate-service-faults.json",
     R"({"migrateService": {"faults": [{"operation": "COPY_ALL_FILE", "action": "fail", "result": -1, "errCode": 28},
  {"operation": 3, "action": "stall", "stallMs": 10, "count": -1}, {"action": "drop"}]}})"},
    {"fault-file.json", R"({"faults": [{"operation": "ANY", "action": "fail", "errCode": 5, "count": 1}]})"},
    {"wrong-types.json", R"({"osAccounts": [{"localId": "100"}], "bundles": {}, "faults": [1]})"},
};

// Account exports as the plug-in writes them, and the shapes a reading one extra at a time must
// keep apart: a second "extras" member, one that is no array, "extras" deeper down, escapes.
void WriteAccountExportSeeds(const fs::path &dir) {
    SeedDir seeds(dir, "account_export_fuzzer");
    const std::pair<const char *, const char *> exports[] = {
        {"export.json",
         R"({"authtoken":"a1b2","extras":[{"id":7,"key":"nick","value":"Al"},{"id":9,"key":"k","value":"v"}],)"
         R"("id":3,"locale":"en_US","name":"alice","type":"com.corvan.cvid"})"},
        {"no-extras.json", R"({"authtoken":"t","extras":[],"id":-1,"locale":"","name":"","type":""})"},
        {"extras-twice.json",
         R"({"extras":[{"id":1}],"name":"a","extras":[{"id":2},3,[4]],"x":{"extras":[5]}})"},
        {"extras-not-array.json", R"({"extras":[{"id":1}],"extras":{"id":2},"y":[{"extras":[6]}]})"},
        {"escapes.json",
         R"({"extras":[{"key":"a\"b\\c\u0001","value":"\u00e9\u2028\ud83d\ude00</script>"}],"n":1.5e300})"},
        {"not-an-object.json", R"([{"extras":[1,2]},"extras",null,true,-0.0])"},
    };
    for (const auto &[name, text] : exports) {
        seeds.Write(name, text);
    }
}

void WriteDeviceStateSeeds(const fs::path &dir) {
    SeedDir seeds(dir, "device_state_fuzzer");
    Zarvo::Host::ResetToTypicalDevice();
    seeds.Write("typical-device.json", Zarvo::Host::DeviceStateToJson());
    for (const auto &[name, text] : DEVICE_STATES) {
        seeds.Write(name, text);
    }
}

// Writes an input in FuzzedDataProvider's layout: texts from the front (a backslash doubled, a
// backslash and another byte ending the text), one-byte choices from the back in reverse order.
class ProviderInput {
public:
    ProviderInput &Choice(std::uint8_t value) {
        back_.insert(back_.begin(), static_cast<char>(value));
        return *this;
    }

    ProviderInput &Text(const std::string &text) {
        for (char c : text) {
            front_ += c;
            if (c == '\\') {
                front_ += '\\';
            }
        }
        front_ += "\\ ";
        return *this;
    }

    std::string Data() const { return front_ + back_; }

private:
    std::string front_;
    std::string back_;
};

template <std::size_t N>
std::uint8_t IndexOf(const char *const (&words)[N], const std::string &word) {
    for (std::size_t i = 0; i < N; ++i) {
        if (word == words[i]) {
            return static_cast<std::uint8_t>(i);
        }
    }
    throw std::runtime_error("not in the vocabulary: " + word);
}

struct SeedRequest {
    Zarvo::Host::MigrateOp op;
    const char *src;
    const char *dst = "";
    int32_t recurseOpt = 0;
    const char *uid = "";
    const char *gid = "";
    const char *perm = "";
};

void AppendRequest(ProviderInput &input, const SeedRequest &request) {
    using namespace Zarvo::Fuzzing;
    input.Choice(1);  // not a raw request
    input.Choice(static_cast<std::uint8_t>(request.op));
    input.Choice(request.recurseOpt == 2 ? 1 : 0);
    input.Choice(IndexOf(MIGRATE_FUZZ_PATHS, request.src));
    input.Choice(IndexOf(MIGRATE_FUZZ_PATHS, request.dst));
    input.Choice(IndexOf(MIGRATE_FUZZ_OWNERS, request.uid));
    input.Choice(IndexOf(MIGRATE_FUZZ_OWNERS, request.gid));
    input.Choice(IndexOf(MIGRATE_FUZZ_MODES, request.perm));
}

void WriteMigrateRequestSeeds(const fs::path &dir) {
    using Op = Zarvo::Host::MigrateOp;
    SeedDir seeds(dir, "migrate_request_fuzzer");
    const std::vector<std::pair<const char *, std::vector<SeedRequest>>> sequences = {
        {"exists", {{Op::IS_FILE_EXIST, "@/root/file.txt"}, {Op::IS_DIR, "@/root/link-out"}}},
        {"list-and-size", {{Op::GET_PATH_LIST, "@/root"}, {Op::GET_PATH_SIZE, "@/root/dir"}}},
        {"prepare-dir", {{Op::PREPARE_DIR, "@/root/new/deeper/leaf", "", 2, "1000", "1000", "0700"}}},
        {"move-sub", {{Op::MOVE_SUB_FILE, "@/root/dir", "@/root2/new"}}},
        {"move-all", {{Op::MOVE_ALL_FILE, "@/root/link-out", "@/root2/new"}}},
        {"copy-sub", {{Op::COPY_SUB_FILE, "@/root", "@/root2/new"}}},
        {"copy-all", {{Op::COPY_ALL_FILE, "@/root2/f.txt", "@/root/hard-out"}}},
        {"remove",
         {{Op::REMOVE_FILE, "@/root/link-dir-out"}, {Op::TRY_REMOVE, "@/root/dir/../../outside/secret.txt"}}},
        {"restorecon", {{Op::RESTORE_CON, "@/root/dir", "", 2}, {Op::RESTORECON_FROM_PARENT, "@/root/pipe"}}},
        {"mkdir", {{Op::MK_DIR, "@/root/link-out/sub", "", 2}}},
        {"chown",
         {{Op::CHOWN, "@/root", "", 2, "nobody", "daemon"}, {Op::CHOWN, "@/root/link-rel", "", 0, "1000"}}},
        {"chmod",
         {{Op::CHMOD, "@/root/dir", "", 2, "", "", "0777"},
          {Op::CHMOD, "@/root/link-in", "", 0, "", "", "644"}}},
        {"exist-directory",
         {{Op::GET_EXIST_DIRECTORY, "@/root/new/deeper/leaf"}, {Op::GET_EXIST_DIRECTORY, "@/root-x/f.txt"}}},
        {"then-follow",
         {{Op::MOVE_ALL_FILE, "@/root/link-out", "@/root/new"},
          {Op::CHMOD, "@/root/new", "", 2, "", "", "0777"}}},
    };
    for (const auto &[name, requests] : sequences) {
        ProviderInput input;
        for (const SeedRequest &request : requests) {
            AppendRequest(input, request);
        }
        seeds.Write(name, input.Data());
    }
    // A path with raw text after a word, and a request that comes whole from raw bytes.
    ProviderInput suffix;
    suffix.Choice(1).Choice(static_cast<std::uint8_t>(Op::REMOVE_FILE)).Choice(0);
    suffix.Choice(Zarvo::Fuzzing::MIGRATE_FUZZ_PATH_COUNT + 1)
        .Choice(IndexOf(Zarvo::Fuzzing::MIGRATE_FUZZ_PATHS, "@/root"));
    suffix.Text("/../root2/f.txt");
    seeds.Write("raw-suffix", suffix.Data());
    std::string raw(Zarvo::Host::REQUEST_LENGTH, '\0');
    const std::string path = std::string(Zarvo::Fuzzing::MIGRATE_FUZZ_BASE) + "/root/dir";
    raw.replace(Zarvo::Host::REQUEST_SRC_OFFSET, path.size(), path);
    raw.replace(Zarvo::Host::REQUEST_PERM_OFFSET, 3, "755");
    raw[Zarvo::Host::REQUEST_TYPE_OFFSET] = static_cast<char>(Op::CHMOD);
    ProviderInput whole;
    seeds.Write("raw-request", std::string(raw) + whole.Choice(0).Data());
}

}  // namespace

// One member of an archive seed: a file, or a symbolic link to `content`.
struct ArchiveMember {
    std::string name;
    std::string content;
    bool link = false;
};

std::string WriteArchiveBytes(bool zip, const std::vector<ArchiveMember> &members) {
    std::unique_ptr<archive, decltype(&archive_write_free)> a(archive_write_new(), archive_write_free);
    zip ? archive_write_set_format_zip(a.get()) : archive_write_set_format_pax_restricted(a.get());
    std::string bytes(1 << 20, '\0');
    size_t used = 0;
    if (archive_write_open_memory(a.get(), bytes.data(), bytes.size(), &used) != ARCHIVE_OK) {
        throw std::runtime_error(archive_error_string(a.get()));
    }
    for (const ArchiveMember &member : members) {
        std::unique_ptr<archive_entry, decltype(&archive_entry_free)> entry(archive_entry_new(),
                                                                            archive_entry_free);
        archive_entry_set_pathname(entry.get(), member.name.c_str());
        archive_entry_set_filetype(entry.get(), member.link ? AE_IFLNK : AE_IFREG);
        archive_entry_set_perm(entry.get(), 0644);
        if (member.link) {
            archive_entry_set_symlink(entry.get(), member.content.c_str());
        }
        archive_entry_set_size(entry.get(), member.link ? 0 : static_cast<la_int64_t>(member.content.size()));
        if (archive_write_header(a.get(), entry.get()) != ARCHIVE_OK ||
            (!member.link && archive_write_data(a.get(), member.content.data(), member.content.size()) < 0)) {
            throw std::runtime_error(archive_error_string(a.get()));
        }
    }
    if (archive_write_close(a.get()) != ARCHIVE_OK) {
        throw std::runtime_error(archive_error_string(a.get()));
    }
    bytes.resize(used);
    return bytes;
}

// Added beside the archives make_sample_phone writes, which stay: a tar split into three pieces
// with a user's file across all of them, and a zip whose user's file is a stored link.
void WriteArchiveSeeds(const fs::path &dir) {
    const fs::path target = dir / "archive_snapshot_fuzzer";
    fs::create_directories(target);
    const AndroidUsers users = SamplePhoneUsers();
    const std::string list = EncodeUserList(users, UserFileForm::BINARY);
    const std::string tar = WriteArchiveBytes(
        false, {{"data/system/users/userlist.xml", list},
                {"data/system/users/0.xml", EncodeUserFile(users.users[0], UserFileForm::BINARY)}});
    const size_t third = tar.size() / 3;
    std::string split = tar.substr(0, third);
    for (size_t start = third; start < tar.size(); start += third) {
        split += std::string(Zarvo::Fuzzing::ARCHIVE_PIECE_SEPARATOR) + tar.substr(start, third);
    }
    std::ofstream(target / "split-pieces", std::ios::binary) << split;
    std::ofstream(target / "zip-link.zip", std::ios::binary)
        << WriteArchiveBytes(true, {{"fs/data/system/users/userlist.xml", list},
                                    {"fs/data/system/users/0.xml", "/etc/passwd", true}});
}

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s <corpus-dir>\n", argv[0]);
        return 2;
    }
    try {
        fs::path dir = argv[1];
        fs::path work = fs::temp_directory_path() / ("make-fuzz-seeds-" + std::to_string(getpid()));
        fs::create_directories(work);
        WriteAbxDecoderSeeds(dir);
        WriteXmlToAbxSeeds(dir);
        WriteUserXmlSeeds(dir);
        WriteSourceUsersSeeds(dir);
        WriteAccountDbSeeds(dir, work);
        WriteAccountExportSeeds(dir);
        WriteDeviceStateSeeds(dir);
        WriteMigrateRequestSeeds(dir);
        WriteArchiveSeeds(dir);
        fs::remove_all(work);
    } catch (const std::exception &e) {
        std::fprintf(stderr, "make_fuzz_seeds: %s\n", e.what());
        return 1;
    }
    return 0;
}
