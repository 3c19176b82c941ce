#include <dirent.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <climits>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "android_accounts.h"
#include "platform_control/device_state.h"
#include "rdb_helper.h"

namespace {

using namespace Zarvo::NativeRdb;
using Zarvo::Fixtures::AccountsCeDb;

const std::string DB_DIR = "/data/rdb_test/";
const std::string DB_PATH = DB_DIR + "accounts_ce.db";

class RecordingCallback : public RdbOpenCallback {
public:
    int OnCreate(RdbStore &) override {
        calls += "create;";
        return result;
    }
    int OnUpgrade(RdbStore &, int current, int target) override {
        calls += "upgrade " + std::to_string(current) + "->" + std::to_string(target) + ";";
        return result;
    }
    int OnDowngrade(RdbStore &, int current, int target) override {
        calls += "downgrade " + std::to_string(current) + "->" + std::to_string(target) + ";";
        return result;
    }
    int OnOpen(RdbStore &) override {
        calls += "open;";
        return E_OK;
    }
    std::string calls;
    int result = E_OK;
};

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

int OpenDescriptorsOf(const std::string &path) {
    int count = 0;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        char target[PATH_MAX] = {};
        ssize_t length = readlink(entry.path().c_str(), target, sizeof(target) - 1);
        if (length > 0 && std::string(target, static_cast<size_t>(length)) == path) {
            ++count;
        }
    }
    return count;
}

class RdbStoreTest : public testing::Test {
protected:
    void SetUp() override {
        Zarvo::Host::ResetToTypicalDevice();
        std::filesystem::create_directories(DB_DIR);
        content_.accounts = {{4, "alice", "com.corvan.cvid", std::nullopt},
                             {9, "bob", "com.example.mail", std::string("pw")}};
        content_.authtokens = {{2, 4, "com.corvan.cvid", std::nullopt}};
        content_.extras = {{1, 4, "k1", std::string("v1")},
                           {5, 4, "k2", std::nullopt},
                           {6, std::nullopt, "k3", std::string("v3")}};
        Write();
    }

    void Write() {
        std::string error;
        ASSERT_TRUE(Zarvo::Fixtures::WriteAccountsCeDb(DB_PATH, content_, error)) << error;
    }

    std::shared_ptr<RdbStore> Open(int &errCode) {
        errCode = E_OK;
        return RdbHelper::GetRdbStore(AccountConfig(DB_PATH), 1, callback_, errCode);
    }

    AccountsCeDb content_;
    RecordingCallback callback_;
};

TEST_F(RdbStoreTest, OpensAnAndroidDatabaseWithoutChangingItsFiles) {
    std::string before = ReadBytes(DB_PATH);
    int errCode = -1;
    {
        auto store = Open(errCode);
        ASSERT_NE(store, nullptr);
        EXPECT_EQ(errCode, E_OK);
        auto rows = store->QuerySql("SELECT * FROM accounts WHERE type = \"com.corvan.cvid\"");
        ASSERT_NE(rows, nullptr);
        int count = 0;
        EXPECT_EQ(rows->GetRowCount(count), E_OK);
        EXPECT_EQ(count, 1);
        int version = 0;
        EXPECT_EQ(store->GetVersion(version), E_OK);
        EXPECT_EQ(version, 10);
    }
    EXPECT_EQ(ReadBytes(DB_PATH), before);
    EXPECT_FALSE(std::filesystem::exists(DB_PATH + "-wal"));
    EXPECT_EQ(std::filesystem::file_size(DB_PATH + "-journal"), 0u);
    // The version 10 file opened for version 1 is reported as a downgrade, and never stamped.
    EXPECT_EQ(callback_.calls, "downgrade 10->1;open;");
}

TEST_F(RdbStoreTest, AWalDatabaseIsReadWithItsLogAndLeftAsFound) {
    content_.walMode = true;
    Write();
    ASSERT_GT(std::filesystem::file_size(DB_PATH + "-wal"), 0u);
    std::string mainBefore = ReadBytes(DB_PATH);
    std::string walBefore = ReadBytes(DB_PATH + "-wal");
    {
        int errCode = 0;
        auto store = Open(errCode);
        ASSERT_NE(store, nullptr);
        auto rows = store->QuerySql("SELECT * FROM extras");
        ASSERT_NE(rows, nullptr);
        int count = 0;
        rows->GetRowCount(count);
        EXPECT_EQ(count, 3);
    }
    EXPECT_EQ(ReadBytes(DB_PATH), mainBefore);
    EXPECT_EQ(ReadBytes(DB_PATH + "-wal"), walBefore);
}

TEST_F(RdbStoreTest, DoubleQuotedTextIsALiteralAndMatchesNothingElse) {
    int errCode = 0;
    auto store = Open(errCode);
    ASSERT_NE(store, nullptr);
    auto rows = store->QuerySql("SELECT * FROM accounts WHERE type = \"com.example.mail\"");
    ASSERT_NE(rows, nullptr);
    ASSERT_EQ(rows->GoToFirstRow(), E_OK);
    std::string name;
    EXPECT_EQ(rows->GetString(1, name), E_OK);
    EXPECT_EQ(name, "bob");
    auto none = store->QuerySql("SELECT * FROM accounts WHERE type = \"com.corvan\"");
    ASSERT_NE(none, nullptr);
    int count = -1;
    none->GetRowCount(count);
    EXPECT_EQ(count, 0);
}

TEST_F(RdbStoreTest, OpenFailuresReportACodeAndNoStore) {
    int errCode = E_OK;
    RecordingCallback callback;
    EXPECT_EQ(RdbHelper::GetRdbStore(AccountConfig(DB_DIR + "missing.db"), 1, callback, errCode), nullptr);
    EXPECT_EQ(errCode, E_DB_NOT_EXIST);
    EXPECT_FALSE(std::filesystem::exists(DB_DIR + "missing.db"));

    EXPECT_EQ(RdbHelper::GetRdbStore(AccountConfig("relative.db"), 1, callback, errCode), nullptr);
    EXPECT_EQ(errCode, E_INVALID_FILE_PATH);

    EXPECT_EQ(RdbHelper::GetRdbStore(AccountConfig(DB_DIR), 1, callback, errCode), nullptr);
    EXPECT_EQ(errCode, E_DB_NOT_EXIST);

    std::ofstream(DB_DIR + "garbage.db")
        << "this is not a database, just some text of a reasonable length......";
    EXPECT_EQ(RdbHelper::GetRdbStore(AccountConfig(DB_DIR + "garbage.db"), 1, callback, errCode), nullptr);
    EXPECT_EQ(errCode, E_SQLITE_ERROR);

    RdbStoreConfig encrypted(DB_PATH, StorageMode::MODE_DISK, false, {1, 2, 3});
    EXPECT_EQ(RdbHelper::GetRdbStore(encrypted, 1, callback, errCode), nullptr);
    EXPECT_EQ(errCode, E_NOT_SUPPORT);
    EXPECT_EQ(callback.calls, "");
}

TEST_F(RdbStoreTest, ACallbackThatFailsFailsTheOpen) {
    callback_.result = 7;
    int errCode = E_OK;
    EXPECT_EQ(Open(errCode), nullptr);
    EXPECT_EQ(errCode, E_CALLBACK_FAILED);
}

TEST_F(RdbStoreTest, TheCallbackHearsHowTheVersionsRelate) {
    int errCode = 0;
    {
        auto store = RdbHelper::GetRdbStore(AccountConfig(DB_PATH), 12, callback_, errCode);
        ASSERT_NE(store, nullptr);
        auto same = RdbHelper::GetRdbStore(AccountConfig(DB_PATH), 10, callback_, errCode);
        ASSERT_NE(same, nullptr);
    }
    const std::string plain = DB_DIR + "plain.db";
    sqlite3 *db = nullptr;
    ASSERT_EQ(sqlite3_open(plain.c_str(), &db), SQLITE_OK);
    sqlite3_exec(db, "CREATE TABLE t (x)", nullptr, nullptr, nullptr);
    sqlite3_close(db);
    {
        auto store = RdbHelper::GetRdbStore(AccountConfig(plain), 1, callback_, errCode);
        ASSERT_NE(store, nullptr);
        int version = -1;
        store->GetVersion(version);
        EXPECT_EQ(version, 0);
    }
    EXPECT_EQ(callback_.calls, "upgrade 10->12;open;open;create;open;");
}

TEST_F(RdbStoreTest, InjectedOpenFaultsFailTheFirstCallsOnly) {
    ASSERT_TRUE(Zarvo::Host::InjectFault("GetRdbStore", 1234, 2));
    int errCode = 0;
    EXPECT_EQ(Open(errCode), nullptr);
    EXPECT_EQ(errCode, 1234);
    EXPECT_EQ(Open(errCode), nullptr);
    EXPECT_NE(Open(errCode), nullptr);
    EXPECT_EQ(errCode, E_OK);
    EXPECT_EQ(Zarvo::Host::CallCount("GetRdbStore"), 3);
}

TEST_F(RdbStoreTest, TheStoreClosesWhenTheLastHolderLetsGo) {
    int errCode = 0;
    auto store = Open(errCode);
    ASSERT_NE(store, nullptr);
    auto second = store;
    EXPECT_EQ(OpenDescriptorsOf(DB_PATH), 1);
    store.reset();
    EXPECT_EQ(OpenDescriptorsOf(DB_PATH), 1);
    second.reset();
    EXPECT_EQ(OpenDescriptorsOf(DB_PATH), 0);
}

TEST_F(RdbStoreTest, QuerySqlOnlyReads) {
    int errCode = 0;
    auto store = Open(errCode);
    ASSERT_NE(store, nullptr);
    EXPECT_EQ(store->QuerySql("DELETE FROM accounts"), nullptr);
    EXPECT_EQ(store->QuerySql("SELECT * FROM accounts; DELETE FROM accounts"), nullptr);
    EXPECT_EQ(store->QuerySql("SELECT * FROM no_such_table"), nullptr);
    EXPECT_EQ(store->QuerySql("SELECT * FROM accounts WHERE _id = ?"), nullptr);
    auto rows = store->QuerySql("SELECT * FROM accounts");
    ASSERT_NE(rows, nullptr);
    int count = 0;
    rows->GetRowCount(count);
    EXPECT_EQ(count, 2);
}

TEST_F(RdbStoreTest, BindArgumentsAreText) {
    int errCode = 0;
    auto store = Open(errCode);
    ASSERT_NE(store, nullptr);
    auto rows = store->QuerySql("SELECT name FROM accounts WHERE type = ?", {"com.corvan.cvid"});
    ASSERT_NE(rows, nullptr);
    ASSERT_EQ(rows->GoToFirstRow(), E_OK);
    std::string name;
    rows->GetString(0, name);
    EXPECT_EQ(name, "alice");
}

TEST_F(RdbStoreTest, PositionAndLastRowFollowTheMoves) {
    int errCode = 0;
    auto store = Open(errCode);
    ASSERT_NE(store, nullptr);
    auto rows = store->QuerySql("SELECT * FROM extras WHERE accounts_id = 4");
    ASSERT_NE(rows, nullptr);
    bool last = true;
    EXPECT_EQ(rows->IsAtLastRow(last), E_OK);
    EXPECT_FALSE(last);
    std::string text;
    EXPECT_EQ(rows->GetString(0, text), E_ROW_OUT_RANGE);
    EXPECT_EQ(rows->GoToNextRow(), E_OK);
    rows->IsAtLastRow(last);
    EXPECT_FALSE(last);
    EXPECT_EQ(rows->GoToNextRow(), E_OK);
    rows->IsAtLastRow(last);
    EXPECT_TRUE(last);
    EXPECT_EQ(rows->GetString(4, text), E_COLUMN_OUT_RANGE);
    EXPECT_EQ(rows->GoToNextRow(), E_ROW_OUT_RANGE);
    rows->IsAtLastRow(last);
    EXPECT_FALSE(last);
    EXPECT_EQ(rows->GoToFirstRow(), E_OK);
    EXPECT_EQ(rows->Close(), E_OK);
    int count = 0;
    EXPECT_EQ(rows->GetRowCount(count), E_ALREADY_CLOSED);
    EXPECT_EQ(rows->GoToFirstRow(), E_ALREADY_CLOSED);
}

TEST_F(RdbStoreTest, AnEmptyResultStandsAtItsLastRowBeforeTheFirstMove) {
    int errCode = 0;
    auto store = Open(errCode);
    ASSERT_NE(store, nullptr);
    auto rows = store->QuerySql("SELECT * FROM extras WHERE accounts_id = 77");
    ASSERT_NE(rows, nullptr);
    bool last = false;
    EXPECT_EQ(rows->IsAtLastRow(last), E_OK);
    EXPECT_TRUE(last);
    EXPECT_EQ(rows->GoToFirstRow(), E_ROW_OUT_RANGE);
    RowEntity row;
    EXPECT_EQ(rows->GetRow(row), E_ROW_OUT_RANGE);
}

TEST_F(RdbStoreTest, RowsReadByNameWithNullsAsEmpty) {
    int errCode = 0;
    auto store = Open(errCode);
    ASSERT_NE(store, nullptr);
    auto rows = store->QuerySql("SELECT * FROM extras WHERE accounts_id = 4");
    ASSERT_NE(rows, nullptr);
    ASSERT_EQ(rows->GoToRow(1), E_OK);
    RowEntity row;
    ASSERT_EQ(rows->GetRow(row), E_OK);
    EXPECT_EQ(static_cast<int>(row.Get("_id")), 5);
    EXPECT_EQ(static_cast<std::string>(row.Get("key")), "k2");
    EXPECT_EQ(row.Get("value").GetType(), ValueObject::TypeId::TYPE_NULL);
    EXPECT_EQ(static_cast<std::string>(row.Get("value")), "");
    EXPECT_EQ(static_cast<std::string>(row.Get("no_such_column")), "");
    EXPECT_EQ(static_cast<int>(row.Get(1)), 4);
    std::string text;
    EXPECT_EQ(rows->GetString(0, text), E_OK);
    EXPECT_EQ(text, "5");
}

TEST_F(RdbStoreTest, LegacyAccountsTableIsReadByName) {
    content_.legacyAccountsColumns = true;
    Write();
    int errCode = 0;
    auto store = Open(errCode);
    ASSERT_NE(store, nullptr);
    auto rows = store->QuerySql("SELECT * FROM accounts WHERE type = \"com.corvan.cvid\"");
    ASSERT_NE(rows, nullptr);
    int columns = 0;
    rows->GetColumnCount(columns);
    EXPECT_EQ(columns, 6);
    ASSERT_EQ(rows->GoToFirstRow(), E_OK);
    RowEntity row;
    ASSERT_EQ(rows->GetRow(row), E_OK);
    EXPECT_EQ(static_cast<std::string>(row.Get("name")), "alice");
    EXPECT_EQ(static_cast<int>(row.Get("_id")), 4);
}

}  // namespace
