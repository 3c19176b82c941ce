#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <sstream>
#include <string>

namespace {

// The migrate server resolves one symbol; nothing else of the plug-in may leak into its process.
TEST(PluginExports, OnlyRestoreDataIsExported) {
    std::unique_ptr<FILE, decltype(&pclose)> nm(popen("nm -D --defined-only " PLUGIN_PATH, "r"), &pclose);
    ASSERT_NE(nm, nullptr);
    std::ostringstream out;
    char buffer[256];
    while (fgets(buffer, sizeof(buffer), nm.get()) != nullptr) {
        out << buffer;
    }
    std::istringstream lines(out.str());
    std::vector<std::string> symbols;
    for (std::string address, kind, name; lines >> address >> kind >> name;) {
        symbols.push_back(kind + " " + name);
    }
    EXPECT_EQ(symbols, std::vector<std::string>{"T RestoreData"}) << out.str();
}

}  // namespace
