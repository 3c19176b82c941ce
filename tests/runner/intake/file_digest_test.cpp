#include <gtest/gtest.h>

#include <fstream>

#include "sha256.h"

namespace {

// A digest already taken is given again only while the file is the same: a plug-in rebuilt in
// place between two phones of a batch, even to the same size, gets its new digest.
TEST(FileDigestTest, AFileChangedInPlaceIsDigestedAnew) {
    const std::string path = "/tmp/digested_file";
    std::ofstream(path) << "abc";
    const std::string abc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
    EXPECT_EQ(Zarvo::Host::FileSha256(path), abc);
    EXPECT_EQ(Zarvo::Host::FileSha256(path), abc);
    std::ofstream(path) << "abd";
    EXPECT_EQ(Zarvo::Host::FileSha256(path),
              "a52d159f262b2c6ddb724a61840befc36eb30c88877a4030b65cbe86298449c9");
    EXPECT_EQ(Zarvo::Host::FileSha256("/tmp/no_such_file"), "");
}

}  // namespace
