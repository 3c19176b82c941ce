#include "sample_phone.h"

#include <filesystem>

namespace Zarvo::Fixtures {
namespace fs = std::filesystem;

SamplePhone DefaultSamplePhone() {
    return SamplePhone{SamplePhoneAccounts(), SamplePhoneUsers(), UserFileForm::BINARY};
}

std::string BuildSamplePhone(const SamplePhone &phone, const std::string &dir) {
    std::error_code code;
    const fs::path root(dir);
    fs::create_directories(root / "system_ce/0", code);
    if (code) {
        return "cannot create " + (root / "system_ce/0").string() + ": " + code.message() + ".";
    }
    std::string error;
    if (!WriteAccountsCeDb((root / "system_ce/0/accounts_ce.db").string(), phone.accounts, error)) {
        return error;
    }
    if (!WriteAndroidUsers((root / "system/users").string(), phone.users, phone.userFileForm, error)) {
        return error;
    }
    return "";
}

}  // namespace Zarvo::Fixtures
