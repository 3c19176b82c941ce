#ifndef TESTS_MIGRATE_SERVICE_SERVICE_FIXTURE_H
#define TESTS_MIGRATE_SERVICE_SERVICE_FIXTURE_H

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "migrate_service/migrate_service.h"
#include "raw_migrate_client.h"

namespace Zarvo::Testing {

inline const std::string WORK_ROOT = "/data/service/el1/public/update/migrate_server";
inline const std::string APP_ROOT = "/data/app/el2";

// The real service on its device socket, in a thread of the test process, with empty roots.
class ServiceFixture : public testing::Test {
protected:
    void SetUp() override {
        for (const std::string &root : {WORK_ROOT, APP_ROOT, std::string("/data/outside")}) {
            std::filesystem::remove_all(root);
        }
        std::filesystem::create_directories("/data/outside");
        service_ = std::make_unique<Host::MigrateService>();
        std::string error;
        ASSERT_TRUE(service_->Start(error)) << error;
    }

    void TearDown() override { service_->Stop(); }

    static void WriteFile(const std::string &path, const std::string &content, mode_t mode = 0644) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path, std::ios::binary) << content;
        chmod(path.c_str(), mode);
    }

    static std::string ReadFile(const std::string &path) {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

    static struct stat Lstat(const std::string &path) {
        struct stat st {};
        EXPECT_EQ(lstat(path.c_str(), &st), 0) << path;
        return st;
    }

    static bool Exists(const std::string &path) {
        struct stat st {};
        return lstat(path.c_str(), &st) == 0;
    }

    Host::JournalEntry LastJournalEntry() {
        auto entries = service_->Journal().Entries();
        return entries.empty() ? Host::JournalEntry{} : entries.back();
    }

    std::unique_ptr<Host::MigrateService> service_;
};

inline RawRequest Request(Host::MigrateOp op, const std::string &src, const std::string &dst = "") {
    RawRequest request;
    request.type = static_cast<int32_t>(op);
    request.src = src;
    request.dst = dst;
    return request;
}

}  // namespace Zarvo::Testing

#endif  // TESTS_MIGRATE_SERVICE_SERVICE_FIXTURE_H
