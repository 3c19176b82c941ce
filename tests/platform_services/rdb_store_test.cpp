#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "android_accounts.h"
#include "platform_control/device_state.h"
#include "rdb_helper.h"

namespace {

using namespace Zarvo::NativeRdb;

const std::string DB_DIR = "/data/rdb_test/";
const std::string DB_PATH = DB_DIR + "accounts_ce.db";

// Records the open callbacks; all but OnOpen answer `result`.
class RecordingCallback : public RdbOpenCallback {
public:
    int OnCreate(RdbStore &) override { return Note("create"); }
    int OnUpgrade(RdbStore &, int from, int to) override {
        return Note("upgrade " + std::to_string(from) + "->" + std::to_string(to));
    }
    int OnDowngrade(RdbStore &, int from, int to) override {
        return Note("downgrade " + std::to_string(from) + "->" + std::to_string(to));
    }
    int OnOpen(RdbStore &) override { return Note("open"); }
    int Note(const std::string &call) {
        calls += call + ";";
        return call == "open" ? E_OK : result;
    }
    std::string calls;
    int result = E_OK;
};

// Empty for a file that does not exist.
std::string ReadBytes(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

// The same arguments the account restore passes.
RdbStoreConfig AccountConfig(const std::string &path) {
    RdbStoreConfig config(path, StorageMode::MODE_DISK, false, {}, DB_DEFAULT_JOURNAL_MODE, "", "",
                          SecurityLevel::LAST, true, false, 1048576, 4096, DB_DEFAULT_ENCRYPT_ALGO);
    config.SetSecurityLevel(SecurityLevel::S1);
    return config;
}

// -1 when the query gave no result set.
int RowCount(const std::shared_ptr<ResultSet> &rows) {
    int count = -1;
    if (rows != nullptr) {
        rows->GetRowCount(count);
    }
    return count;
}

class RdbStoreTest : public testing::Test {
protected:
    void SetUp() override {
        Zarvo::Host::ResetToTypicalDevice();
        std::filesystem::create_directories(DB_DIR);
        content_.accounts = {{4, "alice", "com.corvan.cvid", std::nullopt},
                             {9, "bob", "com.example.mail", std::nullopt}};
        content_.extras = {{1, 4, "k1", std::string("v1")},
                           {5, 4, "k2", std::nullopt},
                           {6, std::nullopt, "k3", std::string("v3")}};
        Write();
    }

    void Write() {
        std::string error;
        ASSERT_TRUE(Zarvo::Fixtures::WriteAccountsCeDb(DB_PATH, content_, error)) << error;
    }

    std::shared_ptr<RdbStore> Open() {
        int errCode = -1;
        auto store = RdbHelper::GetRdbStore(AccountConfig(DB_PATH), 1, callback_, errCode);
        if (store != nullptr) {
            EXPECT_EQ(errCode, E_OK);
        }
        return store;
    }

    Zarvo::Fixtures::AccountsCeDb content_;
    RecordingCallback callback_;
};

// Each file of the database that exists, with its bytes.
std::string DatabaseFiles() {
    std::string files;
    for (const std::string suffix : {"", "-wal", "-journal"}) {
        if (std::filesystem::exists(DB_PATH + suffix)) {
            files += suffix + ":" + ReadBytes(DB_PATH + suffix) + "\n";
        }
    }
    return files;
}

TEST_F(RdbStoreTest, OpensAnAndroidDatabaseWithoutChangingItsFiles) {
    // Android 9 and later leave the rows in the write-ahead log; that must be read and left as found.
    for (bool walMode : {false, true}) {
        content_.walMode = walMode;
        Write();
        callback_.calls.clear();
        const std::string before = DatabaseFiles();
        EXPECT_EQ(before.find("-wal:") != std::string::npos, walMode);
        {
            auto store = Open();
            ASSERT_NE(store, nullptr);
            EXPECT_EQ(RowCount(store->QuerySql("SELECT * FROM extras")), 3);
            int version = 0;
            EXPECT_EQ(store->GetVersion(version), E_OK);
            EXPECT_EQ(version, 10);
        }
        EXPECT_EQ(DatabaseFiles(), before) << "wal " << walMode;
        // The version 10 file opened for version 1 is reported as a downgrade, and never stamped.
        EXPECT_EQ(callback_.calls, "downgrade 10->1;open;");
    }
}

TEST_F(RdbStoreTest, QueriesOnlyReadAndTakeDoubleQuotedTextAsALiteral) {
    auto store = Open();
    ASSERT_NE(store, nullptr);
    const std::vector<std::tuple<std::string, std::vector<std::string>, int>> cases = {
        {"SELECT * FROM accounts WHERE type = \"com.corvan.cvid\"", {}, 1},
        {"SELECT * FROM accounts WHERE type = \"com.corvan\"", {}, 0},
        {"SELECT name FROM accounts WHERE type = ?", {"com.example.mail"}, 1},
        {"SELECT * FROM accounts WHERE _id = ?", {}, -1},
        {"SELECT * FROM no_such_table", {}, -1},
        {"DELETE FROM accounts", {}, -1},
        {"SELECT * FROM accounts; DELETE FROM accounts", {}, -1},
        {"SELECT * FROM accounts", {}, 2},
    };
    for (const auto &[sql, args, count] : cases) {
        EXPECT_EQ(RowCount(store->QuerySql(sql, args)), count) << sql;
    }
}

TEST_F(RdbStoreTest, OpenFailuresGiveACodeAndNoStore) {
    std::ofstream(DB_DIR + "garbage.db")
        << "this is not a database, just some text of a reasonable length......";
    const std::vector<std::pair<RdbStoreConfig, int>> cases = {
        {AccountConfig(DB_DIR + "missing.db"), E_DB_NOT_EXIST},
        {AccountConfig("relative.db"), E_INVALID_FILE_PATH},
        {AccountConfig(DB_DIR), E_DB_NOT_EXIST},
        {AccountConfig(DB_DIR + "garbage.db"), E_SQLITE_ERROR},
        {RdbStoreConfig(DB_PATH, StorageMode::MODE_DISK, false, {1, 2, 3}), E_NOT_SUPPORT},
    };
    for (const auto &[config, code] : cases) {
        int errCode = E_OK;
        EXPECT_EQ(RdbHelper::GetRdbStore(config, 1, callback_, errCode), nullptr) << config.GetPath();
        EXPECT_EQ(errCode, code) << config.GetPath();
    }
    EXPECT_FALSE(std::filesystem::exists(DB_DIR + "missing.db"));
    EXPECT_EQ(callback_.calls, "");
    callback_.result = 7;
    int errCode = E_OK;
    EXPECT_EQ(RdbHelper::GetRdbStore(AccountConfig(DB_PATH), 1, callback_, errCode), nullptr);
    EXPECT_EQ(errCode, E_CALLBACK_FAILED);
}

TEST_F(RdbStoreTest, TheLastRowTestAnswersBeforeTheFirstMove) {
    auto store = Open();
    ASSERT_NE(store, nullptr);
    // An empty result stands at its last row at once: the extras reader relies on that.
    auto none = store->QuerySql("SELECT * FROM extras WHERE accounts_id = 77");
    ASSERT_NE(none, nullptr);
    bool last = false;
    EXPECT_EQ(none->IsAtLastRow(last), E_OK);
    EXPECT_TRUE(last);
    RowEntity row;
    EXPECT_EQ(none->GetRow(row), E_ROW_OUT_RANGE);
    auto rows = store->QuerySql("SELECT * FROM extras WHERE accounts_id = 4");
    ASSERT_NE(rows, nullptr);
    for (bool expected : {false, false, true}) {
        EXPECT_EQ(rows->IsAtLastRow(last), E_OK);
        EXPECT_EQ(last, expected);
        if (!last) {
            EXPECT_EQ(rows->GoToNextRow(), E_OK);
        }
    }
    EXPECT_EQ(rows->GoToNextRow(), E_ROW_OUT_RANGE);
}

}  // namespace
