#include "archive_snapshot.h"

#include <gtest/gtest.h>
#include <lzma.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>
#include <zstd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "runner_process.h"
#include "snapshot.h"
#include "test_archive.h"

namespace {

using namespace Zarvo;
using Host::EntryType;
using Testing::Member;
using Testing::Packing;
namespace fs = std::filesystem;

struct Walked {
    std::string failure;
    std::string root;
    std::vector<std::string> entries;  // "path" or, for a file, "path=content"
};

// Walks the source with the restore's selection and records what it hands over.
Walked WalkSource(Host::SnapshotSource &source) {
    std::unique_ptr<Host::EntryFilter> filter = Host::RestoreEntryFilter(100);
    Walked walked;
    walked.failure =
        source.Walk(*filter, [&walked](const Host::SnapshotEntry &entry, Host::EntryReader &content) {
            std::string text = entry.path;
            if (entry.type == EntryType::FILE) {
                text += "=";
                char buffer[256];
                std::string error;
                for (ssize_t n; (n = content.Read(buffer, sizeof(buffer), error)) > 0;) {
                    text.append(buffer, static_cast<size_t>(n));
                }
            }
            walked.entries.push_back(text);
            return std::string();
        });
    walked.root = source.Root();
    return walked;
}

Walked WalkArchive(const std::string &path, const Host::ArchiveLimits &limits = {}) {
    return WalkSource(*Host::OpenArchiveSnapshot({path}, limits));
}

class ArchiveSnapshotTest : public TempFolderTest {
protected:
    std::string WriteArchive(Packing packing, const std::vector<Member> &members) {
        const std::string path = dir_ + "/archive";
        EXPECT_EQ(Testing::WriteArchive(path, packing, members), "");
        return path;
    }
};

// The forms the runner's own tests do not make; entries come out in the order of a folder's walk.
TEST_F(ArchiveSnapshotTest, FindsTheDataRootWhereverTheArchiveHoldsIt) {
    struct Case {
        std::vector<Member> members;
        std::string root;
        std::vector<std::string> entries;
    } cases[] = {
        {{{"./system/users/10.xml", EntryType::FILE, "ten"},
          {"./system/users/10/photo.png", EntryType::FILE, "png"},
          {"./system/misc.txt", EntryType::FILE, "not taken"},
          {"./system/users/userlist.xml", EntryType::FILE, "list"}},
         "the archive itself",
         {"system/users/10/photo.png=png", "system/users/10.xml=ten", "system/users/userlist.xml=list"}},
        {{{"Dump/data/media/0/back/x.jpg", EntryType::FILE, "a photo of the user's"},
          {"Dump/data/system_ce/0/accounts_ce.db-wal", EntryType::FILE, "wal"},
          {"Dump/data/system_ce/0/accounts_ce.db", EntryType::FILE, "db"}},
         "Dump/data/ in the archive",
         {"system_ce/0/accounts_ce.db=db", "system_ce/0/accounts_ce.db-wal=wal"}},
        {{{"phone/system/users", EntryType::DIRECTORY}, {"phone/system/users/10", EntryType::DIRECTORY}},
         "phone/ in the archive",
         {"system/users/10"}},
        {{{"back/100/accounts_ce.db", EntryType::FILE, "db"}},
         "the archive itself",
         {"back/100/accounts_ce.db=db"}},
        // The phone's own files may hold what looks like a data root, before or after the real one.
        {{{"data/media/0/Download/system/users/userlist.xml", EntryType::FILE, "a download"},
          {"data/system/users/userlist.xml", EntryType::FILE, "list"}},
         "data/ in the archive",
         {"system/users/userlist.xml=list"}},
        {{{"data/system/users/userlist.xml", EntryType::FILE, "list"},
          {"data/media/0/Download/system/users/userlist.xml", EntryType::FILE, "a download"}},
         "data/ in the archive",
         {"system/users/userlist.xml=list"}},
    };
    for (const Case &c : cases) {
        Walked walked = WalkArchive(WriteArchive(Packing::TAR_GZ, c.members));
        EXPECT_EQ(walked.failure, "") << c.root;
        EXPECT_EQ(walked.root, c.root);
        EXPECT_EQ(walked.entries, c.entries) << c.root;
    }
}

TEST_F(ArchiveSnapshotTest, AnArchiveOverALimitOrCutShortHandsNothingOver) {
    const Member list{"data/system/users/userlist.xml", EntryType::FILE, std::string(600, 'x')};
    const Member user{"data/system/users/0.xml", EntryType::FILE, std::string(600, 'x')};
    struct Case {
        std::vector<Member> members;
        Host::ArchiveLimits limits;
        size_t cutTo;  // bytes of the plain tar to keep, 0 for all
        std::string says;
        Packing packing = Packing::TAR;
        size_t damageAt = 0;  // a byte of the plain tar to change, 0 for none
    } cases[] = {
        {{list}, {{500}}, 0, "the archive's data/system/users/userlist.xml holds more than 500 bytes"},
        {{list, user}, {{1000, 1000}}, 0, "hold more than 1000 bytes together"},
        {{list, user, {"data/system/users/10", EntryType::DIRECTORY}},
         {{1000, 2000, 2}},
         0,
         "holds more than 2 entries a restore takes"},
        // Headers without data: nothing but the headers expands.
        {std::vector<Member>(8000, Member{"data/media/0/empty"}),
         {{}, 100, 1 << 20},
         0,
         "as an archive bomb does",
         Packing::TAR_ZST},
        // The second header's mode, so that its checksum does not add up.
        {{list, user},
         {},
         0,
         "which is cut short or corrupt: Damaged tar archive.",
         Packing::TAR,
         1536 + 100},
        // A header and its data, then nothing: not even the end-of-archive block.
        {{list, user}, {}, 1536, "stops without the end-of-archive block"},
        {{{"data/media/0/back/x.jpg", EntryType::FILE, "jpg"}}, {}, 0, "holds no data root"},
    };
    for (const Case &c : cases) {
        const std::string path = WriteArchive(c.packing, c.members);
        if (c.cutTo > 0) {
            ASSERT_EQ(truncate(path.c_str(), static_cast<off_t>(c.cutTo)), 0);
        }
        if (c.damageAt > 0) {
            std::fstream(path, std::ios::in | std::ios::out | std::ios::binary)
                    .seekp(static_cast<std::streamoff>(c.damageAt))
                << '9';
        }
        Walked walked = WalkArchive(path, c.limits);
        EXPECT_NE(walked.failure.find(c.says), std::string::npos) << walked.failure;
        EXPECT_TRUE(walked.entries.empty()) << c.says;
    }
}

// The folder named may be a link; nothing inside the snapshot is followed, and a folder is a data
// root by the same entries as an archive.
TEST_F(ArchiveSnapshotTest, FindsTheDataRootOfAFolderWithoutFollowingItsLinks) {
    Write("phone/system/users/userlist.xml", "list");
    Write("phone/system/misc.txt", "not taken");
    fs::create_directory_symlink(dir_ + "/phone", dir_ + "/linked");
    fs::create_directories(dir_ + "/outer");
    fs::create_directory_symlink(dir_ + "/phone", dir_ + "/outer/data");
    fs::create_directories(dir_ + "/empty/system/users");
    fs::create_directories(dir_ + "/empty/system_ce/0");
    struct Case {
        std::string snapshot;
        std::string root;
        std::vector<std::string> entries;
        std::string says;
    } cases[] = {
        {"linked", "the folder itself", {"system/users/userlist.xml=list"}, ""},
        {"outer", "not found yet", {}, "holds neither"},
        {"empty", "not found yet", {}, "holds neither"},
    };
    for (const Case &c : cases) {
        std::string error;
        std::unique_ptr<Host::SnapshotSource> source = Host::OpenSnapshot(dir_ + "/" + c.snapshot, error);
        ASSERT_NE(source, nullptr) << error;
        Walked walked = WalkSource(*source);
        EXPECT_NE(walked.failure.find(c.says), std::string::npos) << c.snapshot << ": " << walked.failure;
        EXPECT_EQ(walked.root, c.root) << c.snapshot;
        EXPECT_EQ(walked.entries, c.entries) << c.snapshot;
    }
}

// Pieces are names ending in .win and three digits or more, numbered from 0 without a gap; the
// runner found them, so it takes only regular files of their own, never through a link.
TEST_F(ArchiveSnapshotTest, ASplitBackupTakesOnlyItsOwnPiecesAsRegularFiles) {
    for (int i = 0; i <= 1000; ++i) {
        char number[8];
        std::snprintf(number, sizeof(number), "%03d", i);
        Write(std::string("split/data.ext4.win") + number, "");
    }
    Write("split/data.ext4.win0001", "not a piece: written wider than the first");
    Write("shelf/phone000", "");
    Write("shelf/phone001", "");
    for (const char *name :
         {"gap/data.ext4.win000", "gap/data.ext4.win001", "gap/data.ext4.win003", "linked/data.ext4.win000",
          "hard/data.ext4.win000", "fifo/data.ext4.win000", "lone/data.ext4.win002", "secret"}) {
        Write(name, "");
    }
    fs::create_symlink(dir_ + "/secret", dir_ + "/linked/data.ext4.win001");
    fs::create_hard_link(dir_ + "/secret", dir_ + "/hard/data.ext4.win001");
    ASSERT_EQ(mkfifo((dir_ + "/fifo/data.ext4.win001").c_str(), 0600), 0);
    struct Case {
        std::string path;
        size_t pieces;
        std::string last;
        std::string says;
    } cases[] = {
        {"split/data.ext4.win000", 1001, "split/data.ext4.win1000", ""},
        {"split/data.ext4.win001", 0, "", "is a later piece of a split backup; give its first piece"},
        {"split/data.ext4.win1000", 0, "", "give its first piece, " + dir_ + "/split/data.ext4.win000."},
        {"shelf/phone000", 1, "shelf/phone000", ""},
        {"gap/data.ext4.win000", 0, "", "is missing its piece " + dir_ + "/gap/data.ext4.win002."},
        {"linked/data.ext4.win000", 0, "", "is a link, a second name of a file or no regular file"},
        {"hard/data.ext4.win000", 0, "", "is a link, a second name of a file or no regular file"},
        {"fifo/data.ext4.win000", 0, "", "is a link, a second name of a file or no regular file"},
        {"lone/data.ext4.win002", 0, "",
         "whose first piece, " + dir_ + "/lone/data.ext4.win000, is missing."},
    };
    for (const Case &c : cases) {
        std::string error;
        std::vector<std::string> pieces = Host::ArchivePieces(dir_ + "/" + c.path, error);
        EXPECT_EQ(pieces.size(), c.pieces) << c.path;
        EXPECT_EQ(pieces.empty() ? "" : pieces.back(), c.last.empty() ? "" : dir_ + "/" + c.last) << c.path;
        EXPECT_NE(error.find(c.says), std::string::npos) << c.path << ": " << error;
    }
    EXPECT_EQ(
        Host::WithoutLaterPieces({"a.tar", "data.ext4.win000", "data.ext4.win001", "data.ext4.win1000",
                                  "phone000", "phone001", "x.ext4.win001"}),
        (std::vector<std::string>{"a.tar", "data.ext4.win000", "phone000", "phone001", "x.ext4.win001"}));
}

// A piece may change between its listing and its reading: what is read then is never a link's
// target, and a FIFO does not block the read.
TEST_F(ArchiveSnapshotTest, APieceThatTurnedIntoALinkOrAFifoIsNotRead) {
    const std::string path = WriteArchive(
        Packing::TAR, {{"data/system/users/userlist.xml", EntryType::FILE, std::string(3000, 'x')}});
    std::string tar = ReadFile(path);
    const std::string first = Write("pieces/data.ext4.win000", tar.substr(0, 1024));
    const std::string secret = Write("secret", tar.substr(1024));
    fs::create_symlink(secret, dir_ + "/pieces/data.ext4.win001");
    ASSERT_EQ(mkfifo((dir_ + "/pieces/data.ext4.win002").c_str(), 0600), 0);
    for (const std::string later : {"data.ext4.win001", "data.ext4.win002"}) {
        Walked walked = WalkSource(*Host::OpenArchiveSnapshot({first, dir_ + "/pieces/" + later}));
        EXPECT_NE(walked.failure.find(later), std::string::npos) << walked.failure;
        EXPECT_TRUE(walked.entries.empty()) << later;
    }
}

// The header of an xz or zstd stream chooses the decoder's dictionary or window: one above the
// cap is refused before it is allocated, as is a zip entry that is neither stored nor deflated.
TEST_F(ArchiveSnapshotTest, AHeaderThatAsksForMoreDecoderMemoryThanTheCapIsRefused) {
    const std::string tar = ReadFile(WriteArchive(
        Packing::TAR, {{"data/system/users/userlist.xml", EntryType::FILE, std::string(5000, 'x')}}));
    std::string xz(tar.size() + 4096, '\0');
    size_t xzSize = 0;
    ASSERT_EQ(
        lzma_easy_buffer_encode(1, LZMA_CHECK_CRC64, nullptr, reinterpret_cast<const uint8_t *>(tar.data()),
                                tar.size(), reinterpret_cast<uint8_t *>(xz.data()), &xzSize, xz.size()),
        LZMA_OK);
    xz.resize(xzSize);
    // The block header after the 12-byte stream header: its size in words, flags, the block's
    // sizes, LZMA2's id and properties' size, the dictionary (35: 768 MiB), padding, then the
    // CRC-32 of the bytes before it.
    const size_t headerSize = (static_cast<unsigned char>(xz[12]) + 1) * 4;
    const size_t filter = xz.find(std::string("\x21\x01", 2), 14);
    ASSERT_LT(filter, 12 + headerSize - 4);
    xz[filter + 2] = 35;
    const uLong crc = crc32(0, reinterpret_cast<const Bytef *>(xz.data() + 12), headerSize - 4);
    for (size_t i = 0; i < 4; ++i) {
        xz[12 + headerSize - 4 + i] = static_cast<char>((crc >> (8 * i)) & 0xff);
    }
    // A zstd frame without its content size carries its window: 2^27 bytes.
    std::unique_ptr<ZSTD_CCtx, decltype(&ZSTD_freeCCtx)> cctx(ZSTD_createCCtx(), ZSTD_freeCCtx);
    ZSTD_CCtx_setParameter(cctx.get(), ZSTD_c_contentSizeFlag, 0);
    std::string zst(ZSTD_compressBound(tar.size()), '\0');
    ZSTD_outBuffer out{zst.data(), zst.size(), 0};
    ZSTD_inBuffer in{tar.data(), tar.size(), 0};
    ASSERT_EQ(ZSTD_compressStream2(cctx.get(), &out, &in, ZSTD_e_end), 0u);
    zst.resize(out.pos);
    ASSERT_EQ(static_cast<unsigned char>(zst[4]) & 0x20, 0) << "a single segment has no window";
    zst[5] = static_cast<char>(17 << 3);
    // A stored entry whose method says LZMA, in its local header and in the central directory.
    std::string zip =
        ReadFile(WriteArchive(Packing::ZIP, {{"data/system/users/userlist.xml", EntryType::FILE, "list"}}));
    for (size_t at = 0; (at = zip.find("PK\x03\x04", at)) != std::string::npos; at += 4) {
        zip[at + 8] = 14;
    }
    struct Case {
        std::string name;
        std::string bytes;
        std::string says;
    } cases[] = {
        {"xz", xz,
         "within the runner's memory: its xz stream needs more than 72 MiB of memory to decompress"},
        {"zstd", zst,
         "within the runner's memory: its zstd stream needs more than 72 MiB of memory to decompress"},
        {"zip", zip, "the runner reads zip entries only stored or deflated."},
    };
    for (const Case &c : cases) {
        const std::string path = Write(c.name, c.bytes);
        Walked walked = WalkArchive(path);
        EXPECT_NE(walked.failure.find(c.says), std::string::npos) << c.name << ": " << walked.failure;
        EXPECT_TRUE(walked.entries.empty()) << c.name;
    }
}

// A zip read as a stream would show a stored link as a file holding its target.
TEST_F(ArchiveSnapshotTest, ALinkInAZipIsHandedOverAsALink) {
    const std::string path =
        WriteArchive(Packing::ZIP, {{"data/system/users/userlist.xml", EntryType::FILE, "list"},
                                    {"data/system/users/0.xml", EntryType::SYMLINK, "/etc/passwd"}});
    std::unique_ptr<Host::SnapshotSource> source = Host::OpenArchiveSnapshot({path});
    std::unique_ptr<Host::EntryFilter> filter = Host::RestoreEntryFilter(100);
    std::vector<std::string> handed;
    EXPECT_EQ(source->Walk(*filter,
                           [&handed](const Host::SnapshotEntry &entry, Host::EntryReader &) {
                               handed.push_back(entry.path +
                                                (entry.type == EntryType::SYMLINK ? " -> " : " ") +
                                                entry.linkTarget);
                               return std::string();
                           }),
              "");
    EXPECT_EQ(handed,
              (std::vector<std::string>{"system/users/0.xml -> /etc/passwd", "system/users/userlist.xml "}));
}

}  // namespace
