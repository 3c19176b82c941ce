#ifndef HOST_RUNNER_ZIP_LINKS_H
#define HOST_RUNNER_ZIP_LINKS_H

#include <functional>
#include <string>

namespace Zarvo::Host {

// A zip read as a stream shows only its members' local headers, which carry no file type: a
// symbolic link stored by `zip -y` looks like a file holding the link's target. The type lies in
// the central directory at the zip's end, in a member's external attributes when it was made on
// Unix. Reads the central directory of the zip file `fd` and calls `link` with the name of every
// member it gives as a symbolic link. Memory stays bounded whatever the directory's size. Returns
// an empty text, else one sentence.
std::string FindZipLinks(int fd, const std::function<void(const std::string &name)> &link);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_ZIP_LINKS_H
