#ifndef TESTS_MIGRATE_SERVICE_SERVICE_FIXTURE_H
#define TESTS_MIGRATE_SERVICE_SERVICE_FIXTURE_H

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "migrate_peers.h"
#include "migrate_service/migrate_service.h"
#include "test_files.h"

namespace Zarvo::Testing {

inline const std::string WORK_ROOT = "/data/service/el1/public/update/migrate_server";
inline const std::string APP_ROOT = "/data/app/el2";
inline const std::string OUTSIDE = "/data/outside";  // beside the roots, where an escape would show

// The real service on its device socket, in a thread of the test process, with empty roots.
class ServiceFixture : public testing::Test {
protected:
    void SetUp() override {
        for (const std::string &root : {WORK_ROOT, APP_ROOT, OUTSIDE}) {
            std::filesystem::remove_all(root);
        }
        std::filesystem::create_directories(OUTSIDE);
        std::string error;
        ASSERT_TRUE(service_->Start(error)) << error;
    }
    void TearDown() override { service_->Stop(); }

    Host::JournalEntry LastJournalEntry() {
        auto entries = service_->Journal().Entries();
        return entries.empty() ? Host::JournalEntry{} : entries.back();
    }

    std::unique_ptr<Host::MigrateService> service_ = std::make_unique<Host::MigrateService>();
};

}  // namespace Zarvo::Testing

#endif  // TESTS_MIGRATE_SERVICE_SERVICE_FIXTURE_H
