#ifndef HOST_RUNNER_FOLDER_FILE_H
#define HOST_RUNNER_FOLDER_FILE_H

#include <string>

namespace Zarvo::Host {

// How reading a file of a batch's folder went.
enum class FolderFileRead { READ, MISSING, REFUSED };

// Reads `name` below the folder `dirFd` the way a snapshot's files are read: a regular file with
// one name only, opened without following a link and without waiting on a FIFO, of at most
// `limit` bytes, into `content` (with none, the file is only checked). REFUSED comes with one
// sentence in `error` naming `shownPath` and saying what `reader` ("a merge") refuses.
FolderFileRead ReadFolderFile(int dirFd, const std::string &name, const std::string &shownPath, size_t limit,
                              std::string *content, const std::string &reader, std::string &error);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_FOLDER_FILE_H
