// Feeds arbitrary bytes, as a database file (with its write-ahead log and journal beside it when
// the input carries them, see account_db_fuzzer.h), to the plug-in's account database reader
// over the platform's relational store, running the queries a restore runs in the same order.
// Its findings are memory errors, undefined behaviour and exceptions; and an accepted account
// whose export is not JSON.
#include "account_db_fuzzer.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "account_data_manager.h"
#include "account_db.h"
#include "platform_control/event_capture.h"
#include "platform_control/log_capture.h"
#include "scratch_files.h"

namespace {

using Zarvo::UpdateEngine::AccountDataInfo;

const std::string DB_NAME = "accounts_ce.db";
const char *const SIDE_FILES[] = {"-wal", "-journal"};

// Lays the database and the side files the input carries; stale ones from the last input go.
std::string LayDatabase(std::string_view input) {
    using Zarvo::Fuzzing::ACCOUNT_DB_PART_SEPARATOR;
    std::size_t end = input.find(ACCOUNT_DB_PART_SEPARATOR);
    std::string path = Zarvo::Fuzzing::WriteScratchFile(DB_NAME, input.substr(0, end));
    Zarvo::Fuzzing::RemoveScratchFile(DB_NAME + "-shm");
    for (const char *suffix : SIDE_FILES) {
        if (end == std::string_view::npos) {
            Zarvo::Fuzzing::RemoveScratchFile(DB_NAME + suffix);
            continue;
        }
        input.remove_prefix(end + ACCOUNT_DB_PART_SEPARATOR.size());
        end = input.find(ACCOUNT_DB_PART_SEPARATOR);
        Zarvo::Fuzzing::WriteScratchFile(DB_NAME + suffix, input.substr(0, end));
    }
    return path;
}

// The reading part of a restore (AccountDataManager::ParseDataBase) on this database.
bool ReadAccount(const std::string &path, AccountDataInfo &info) {
    Zarvo::UpdateEngine::AccountDB db;
    bool hasData = false;
    if (!db.InitRdb(path) || !db.QueryAccountsFromDB(info, hasData) || !hasData) {
        return false;
    }
    (void)db.QueryMetadataFromDB(info);
    return db.QueryAuthtokensFromDB(info) && !info.authtoken.empty() && db.QueryExtrasFromDB(info) &&
           !info.extras.empty();
}

// The export of an accepted account, as the restore writes it: JSON, or nothing for text that
// is not UTF-8.
void CheckExport(const AccountDataInfo &info) {
    std::string text = Zarvo::UpdateEngine::AccountDataManager().AccountDataToJson(info);
    if (!text.empty() && !nlohmann::json::accept(text)) {
        std::fprintf(stderr, "account_db_fuzzer: the export is not JSON\n%s\n", text.c_str());
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    Zarvo::Host::SetLogOutput("off");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::string path = LayDatabase(std::string_view(reinterpret_cast<const char *>(data), size));
    AccountDataInfo info{};
    if (ReadAccount(path, info)) {
        CheckExport(info);
    }
    Zarvo::Host::ClearCapturedLogs();
    Zarvo::Host::ClearCapturedEvents();
    return 0;
}
