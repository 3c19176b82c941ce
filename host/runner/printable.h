#ifndef HOST_RUNNER_PRINTABLE_H
#define HOST_RUNNER_PRINTABLE_H

#include <string>

namespace Zarvo::Host {

// Text from a phone as a terminal may show it: control characters (C0, DEL, and C1 written as
// UTF-8) become "?", since they would move the cursor, retitle the window or reach the clipboard.
std::string Printable(const std::string &text);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_PRINTABLE_H
